// ExcuteAlgo_ImagePyramidBuild and ExcuteAlgo_SetNodata: both run the pyramid plug-in library.
#include "entry_guard.h"
#include "records/utility_records.h"
#include "sys_data_source.h"
#include "utility_entry_support.h"

#include <cstdio>

using namespace algofactory;

ALGO_API bool ExcuteAlgo_ImagePyramidBuild(const char* inputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImagePyramidBuild", [&] {
        stPyramidBuildInfo record;
        record.files << utf8Arg(inputFile);
        return runUtilityPlugin(record, "ImagePyramidBuildAlgo", "", result);
    });
}

ALGO_API bool ExcuteAlgo_SetNodata(const char* inputFile, int noDataValue, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_SetNodata", [&] {
        stSetInvalidValueInfo record;
        record.files << utf8Arg(inputFile);
        record.flag = 0;
        record.reserved = -1.0;
        record.noDataValue = double(noDataValue);
        for (const QString& file : record.files)
        {
            if (!SysDataSource::DatasetFactory::Instance()->OpenRaster(file))
            {
                std::printf("Unsupported Raster format!");
                std::fflush(stdout);
                return false;
            }
        }
        return runUtilityPlugin(record, "ImagePyramidBuildAlgo", "ImageSetInvalidValueAlgo", result);
    });
}
