// ExcuteAlgo_CreateThumb: PNG and JPEG quick looks of rasters, rendered concurrently, in time-stamped folders.
#include "AlgoFactory.h"
#include "entry_guard.h"
#include "input_path.h"
#include "sys_data_source.h"
#include "sys_display.h"
#include "thumbnail_size.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentMap>

#include <iostream>
#include <mutex>

using namespace algofactory;

namespace
{

constexpr int kDefaultBoxEdge = 256;

// Files beside a raster that GDAL would open as rasters of their own but are parts of another one.
bool isSidecar(const QFileInfo& file)
{
    const QString name = file.fileName().toLower();
    return name.endsWith(QLatin1String(".ovr")) || name.endsWith(QLatin1String(".msk")) ||
           name.endsWith(QLatin1String(".aux.xml"));
}

// A folder entry stands for the files directly inside it (sorted by name); a file for itself.
void addEntry(const QString& path, QStringList* rasters)
{
    const QFileInfo info(path);
    if (!info.isDir())
    {
        rasters->append(path);
        return;
    }
    for (const QFileInfo& file : QDir(path).entryInfoList(QDir::Files, QDir::Name))
        if (!isSidecar(file))
            rasters->append(file.filePath());
}

struct ThumbJob
{
    int boxEdge;
    bool keepRatio;
    std::mutex* output;

    void operator()(const QString& path) const
    {
        try
        {
            run(path);
        }
        catch (...)
        {
            // One raster's failure leaves the others to finish.
        }
    }

    void run(const QString& path) const
    {
        auto dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(path);
        if (!dataset)
            return;
        const QSize rendered = thumbRenderSize(dataset->GetWidth(), dataset->GetHeight());
        const QSize final = thumbFinalSize(rendered, boxEdge, keepRatio);
        const QSize read = thumbReadSize(rendered, final);
        const QImage image = SysDisplay::RenderRaster(dataset.get(), read.width(), read.height());
        if (image.isNull())
            return;

        const QFileInfo info(path);
        const QString separator = QStringLiteral("/");
        const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmsszzz"));
        // A remote raster has no folder of ours beside it: its thumbnails go under the working folder.
        const QString parent = isVirtualPath(path) ? QDir::currentPath() : info.absolutePath();
        const QString folder = QStringLiteral("%1%2%3%2").arg(parent, separator, stamp);
        if (!QDir().mkpath(folder))
            return;
        const QString png = QStringLiteral("%1%2.png").arg(folder, info.completeBaseName());
        const QString jpg = QStringLiteral("%1%2.jpg").arg(folder, info.completeBaseName());
        const QImage thumb = image.scaled(final, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        if (!thumb.save(png) || !thumb.save(jpg))
            return;

        std::lock_guard<std::mutex> lock(*output);
        std::cout << "[OUTPUT] " << "thumbImage" << "=" << '"' << png.toUtf8().constData() << '"' << std::endl;
        std::cout << "[OUTPUT] " << "thumbjpgImage" << "=" << '"' << jpg.toUtf8().constData() << '"' << std::endl;
    }
};

} // namespace

ALGO_API bool ExcuteAlgo_CreateThumb(const char* jsonText)
{
    return guardEntry("ExcuteAlgo_CreateThumb", [&] {
        const QJsonObject object = QJsonDocument::fromJson(QByteArray(jsonText ? jsonText : "")).object();
        int boxEdge = kDefaultBoxEdge;
        bool keepRatio = true;
        QStringList rasters;
        for (auto it = object.begin(); it != object.end(); ++it)
        {
            if (it.key() == QLatin1String("maxHeight"))
            {
                const int edge = it.value().isString() ? it.value().toString().toInt() : it.value().toInt();
                if (edge > 0)
                    boxEdge = edge;
            }
            else if (it.key() == QLatin1String("keepRatio"))
            {
                keepRatio = it.value().isString() ? it.value().toString() == QLatin1String("true")
                                                  : it.value().toBool(true);
            }
            else
            {
                for (const QJsonValue& value : it.value().toArray())
                    if (value.isString() && !value.toString().isEmpty())
                        addEntry(value.toString(), &rasters);
            }
        }
        if (rasters.isEmpty())
            return false;

        // blockingMap runs on QThreadPool::globalInstance() and returns when every raster is done.
        std::mutex output;
        const ThumbJob job{boxEdge, keepRatio, &output};
        QtConcurrent::blockingMap(rasters, [&job](QString& path) { job(path); });
        return true;
    });
}
