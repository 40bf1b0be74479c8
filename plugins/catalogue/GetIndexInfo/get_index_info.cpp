// Plug-in "GetIndexInfo": summary of a footprint index - image count, extent, date range, satellites and
// sensors with their counts, fields - as [OUTPUT] lines and as JSON.
#include "generic_params.h"
#include "image_index.h"
#include "made_folders.h"
#include "plugin_base.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QSaveFile>

namespace
{

QString countsText(const QMap<QString, int>& counts)
{
    QStringList items;
    for (auto it = counts.begin(); it != counts.end(); ++it)
        items << QStringLiteral("%1:%2").arg(it.key()).arg(it.value());
    return items.join(QLatin1Char(','));
}

QJsonObject countsJson(const QMap<QString, int>& counts)
{
    QJsonObject object;
    for (auto it = counts.begin(); it != counts.end(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

class GetIndexInfo : public algokit::PluginBase
{
public:
    GetIndexInfo() : PluginBase(QStringLiteral("GetIndexInfo")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString indexPath = args.text("IndexFile").existingFile();
        const algokit::TextParam jsonFile = args.text("JsonFile");
        if (!jsonFile.isEmpty())
        {
            m_folders.noteBefore(QFileInfo(jsonFile.value()).absolutePath());
            args.text("JsonFile").writableOutput();
        }

        catalogue::IndexContent content;
        QString error;
        if (!catalogue::readIndex(indexPath, content, &error))
            args.refuse("IndexFile", indexPath, error);
        progress(50.0);

        OGREnvelope extent;
        QString first, last;
        QMap<QString, int> satellites, sensors;
        for (const catalogue::IndexRow& row : content.rows)
        {
            if (row.footprint)
            {
                OGREnvelope e;
                row.footprint->getEnvelope(&e);
                extent.Merge(e);
            }
            const QString& when = row.info.acquisition;
            if (!when.isEmpty())
            {
                if (first.isEmpty() || when < first)
                    first = when;
                if (last.isEmpty() || when > last)
                    last = when;
            }
            satellites[row.info.satellite.isEmpty() ? QStringLiteral("unknown") : row.info.satellite] += 1;
            sensors[row.info.sensor.isEmpty() ? QStringLiteral("unknown") : row.info.sensor] += 1;
        }
        const QString extentText = extent.IsInit() ? QStringLiteral("%1|%2|%3|%4")
                                                         .arg(extent.MinX, 0, 'g', 12)
                                                         .arg(extent.MinY, 0, 'g', 12)
                                                         .arg(extent.MaxX, 0, 'g', 12)
                                                         .arg(extent.MaxY, 0, 'g', 12)
                                                   : QString();
        const QString dates = first.isEmpty() ? QString() : first + QLatin1Char('|') + last;

        QJsonObject json;
        json.insert(QStringLiteral("index"), indexPath);
        json.insert(QStringLiteral("layer"), content.layerName);
        json.insert(QStringLiteral("imageCount"), int(content.rows.size()));
        if (extent.IsInit())
            json.insert(QStringLiteral("extent"), QJsonArray{extent.MinX, extent.MinY, extent.MaxX, extent.MaxY});
        if (!first.isEmpty())
            json.insert(QStringLiteral("dateRange"), QJsonArray{first, last});
        json.insert(QStringLiteral("satellites"), countsJson(satellites));
        json.insert(QStringLiteral("sensors"), countsJson(sensors));
        json.insert(QStringLiteral("fields"), QJsonArray::fromStringList(content.fields));
        const QByteArray jsonText = QJsonDocument(json).toJson(QJsonDocument::Compact);

        algokit::GenericOutputs outputs;
        outputs.add("ImageCount", QString::number(content.rows.size()))
            .add("Extent", extentText)
            .add("DateRange", dates)
            .add("Satellites", countsText(satellites))
            .add("Sensors", countsText(sensors))
            .add("Fields", content.fields.join(QLatin1Char(',')))
            .add("IndexInfo_JSON", QString::fromUtf8(jsonText));
        if (!jsonFile.isEmpty())
        {
            QSaveFile file(jsonFile.value());
            if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(json).toJson()) < 0 || !file.commit())
                return fail(QStringLiteral("GetIndexInfo: %1 cannot be written").arg(jsonFile.value()));
            outputs.add("JsonFile", jsonFile.value());
        }
        progress(100.0);
        setResult(outputs.result());
        return true;
    }

    void discardOutputs() override { m_folders.removeEmpty(); }

private:
    catalogue::MadeFolders m_folders;
};

} // namespace

ALGO_PLUGIN_FACTORY(GetIndexInfo)
