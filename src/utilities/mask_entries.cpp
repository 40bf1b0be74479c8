// ExcuteAlgo_MaskCreation and ExcuteAlgo_MaskApplication: rasterise a mask from a vector file, apply a mask.
#include "entry_guard.h"
#include "extent_intersection.h"
#include "format_from_path.h"
#include "records/utility_records.h"
#include "utility_entry_support.h"

#include <cstdio>

using namespace algofactory;

namespace
{

// The flag travels as text through the JSON route: "1", any non-zero number or "true" set it.
unsigned char flagByte(const QString& text)
{
    const QString flag = text.trimmed();
    bool isNumber = false;
    const double value = flag.toDouble(&isNumber);
    if (isNumber)
        return value != 0.0 ? 1 : 0;
    return flag.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0 ? 1 : 0;
}

} // namespace

ALGO_API bool ExcuteAlgo_MaskCreation(const char* inputFile, const char* outputFile, const char* attributeFile,
                                      const char* flag, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_MaskCreation", [&] {
        stMaskCreationInfo record;
        record.inputFile = utf8Arg(inputFile);
        record.outputFile = utf8Arg(outputFile);
        record.attributeFile = utf8Arg(attributeFile);
        record.format = FormatFromPath(record.outputFile);
        record.flag = flagByte(utf8Arg(flag));
        record.algoName = QStringLiteral("MaskCreation");
        // Files that do not open are left to the plug-in, which names them; only a proven miss is refused here.
        if (compareExtents(record.inputFile, record.attributeFile) == ExtentRelation::Disjoint)
        {
            std::printf("The input file and the attribute file is not-intersect!");
            std::fflush(stdout);
            return false;
        }
        return runUtilityPlugin(record, "MaskCreation", "", result);
    });
}

ALGO_API bool ExcuteAlgo_MaskApplication(const char* inputFile, const char* maskFile, const char* outputFile,
                                         int maskValue, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_MaskApplication", [&] {
        stMaskApplicationInfo record;
        record.inputFile = utf8Arg(inputFile);
        record.maskFile = utf8Arg(maskFile);
        record.outputFile = utf8Arg(outputFile);
        record.format = FormatFromPath(record.outputFile);
        record.algoName = QStringLiteral("MaskApplication");
        record.reserved = 0;
        record.option = maskValue;
        return runUtilityPlugin(record, "MaskApplication", "", result);
    });
}
