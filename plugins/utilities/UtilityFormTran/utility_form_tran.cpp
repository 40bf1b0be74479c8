// Plug-in "UtilityFormTran": format conversion through GDALTranslate, with progress and stop requests.
#include "gdal_apps.h"
#include "plugin_base.h"
#include "records/utility_records.h"

#include <QDir>
#include <QFileInfo>

namespace
{

class UtilityFormTran : public algokit::PluginBase
{
public:
    UtilityFormTran() : PluginBase(QStringLiteral("UtilityFormTran")) {}

protected:
    bool run() override
    {
        const stFormatTransInfo& info = params<stFormatTransInfo>();
        if (info.inputFile.isEmpty() || info.outputFile.isEmpty())
            return fail(QStringLiteral("Input and output paths are required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(info.format.toUtf8().constData());
        for (int band : info.bands)
        {
            argv.AddString("-b");
            argv.AddString(QByteArray::number(band).constData());
        }
        algokit::addGeoTiffOptions(info.format, &argv);

        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
        claimOutput(info.outputFile);
        algokit::GdalProgress bridge([this](double percent) { progress(percent); });
        algokit::translateRaster(source.get(), info.outputFile, argv, &bridge);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(UtilityFormTran)
