// Shared set-up of the fuzz targets.
#include "fuzz_support.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdlib>

namespace fuzzsupport
{

namespace
{
QTemporaryDir* g_folder = nullptr;
QString g_path;
} // namespace

void setUpProcess(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // A mutated address never leaves the machine: transfers may reach the loopback address only.
    qputenv("ALGO_NETWORK_LOOPBACK_ONLY", "1");
    // The application and the folder live as long as the process: libFuzzer ends it with exit().
    static QApplication* application = new QApplication(*argc, *argv);
    (void)application;
    g_folder = new QTemporaryDir(QDir::tempPath() + QStringLiteral("/algo_fuzz_XXXXXX"));
    g_path = g_folder->path();
    QDir::setCurrent(g_path);
}

const QString& workFolder()
{
    return g_path;
}

QString writeInput(const char* name, const uint8_t* data, size_t size)
{
    const QString path = g_path + QLatin1Char('/') + QLatin1String(name);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    return path;
}

} // namespace fuzzsupport
