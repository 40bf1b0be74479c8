// ExcuteAlgo_PolSAR_HAAlphaClassification: classify a scene from its entropy, anisotropy, alpha and lambda images.
#include "entry_guard.h"
#include "output_protocol.h"
#include "polsar_entry.h"
#include "records/polsar_records.h"

#include <QFileInfo>
#include <gdal.h>

using namespace algofactory;
using namespace algofactory::polsar;

namespace
{

bool isFloat32(int dataType)
{
    return dataType == GDT_Float32;
}

} // namespace

ALGO_API bool ExcuteAlgo_PolSAR_HAAlphaClassification(const char* entropyFile, const char* anisotropyFile,
                                                      const char* alphaFile, const char* lambdaFile, const char* method,
                                                      const char* outputDir, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_HAAlphaClassification", [&] {
        const QString entropy = utf8Arg(entropyFile);
        const QString anisotropy = utf8Arg(anisotropyFile);
        const QString alpha = utf8Arg(alphaFile);
        const QString lambda = utf8Arg(lambdaFile);
        const QString methodWord = utf8Arg(method);
        const QString output = QString(outputDir ? outputDir : "");

        if (!checkNotEmpty({{entropy, "Eentropy File is empty!"},
                            {anisotropy, "Anisotropy File is empty!"},
                            {alpha, "Alpha File is empty!"},
                            {lambda, "Lambda File is empty!"}}))
            return false;

        std::vector<RasterPtr> datasets; // alpha, anisotropy, entropy, lambda
        if (!openRasters({{alpha, "Please select alpha image correctly!"},
                          {anisotropy, "Please select anisotropy image correctly!"},
                          {entropy, "Please select entropy image correctly!"},
                          {lambda, "Please select lambda image correctly!"}},
                         datasets))
            return false;
        if (!allSingleBand(datasets, isFloat32))
            return refuse("Please select H/A/Alpha/Lambda Decomposition File Path correctly!");
        if (!allSameSize(datasets))
            return refuse("Please select the same scene image !");

        const int methodIndex = wordIndex(methodWord, {"HAlpha", "HAAlpha", "HAlphaLambda"});
        if (methodIndex < 0)
            return refuse("please input classify method correctly!");

        stHAAlphaClassInfo record;
        record.alphaFile = alpha;
        record.anisotropyFile = anisotropy;
        record.entropyFile = entropy;
        record.lambdaFile = lambda;
        record.outputFile = output + "/HAAlphaClass" + "/" + QFileInfo(alpha).baseName() + "_HAAClass.img";
        record.outputFormat = QStringLiteral("ENVI");
        record.method = methodIndex;
        printChecksPassed();

        const bool ok = runPolsarPlugin("PolSAR_HAAlphaClassification", record, result);
        if (ok)
            printOutput("PolSAR_HAAlphaClassification_images", record.resultImages);
        datasets.clear();
        return ok;
    });
}
