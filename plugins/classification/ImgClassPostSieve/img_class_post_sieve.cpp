// Plug-in "ImgClassPostSieve": connected regions smaller than the size threshold are merged into their largest
// neighbouring region (GDALSieveFilter). Record pair: (neighbourhood 4 or 8, size threshold in pixels).
#include "classification_io.h"
#include "plugin_base.h"
#include "records/classification_records.h"

#include <gdal_alg.h>

namespace
{

int CPL_STDCALL sieveProgress(double complete, const char*, void* data)
{
    auto* report = static_cast<std::function<bool(double)>*>(data);
    return (*report)(complete * 100.0) ? TRUE : FALSE;
}

class ImgClassPostSieve : public algokit::PluginBase
{
public:
    ImgClassPostSieve() : PluginBase(QStringLiteral("ImgClassPostSieve")) {}

protected:
    bool run() override
    {
        const stClassPostclump& info = params<stClassPostclump>();
        if (info.pair.size() != 2)
            return fail(QStringLiteral("The sieve needs a neighbourhood and a size threshold."));
        const int neighbourhood = info.pair[0];
        const int threshold = info.pair[1];
        if (neighbourhood != 4 && neighbourhood != 8)
            return fail(QStringLiteral("The neighbourhood must be 4 or 8, not %1.").arg(neighbourhood));
        if (threshold < 1)
            return fail(QStringLiteral("The size threshold must be at least 1 pixel, not %1.").arg(threshold));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        const algokit::ClassTable table = algokit::readClassTable(source.get());
        algokit::OutputRaster output =
            algokit::createClassRaster(info.outputFile, source.get(), table.colours, table.names, QString(),
                                       algokit::classDataType(table.colours.size()));
        bool cancelled = false;
        std::function<bool(double)> report = [&](double percent) {
            try
            {
                progress(percent);
                return true;
            }
            catch (const algokit::Cancelled&)
            {
                cancelled = true;
                return false;
            }
        };
        const CPLErr error = GDALSieveFilter(GDALRasterBand::ToHandle(source->GetRasterBand(1)), nullptr,
                                             GDALRasterBand::ToHandle(output.band(0)), threshold, neighbourhood, nullptr,
                                             sieveProgress, &report);
        if (cancelled)
            throw algokit::Cancelled();
        if (error != CE_None)
            return fail(QStringLiteral("The sieve failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        output.commit();
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgClassPostSieve)
