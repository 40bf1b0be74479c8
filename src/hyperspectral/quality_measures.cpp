// ExcuteAlgo_InformationEntropy, ExcuteAlgo_HysSharpness, ExcuteAlgo_NoiseEstimation: per-band quality
// measures computed by their plug-ins and drawn (entropy also written) here.
#include "entry_guard.h"
#include "hyperspectral_charts.h"
#include "hyperspectral_input.h"
#include "output_protocol.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"

#include <QFileInfo>
#include <cstdio>

using namespace algofactory;

namespace
{

// What the entropy and sharpness entries read from their input before the run.
struct QualityInput
{
    Wavelengths wavelengths;
    HysBandList bandList;
    HysPixelRect rect;
    QString textPath;
};

// Opens the input, reads wavelengths, bands and rectangle, derives the text path; prints the refusal
// (the bands message as given, with or without its line end) and returns false on failure.
bool readQualityInput(const char* inputFile, const char* region, const char* bands, const char* outputDir,
                      const char* textSuffix, const char* bandsMessage, QualityInput& input)
{
    const QString path = QString::fromLocal8Bit(inputFile ? inputFile : "");
    SysDataSource::RegisterGdalDrivers();
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_ReadOnly));
    if (!dataset)
    {
        printWithPointerTail("The input file can not be open!");
        return false;
    }
    input.wavelengths = readWavelengths(dataset);
    const bool listed =
        parseBandList(QString::fromLocal8Bit(bands ? bands : ""), dataset->GetRasterCount(), 0, input.bandList);
    input.rect = parseRegion(QString::fromLocal8Bit(region ? region : ""), dataset->GetRasterXSize(),
                             dataset->GetRasterYSize());
    GDALClose(GDALDataset::ToHandle(dataset));
    if (!listed)
    {
        std::printf("%s", bandsMessage);
        return false;
    }
    input.textPath = QString::fromLocal8Bit(outputDir ? outputDir : "") + "/" + QFileInfo(path).completeBaseName() +
                     textSuffix;
    return true;
}

template <typename Record> const Record* runQualityPlugin(const char* name, Record record, AlgoParamHolder& holder,
                                                           AlgoResult* result)
{
    holder = std::move(record);
    AlgoRunContext context;
    if (!RunAlgoPlugin(&context, QString::fromLatin1(name), &holder, result, QString::fromLatin1(name)))
        return nullptr;
    return boost::any_cast<Record>(&holder);
}

} // namespace

ALGO_API bool ExcuteAlgo_InformationEntropy(const char* inputFile, const char* region, const char* bands,
                                            const char* outputDir, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_InformationEntropy", [&] {
        QualityInput input;
        if (!readQualityInput(inputFile, region, bands, outputDir, "_inforentropy.txt",
                              "The bands number should be greater than 1!\n", input))
            return false;
        printOutput("informationTxt", input.textPath);
        InformationEntropyParam record;
        record.inputFile = QString::fromLocal8Bit(inputFile);
        record.textFile = input.textPath;
        record.rect = input.rect;
        record.bandList = input.bandList;
        AlgoParamHolder holder;
        const InformationEntropyParam* filled = runQualityPlugin("InformationEntropy", record, holder, result);
        if (!filled)
            return false;
        const QString picture = picturePathFor(input.textPath);
        printOutput("informationPNG", picture);
        if (!ExportEntropyResult(input.wavelengths, int(input.bandList.bands.size()), *filled, input.textPath,
                                 picture))
        {
            std::printf("The result export fail!\n");
            return false;
        }
        return true;
    });
}

ALGO_API bool ExcuteAlgo_HysSharpness(const char* inputFile, const char* region, const char* bands,
                                      const char* outputDir, int chartType, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_HysSharpness", [&] {
        QualityInput input;
        if (!readQualityInput(inputFile, region, bands, outputDir, "_HysSharpness.txt",
                              "The bands number should be greater than 1!", input))
            return false;
        printOutput("HysSharpnessTXT", input.textPath);
        HysSharpnessParam record;
        record.inputFile = QString::fromLocal8Bit(inputFile);
        record.textFile = input.textPath;
        record.rect = input.rect;
        record.bandList = input.bandList;
        AlgoParamHolder holder;
        const HysSharpnessParam* filled = runQualityPlugin("HysSharpness", record, holder, result);
        if (!filled)
            return false;
        const QString picture = picturePathFor(input.textPath);
        printOutput("hypsharpnessPNG", picture);
        if (!ExportSharpnessChart(input.wavelengths, int(input.bandList.bands.size()), *filled, input.textPath,
                                  picture, chartType))
        {
            std::printf("The result export fail!\n");
            return false;
        }
        return true;
    });
}

ALGO_API bool ExcuteAlgo_NoiseEstimation(const char* inputFile, const char* outputDir, double ratio, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_NoiseEstimation", [&] {
        const QString input = QString::fromLocal8Bit(inputFile ? inputFile : "");
        const QString directory = QString::fromLocal8Bit(outputDir ? outputDir : "");
        if (input.isEmpty())
        {
            std::printf("Please correctly select image file!\n");
            return false;
        }
        if (directory.isEmpty())
        {
            std::printf("Please correctly select output file!");
            return false;
        }
        if (!(ratio >= 0.0 && ratio <= 1.0))
        {
            std::printf("Please enter a value greater than 0 and less than or equal to 1!");
            return false;
        }
        NoiseEstimationParam record;
        record.inputFile = input;
        record.textFile = directory + "/" + QFileInfo(input).completeBaseName() + "_NoiseEstimation.txt";
        record.ratio = ratio;
        printOutput("noiseEstimationTXT", record.textFile);
        AlgoParamHolder holder;
        if (!runQualityPlugin("NoiseEstimation", record, holder, result))
            return false;
        const QString picture = picturePathFor(record.textFile);
        printOutput("noiseEstimationPNG", picture);
        return ExportNoiseChart(record.textFile, picture);
    });
}
