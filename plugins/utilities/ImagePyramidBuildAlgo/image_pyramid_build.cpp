// Plug-in library "ImagePyramidBuildAlgo": overviews (unnamed algorithm) and, by name, "ImageSetInvalidValueAlgo".
#include "gdal_progress.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <cpl_conv.h>

#include <vector>

namespace
{

// Factors 2, 4, 8 ... until the overview fits 256 x 256, as gdaladdo chooses them.
std::vector<int> overviewFactors(int width, int height)
{
    std::vector<int> factors;
    for (int factor = 1; (width + factor - 1) / factor > 256 || (height + factor - 1) / factor > 256;)
    {
        factor *= 2;
        factors.push_back(factor);
    }
    return factors;
}

class ImagePyramidBuild : public algokit::PluginBase
{
public:
    ImagePyramidBuild() : PluginBase(QStringLiteral("ImagePyramidBuildAlgo")) {}

protected:
    bool run() override
    {
        const stPyramidBuildInfo& info = params<stPyramidBuildInfo>();
        if (info.files.isEmpty())
            return fail(QStringLiteral("No raster given."));
        const int count = info.files.size();
        for (int i = 0; i < count; ++i)
        {
            const QString& file = info.files[i];
            // Update mode writes the overviews into formats that hold them (GeoTIFF); read-only mode makes GDAL
            // write an .ovr file beside the raster.
            algokit::DatasetPtr dataset;
            try
            {
                dataset = algokit::openRaster(file, true);
            }
            catch (const algokit::AlgoError&)
            {
                dataset = algokit::openRaster(file, false);
            }
            if (dataset->GetRasterCount() < 1)
                return fail(QStringLiteral("%1 has no bands.").arg(file));
            const std::vector<int> factors = overviewFactors(dataset->GetRasterXSize(), dataset->GetRasterYSize());
            // Replace what is there: new levels are computed from the full resolution.
            if (dataset->GetRasterBand(1)->GetOverviewCount() > 0)
                dataset->BuildOverviews("NONE", 0, nullptr, 0, nullptr, nullptr, nullptr);
            if (factors.empty())
                continue;
            const bool paletted = dataset->GetRasterBand(1)->GetColorTable() != nullptr;
            algokit::GdalProgress bridge([this](double percent) { progress(percent); }, 100.0 * i / count,
                                         100.0 * (i + 1) / count);
            CPLSetThreadLocalConfigOption("GDAL_NUM_THREADS", "ALL_CPUS");
            const CPLErr error = dataset->BuildOverviews(paletted ? "NEAREST" : "AVERAGE", int(factors.size()),
                                                         factors.data(), 0, nullptr, algokit::GdalProgress::callback,
                                                         &bridge);
            CPLSetThreadLocalConfigOption("GDAL_NUM_THREADS", nullptr);
            bridge.rethrowIfCancelled();
            if (error != CE_None)
                return fail(QStringLiteral("Building the overviews of %1 failed: %2")
                                .arg(file, QString::fromUtf8(CPLGetLastErrorMsg())));
        }
        progress(100.0);
        return true;
    }
};

class ImageSetInvalidValue : public algokit::PluginBase
{
public:
    ImageSetInvalidValue() : PluginBase(QStringLiteral("ImageSetInvalidValueAlgo")) {}

protected:
    bool run() override
    {
        const stSetInvalidValueInfo& info = params<stSetInvalidValueInfo>();
        if (info.files.isEmpty())
            return fail(QStringLiteral("No raster given."));
        for (int i = 0; i < info.files.size(); ++i)
        {
            algokit::DatasetPtr dataset = algokit::openRaster(info.files[i], true);
            for (int band = 1; band <= dataset->GetRasterCount(); ++band)
                if (dataset->GetRasterBand(band)->SetNoDataValue(info.noDataValue) != CE_None)
                    return fail(QStringLiteral("%1 does not take the no-data value %2: %3")
                                    .arg(info.files[i])
                                    .arg(info.noDataValue)
                                    .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
            progress(100.0 * (i + 1) / info.files.size());
        }
        return true;
    }
};

} // namespace

// One library, two algorithms chosen by name: the empty name builds pyramids.
extern "C" __attribute__((visibility("default"))) IAlgorithm* GetAlgoObj(QString algoName)
{
    try
    {
        if (algoName == QLatin1String("ImageSetInvalidValueAlgo"))
            return new ImageSetInvalidValue();
        return new ImagePyramidBuild();
    }
    catch (...)
    {
        return nullptr;
    }
}
