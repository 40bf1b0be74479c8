// Plug-in "MaskCreation": a Byte mask on an image's grid, 1 inside a vector file's features (GDALRasterize).
#include "gdal_progress.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <gdal_utils.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFileInfo>

namespace
{

class MaskCreation : public algokit::PluginBase
{
public:
    MaskCreation() : PluginBase(QStringLiteral("MaskCreation")) {}

protected:
    bool run() override
    {
        const stMaskCreationInfo& info = params<stMaskCreationInfo>();
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("An output path is required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        CPLPushErrorHandler(CPLQuietErrorHandler);
        algokit::DatasetPtr vector(GDALDataset::FromHandle(GDALOpenEx(info.attributeFile.toUtf8().constData(),
                                                                      GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr,
                                                                      nullptr, nullptr)));
        CPLPopErrorHandler();
        if (!vector)
            return fail(QStringLiteral("Cannot open vector file: %1").arg(info.attributeFile));
        if (vector->GetLayerCount() < 1)
            return fail(QStringLiteral("%1 has no layers.").arg(info.attributeFile));

        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
        algokit::OutputRaster output(info.outputFile, info.format, input->GetRasterXSize(), input->GetRasterYSize(), 1,
                                     GDT_Byte);
        output.copyGeoreferencing(input.get());
        // Created files start at 0 in every format we write, but say so rather than rely on it.
        output.band(0)->Fill(0.0);

        // Every layer is burnt; features in another reference system are reprojected onto the grid by GDAL.
        CPLStringList argv;
        argv.AddString("-burn");
        argv.AddString("1");
        if (info.flag)
            argv.AddString("-i");
        for (int i = 0; i < vector->GetLayerCount(); ++i)
        {
            argv.AddString("-l");
            argv.AddString(vector->GetLayer(i)->GetName());
        }
        GDALRasterizeOptions* options = GDALRasterizeOptionsNew(argv.List(), nullptr);
        if (!options)
            return fail(QStringLiteral("Invalid rasterisation options."));
        algokit::GdalProgress bridge([this](double percent) { progress(percent); });
        GDALRasterizeOptionsSetProgress(options, algokit::GdalProgress::callback, &bridge);
        int usageError = 0;
        CPLErrorReset();
        GDALDatasetH done = GDALRasterize(nullptr, GDALDataset::ToHandle(output.get()),
                                          GDALDataset::ToHandle(vector.get()), options, &usageError);
        GDALRasterizeOptionsFree(options);
        bridge.rethrowIfCancelled();
        if (!done || usageError)
            return fail(QStringLiteral("Rasterising %1 failed: %2")
                            .arg(info.attributeFile, QString::fromUtf8(CPLGetLastErrorMsg())));
        output.commit();
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MaskCreation)
