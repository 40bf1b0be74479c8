// ExcuteAlgo_PolSAR_Decomposition: entropy, anisotropy, mean alpha and mean eigenvalue images of a quad-pol scene,
// from four complex channel images or a T3 coherency-matrix folder.
#include "entry_guard.h"
#include "output_protocol.h"
#include "polsar_entry.h"
#include "records/polsar_records.h"
#include "t3_folder.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <gdal.h>

using namespace algofactory;
using namespace algofactory::polsar;

namespace
{

bool isComplex(int dataType)
{
    return GDALDataTypeIsComplex(GDALDataType(dataType)) != 0;
}

} // namespace

ALGO_API bool ExcuteAlgo_PolSAR_Decomposition(const char* input, const char* outputDir, const char* method,
                                              int windowSize, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_Decomposition", [&] {
        const QString inputText = utf8Arg(input);
        const QString output = utf8Arg(outputDir);
        if (!checkNotEmpty({{inputText, "Input Data is empty!"}, {output, "Output Directory is empty!"}}))
            return false;
        if (wordIndex(utf8Arg(method), {"HAAlpha"}) < 0)
            return refuse("please input decomposition method correctly!");
        if (windowSize < 1 || windowSize % 2 == 0)
            return refuse("please input window size correctly!");

        stPolSARDecompositionInfo record;
        int width = 0, height = 0;
        QString baseName;
        std::vector<RasterPtr> datasets; // HH, HV, VH, VV
        if (inputText.contains('|'))
        {
            const QStringList channels = inputText.split('|');
            if (channels.size() != 4 || channels.contains(QString()))
                return refuse("Please select HH|HV|VH|VV images correctly!");
            if (!openRasters({{channels[0], "Please select HH image correctly!"},
                              {channels[1], "Please select HV image correctly!"},
                              {channels[2], "Please select VH image correctly!"},
                              {channels[3], "Please select VV image correctly!"}},
                             datasets))
                return false;
            if (!allSingleBand(datasets, isComplex))
                return refuse("Please select single-band complex HH/HV/VH/VV images correctly!");
            if (!allSameSize(datasets))
                return refuse("Please select the same scene image !");
            width = datasets.front()->GetWidth();
            height = datasets.front()->GetHeight();
            record.channelFiles = channels;
            baseName = QFileInfo(channels[0]).completeBaseName();
        }
        else
        {
            T3Folder folder;
            if (!QFileInfo(inputText).isDir() || !readT3Config(inputText, folder))
                return refuse("Please select T3 matrix folder correctly!");
            const QString missing = missingT3Element(inputText, folder);
            if (!missing.isEmpty())
                return refuse(QStringLiteral("T3 matrix file is missing or incomplete: %1").arg(missing));
            width = folder.cols;
            height = folder.rows;
            record.t3Dir = inputText;
            record.t3Rows = folder.rows;
            record.t3Cols = folder.cols;
            baseName = QDir(QFileInfo(inputText).absoluteFilePath()).dirName();
        }
        if (windowSize > std::min(width, height))
            return refuse("Window size is larger than the image!");

        record.windowSize = windowSize;
        record.outputDir = output;
        for (const char* quantity : {"_entropy.img", "_anisotropy.img", "_alpha.img", "_lambda.img"})
            record.outputFiles << output + "/" + baseName + quantity;
        record.outputFormat = QStringLiteral("ENVI");
        printChecksPassed();

        const bool ok = runPolsarPlugin("PolSAR_Decomposition", record, result);
        if (ok)
            printOutput("PolSAR_Decomposition_images", record.resultImages);
        datasets.clear();
        return ok;
    });
}
