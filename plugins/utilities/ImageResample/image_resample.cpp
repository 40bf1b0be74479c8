// Plug-in "ImageResample": resample a raster to the size in its record (GDALTranslate with a resampling kernel).
#include "gdal_apps.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <QDir>
#include <QFileInfo>

namespace
{

class ImageResample : public algokit::PluginBase
{
public:
    ImageResample() : PluginBase(QStringLiteral("ImageResample")) {}

protected:
    bool run() override
    {
        const stResampleInfo& info = params<stResampleInfo>();
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("An output path is required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        if (info.width <= 0 || info.height <= 0)
            return fail(QStringLiteral("Invalid output size %1 x %2.").arg(info.width).arg(info.height));

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(info.format.toUtf8().constData());
        argv.AddString("-outsize");
        argv.AddString(QByteArray::number(info.width).constData());
        argv.AddString(QByteArray::number(info.height).constData());
        argv.AddString("-r");
        argv.AddString(algokit::resamplingName(info.resampleMethod));
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
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImageResample)
