// ExcuteAlgo_UtilityBitDepthTrans: stretch a raster linearly into another pixel depth.
#include "entry_guard.h"
#include "format_from_path.h"
#include "records/utility_records.h"
#include "sys_data_source.h"
#include "utility_entry_support.h"

#include <algorithm>
#include <limits>

using namespace algofactory;

ALGO_API bool ExcuteAlgo_UtilityBitDepthTrans(const char* inputFile, const char* outputFile, int option, double minLimit,
                                              double maxLimit, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_UtilityBitDepthTrans", [&] {
        stBitDepthTransInfo record;
        record.inputFile = utf8Arg(inputFile);
        record.outputFile = utf8Arg(outputFile);
        record.minLimit = minLimit;
        record.maxLimit = maxLimit;
        record.option = option;
        record.algoName = QStringLiteral("UtilityBitDepthTrans");
        record.inputMin = minLimit;
        record.inputMax = maxLimit;
        record.format = FormatFromPath(record.outputFile);

        auto dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(record.inputFile);
        if (dataset)
        {
            // The maximum starts from the smallest positive normal double, not the most negative value:
            // an all-negative image reports that tiny number as its maximum, as callers have come to expect.
            double lowest = std::numeric_limits<double>::max();
            double highest = std::numeric_limits<double>::min();
            for (int band = 0; band < dataset->GetBandCount(); ++band)
            {
                double bandMin = 0.0, bandMax = 0.0;
                if (!dataset->GetBand(band)->GetMinMax(&bandMin, &bandMax))
                    continue;
                lowest = std::min(lowest, bandMin);
                highest = std::max(highest, bandMax);
            }
            record.inputMin = lowest;
            record.inputMax = highest;
        }
        return runUtilityPlugin(record, "UtilityBitDepthTrans", "UtilityBitDepthTrans", result);
    });
}
