// Streaming engine of the neighbourhood filters: edge index mapping and job checks.
#include "filter_engine.h"

#include <QFileInfo>

namespace filtcommon
{

int mapIndex(int i, int n, int mode)
{
    if (i >= 0 && i < n)
        return i;
    switch (mode)
    {
    case kEdgeReflect:
    {
        if (n == 1)
            return 0;
        const int period = 2 * n - 2;
        int k = i % period;
        if (k < 0)
            k += period;
        return k < n ? k : period - k;
    }
    case kEdgeSymmetric:
    {
        const int period = 2 * n;
        int k = i % period;
        if (k < 0)
            k += period;
        return k < n ? k : period - 1 - k;
    }
    case kEdgeWrap:
    {
        int k = i % n;
        return k < 0 ? k + n : k;
    }
    case kEdgeZero:
        return -1;
    default: // replicate, and the two border modes, which replicate before fixing the border
        return i < 0 ? 0 : n - 1;
    }
}

void validateJob(const FilterJob& job)
{
    if (job.inputFile.isEmpty() || job.outputFile.isEmpty())
        throw algokit::AlgoError(QStringLiteral("Input and output paths are required"));
    if (QFileInfo(job.inputFile).absoluteFilePath() == QFileInfo(job.outputFile).absoluteFilePath())
        throw algokit::AlgoError(QStringLiteral("The output file must differ from the input file"));
    if (job.mode < 0 || job.mode > 6)
        throw algokit::AlgoError(QStringLiteral("Mode %1 is outside 0-6").arg(job.mode));
    if (job.bands.empty())
        throw algokit::AlgoError(QStringLiteral("No band selected"));
}

GDALDataType realTypeFor(GDALDataType input)
{
    return input == GDT_Float64 ? GDT_Float64 : GDT_Float32;
}

} // namespace filtcommon
