// ExcuteAlgo_ImageResample: resample a raster to a target width, the height following the aspect ratio.
#include "entry_guard.h"
#include "format_from_path.h"
#include "records/utility_records.h"
#include "sys_data_source.h"
#include "utility_entry_support.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_ImageResample(const char* inputFile, const char* outputFile, long resampleMethod, int option,
                                       long width, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImageResample", [&] {
        stResampleInfo record;
        record.inputFile = utf8Arg(inputFile);
        record.outputFile = utf8Arg(outputFile);
        record.resampleMethod = int(resampleMethod);
        record.format = FormatFromPath(record.outputFile);
        record.algoName = QStringLiteral("ImageResample");
        record.option = option;

        // A dataset that does not open leaves the size 0 x 0 and no bands: the plug-in reports it.
        auto dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(record.inputFile);
        if (dataset)
        {
            for (int band = 1; band <= dataset->GetBandCount(); ++band)
                record.bands.push_back(band);
            const int inWidth = dataset->GetWidth();
            const int inHeight = dataset->GetHeight();
            if (width != 0)
            {
                // Truncated, then one more row: 1000 x 500 to width 300 gives 151 rows.
                const double ratio = double(inWidth) / double(inHeight);
                record.width = int(width);
                record.height = int(double(width) / ratio) + 1;
            }
            else
            {
                record.width = inWidth;
                record.height = inHeight;
            }
        }
        return runUtilityPlugin(record, "ImageResample", "ImageResample", result);
    });
}
