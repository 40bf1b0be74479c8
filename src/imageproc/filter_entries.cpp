// The eight filter entries: their own checks and records around the shared filter skeleton.
#include "entry_guard.h"
#include "filter_entry_skeleton.h"
#include "records/filter_records.h"

#include <QStringList>
#include <cmath>

using namespace algofactory;

namespace
{

const FilterEntryTraits kCustom{"ImgProFiltCustom", "ImgProFiltCustom", kSelectBandsMessage};
const FilterEntryTraits kDiffSharp{"ImgProFiltDiffSharp", "ImgProFiltDiffSharp", kSelectBandsMessage};
const FilterEntryTraits kFrequency{"ImgProFiltFrequency", "ImgProFiltFrequency", kNoBandMessage};
const FilterEntryTraits kHomo{"ImgProFiltHomo", "ImgProFiltHomo", kSelectBandsMessage};
const FilterEntryTraits kSpaCom{"ImgProFiltSpaCom", "ImgProFiltSpa", kNoBandMessage};
const FilterEntryTraits kSpaDirect{"ImgProFiltSpaDirect", "ImgProFiltSpa", kNoBandMessage};
const FilterEntryTraits kSpaMean{"ImgProFiltSpaMean", "ImgProFiltSpa", kNoBandMessage};
const FilterEntryTraits kSpaMid{"ImgProFiltSpaMid", "ImgProFiltSpa", kNoBandMessage};

bool refuse()
{
    printFilterMessage(kIncorrectParameters);
    return false;
}

// Fills the members every filter record shares.
template <typename Record> Record commonRecord(const FilterInput& input)
{
    Record record;
    record.inputFile = input.inputFile;
    record.outputFile = input.outputFile;
    record.bands = input.bands;
    record.format = input.format;
    return record;
}

// n x n kernel values, each a finite number; false when the count or any value is wrong.
bool parseKernel(const char* text, long n, std::vector<float>* kernel)
{
    const QStringList items = QString::fromLocal8Bit(text ? text : "").split(QLatin1Char('|'));
    if (items.size() != n * n)
        return false;
    kernel->clear();
    for (const QString& item : items)
    {
        bool ok = false;
        const float value = item.trimmed().toFloat(&ok);
        if (!ok || !std::isfinite(value))
            return false;
        kernel->push_back(value);
    }
    return true;
}

// The kernel-size check of SpaMean and SpaMid, made after the band selection.
std::function<bool()> kernelSizeCheck(int n)
{
    return [n] { return filterKernelSizeValid(n) || refuse(); };
}

} // namespace

ALGO_API bool ExcuteAlgo_ImgProFiltCustom(const char* inputFile, const char* outputFile, const char* bands, int mode,
                                          long kernelSize, const char* kernel, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltCustom", [&] {
        std::vector<float> values;
        if (!filterModeValid(mode) || !filterKernelSizeValid(kernelSize) || !parseKernel(kernel, kernelSize, &values))
            return refuse();
        return runFilterEntry(kCustom, inputFile, outputFile, bands, nullptr,
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltCustomParam>(input);
                record.kernel = values;
                record.kernelSize = int(kernelSize);
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltDiffSharp(const char* inputFile, const char* outputFile, const char* bands, int mode,
                                             int sharpType, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltDiffSharp", [&] {
        if (!filterModeValid(mode))
            return refuse();
        return runFilterEntry(kDiffSharp, inputFile, outputFile, bands, nullptr,
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltDiffSharpParam>(input);
                record.sharpType = sharpType;
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltFrequency(const char* inputFile, const char* outputFile, const char* bands, int mode,
                                             int filterKind, int passFlag, long cutOff, long segmentPoint,
                                             AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltFrequency", [&] {
        if (!filterModeValid(mode))
            return refuse();
        if (filterKind == 3 && passFlag == 0 && !(segmentPoint > cutOff))
        {
            printFilterMessage("Cut-off Frequency must less than Segmentation Point! ");
            return false;
        }
        if (filterKind == 3 && passFlag == 1 && !(segmentPoint < cutOff))
        {
            printFilterMessage("Segmentation Point must less than Cut-off Frequency! ");
            return false;
        }
        return runFilterEntry(kFrequency, inputFile, outputFile, bands, nullptr,
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltFrequencyParam>(input);
                record.filterKind = filterKind;
                record.passFlag = passFlag;
                record.cutOff = int(cutOff);
                record.segmentPoint = int(segmentPoint);
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltHomo(const char* inputFile, const char* outputFile, const char* bands, int mode,
                                        float gammaHigh, float gammaLow, float cutOff, float sharpness, int order,
                                        AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltHomo", [&] {
        const auto inRange = [](float p) { return p >= 0.f && p <= 999.f; }; // NaN fails both comparisons
        if (!filterModeValid(mode) || !inRange(gammaHigh) || !inRange(gammaLow) || !inRange(cutOff)
            || !inRange(sharpness) || order < 0 || order > 999)
            return refuse();
        return runFilterEntry(kHomo, inputFile, outputFile, bands, nullptr,
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltHomoParam>(input);
                record.gammaHigh = gammaHigh;
                record.gammaLow = gammaLow;
                record.cutOff = cutOff;
                record.sharpness = sharpness;
                record.order = order;
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaCom(const char* inputFile, const char* outputFile, int filterType,
                                          const char* bands, int mode, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltSpaCom", [&] {
        if (filterType < 0 || filterType > 22 || !filterModeValid(mode))
            return refuse();
        return runFilterEntry(kSpaCom, inputFile, outputFile, bands, nullptr,
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltSpaComParam>(input);
                record.filterType = filterType;
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaDirect(const char* inputFile, const char* outputFile, const char* bands, int mode,
                                             int directionType, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltSpaDirect", [&] {
        if (!filterModeValid(mode))
            return refuse();
        return runFilterEntry(kSpaDirect, inputFile, outputFile, bands, nullptr,
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltSpaDirectParam>(input);
                record.directionType = directionType;
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaMean(const char* inputFile, const char* outputFile, int kernelSize,
                                           const char* bands, int mode, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltSpaMean", [&] {
        if (!filterModeValid(mode))
            return refuse();
        return runFilterEntry(kSpaMean, inputFile, outputFile, bands, kernelSizeCheck(kernelSize),
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltSpaMeanParam>(input);
                record.kernelWidth = kernelSize;
                record.kernelHeight = kernelSize;
                record.mode = mode;
                return record;
            },
            result);
    });
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaMid(const char* inputFile, const char* outputFile, int kernelSize,
                                          const char* bands, int mode, int shape, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgProFiltSpaMid", [&] {
        if (!filterModeValid(mode))
            return refuse();
        return runFilterEntry(kSpaMid, inputFile, outputFile, bands, kernelSizeCheck(kernelSize),
            [&](const FilterInput& input) -> AlgoParamHolder {
                auto record = commonRecord<ImgProFiltSpaMidParam>(input);
                record.kernelWidth = kernelSize;
                record.kernelHeight = kernelSize;
                record.shape = shape;
                record.mode = mode;
                return record;
            },
            result);
    });
}
