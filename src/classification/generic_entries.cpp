// Entries of classification that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_ChangeDetectVegetation(const char* beforeFile, const char* afterFile, const char* outputFile, float threshold, AlgoResult* result)
{
    return runGenericEntry("ChangeDetectVegetation",
        {
            requiredText("BeforeFile", beforeFile),
            requiredText("AfterFile", afterFile),
            outputPath("OutputFile", outputFile),
            number("Threshold", threshold),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MSS_Segment(const char* inputFile, const char* outputFile, int scale, float shapeWeight, int minSize, float compactWeight, float spectralWeight, float bandWeights, float threshold, int iterations, AlgoResult* result)
{
    return runGenericEntry("MSS_Segment",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Scale", scale),
            number("ShapeWeight", shapeWeight),
            number("MinSize", minSize),
            number("CompactWeight", compactWeight),
            number("SpectralWeight", spectralWeight),
            number("BandWeights", bandWeights),
            number("Threshold", threshold),
            number("Iterations", iterations),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MSS_Export(const char* inputFile, const char* outputFile, float scale, double threshold, const char* fields, AlgoResult* result)
{
    return runGenericEntry("MSS_Export",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Scale", scale),
            number("Threshold", threshold),
            text("Fields", fields),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MSS_Sample(const char* inputFile, const char* segmentFile, const char* sampleFile, const char* outputFile, const char* classField, const char* features, double minArea, double maxArea, int sampleCount, AlgoResult* result)
{
    return runGenericEntry("MSS_Sample",
        {
            requiredText("InputFile", inputFile),
            requiredText("SegmentFile", segmentFile),
            requiredText("SampleFile", sampleFile),
            outputPath("OutputFile", outputFile),
            text("ClassField", classField),
            text("Features", features),
            number("MinArea", minArea),
            number("MaxArea", maxArea),
            number("SampleCount", sampleCount),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MSS_Classify(const char* inputFile, const char* segmentFile, const char* sampleFile, const char* outputFile, const char* classField, const char* features, const char* classifier, const char* modelFile, const char* options, AlgoResult* result)
{
    return runGenericEntry("MSS_Classify",
        {
            requiredText("InputFile", inputFile),
            requiredText("SegmentFile", segmentFile),
            requiredText("SampleFile", sampleFile),
            outputPath("OutputFile", outputFile),
            text("ClassField", classField),
            text("Features", features),
            text("Classifier", classifier),
            text("ModelFile", modelFile),
            text("Options", options),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MSS_Classify_TrainModel(const char* inputFile, const char* segmentFile, const char* sampleFile, const char* modelFile, const char* classField, const char* features, const char* classifier, const char* options, const char* extra, AlgoResult* result)
{
    return runGenericEntry("MSS_TrainModel",
        {
            requiredText("InputFile", inputFile),
            requiredText("SegmentFile", segmentFile),
            requiredText("SampleFile", sampleFile),
            outputPath("ModelFile", modelFile),
            text("ClassField", classField),
            text("Features", features),
            text("Classifier", classifier),
            text("Options", options),
            text("Extra", extra),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MSS_ClassifyByModel(const char* inputFile, const char* segmentFile, const char* modelFile, const char* outputFile, const char* classField, const char* features, const char* classifier, const char* options, const char* extra, AlgoResult* result)
{
    return runGenericEntry("MSS_ClassifyByModel",
        {
            requiredText("InputFile", inputFile),
            requiredText("SegmentFile", segmentFile),
            requiredText("ModelFile", modelFile),
            outputPath("OutputFile", outputFile),
            text("ClassField", classField),
            text("Features", features),
            text("Classifier", classifier),
            text("Options", options),
            text("Extra", extra),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ChangeDetectionRaster(const char* beforeFile, const char* afterFile, const char* outputFile, double threshold, int method, int minSize, const char* bands, const char* maskFile, AlgoResult* result)
{
    return runGenericEntry("ChangeDetectionRaster",
        {
            requiredText("BeforeFile", beforeFile),
            requiredText("AfterFile", afterFile),
            outputPath("OutputFile", outputFile),
            number("Threshold", threshold),
            number("Method", method),
            number("MinSize", minSize),
            text("Bands", bands),
            text("MaskFile", maskFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_CreateClassifyProject(const char* inputFile, const char* projectFile, const char* projectName, const char* classNames, double minX, double minY, double maxX, double maxY, AlgoResult* result)
{
    return runGenericEntry("CreateClassifyProject",
        {
            requiredText("InputFile", inputFile),
            outputPath("ProjectFile", projectFile),
            text("ProjectName", projectName),
            text("ClassNames", classNames),
            number("MinX", minX),
            number("MinY", minY),
            number("MaxX", maxX),
            number("MaxY", maxY),
        },
        result);
}

ALGO_API bool ExcuteAlgo_CategoryUnion(const char* inputFile, const char* outputFile, const char* classField, const char* unionRule, AlgoResult* result)
{
    return runGenericEntry("CategoryUnion",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("ClassField", classField),
            text("UnionRule", unionRule),
        },
        result);
}
