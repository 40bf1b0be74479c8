// ExcuteAlgo_UtilityFormTran: convert a raster to the format named by the output suffix.
#include "entry_guard.h"
#include "format_from_path.h"
#include "records/utility_records.h"
#include "run_algo_plugin.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_UtilityFormTran(const char* inputFile, const char* outputFile, long option, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_UtilityFormTran", [&] {
        stFormatTransInfo record;
        record.inputFile = QString::fromUtf8(inputFile ? inputFile : "");
        record.outputFile = QString::fromUtf8(outputFile ? outputFile : "");
        record.option = int(option);
        record.noDataFlag = -1;
        record.format = FormatFromPath(record.outputFile);
        AlgoParamHolder holder = record;
        AlgoRunContext context;
        return RunAlgoPlugin(&context, QStringLiteral("UtilityFormTran"), &holder, result, QStringLiteral("UtilityFormTran"));
    });
}
