// Plug-in "BandTransform": a raster rewritten in another format or band interleave, its metadata kept.
#include "gdal_apps.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_inputs.h"

#include <QFileInfo>

namespace
{

class BandTransform : public algokit::PluginBase
{
public:
    BandTransform() : PluginBase(QStringLiteral("BandTransform")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr input = datautil::openRasterItem(args, QStringLiteral("InputFile"), inputPath);
        const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
        datautil::refuseOverwritingInput(args, QStringLiteral("OutputFile"), output, {inputPath});

        // ENVI names its interleave by suffix; every other format comes from the suffix as usual.
        const QString suffix = QFileInfo(output).suffix().toLower();
        const bool enviInterleave =
            suffix == QLatin1String("bsq") || suffix == QLatin1String("bil") || suffix == QLatin1String("bip");
        const QString format = enviInterleave ? QStringLiteral("ENVI") : algokit::driverForPath(output);
        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(format.toUtf8().constData());
        if (enviInterleave)
        {
            argv.AddString("-co");
            argv.AddString(("INTERLEAVE=" + suffix.toUpper()).toUtf8().constData());
        }
        algokit::addGeoTiffOptions(format, &argv);

        claimOutput(output);
        algokit::GdalProgress bridge([this](double percent) { progress(percent); });
        algokit::translateRaster(input.get(), output, argv, &bridge);
        // What the format cannot hold (band metadata of ENVI, for one) GDAL keeps in a side-car file.
        if (QFileInfo::exists(output + QStringLiteral(".aux.xml")))
            setResult(
                algokit::GenericOutputs().add(QStringLiteral("AuxFile"), output + QStringLiteral(".aux.xml")).result());
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BandTransform)
