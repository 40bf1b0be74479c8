// ExcuteAlgo_StatisticalAnalysis: per-band statistics, covariance and correlation images, and their chart.
#include "entry_guard.h"
#include "hyperspectral_charts.h"
#include "hyperspectral_input.h"
#include "input_path.h"
#include "output_protocol.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"

#include <QFileInfo>
#include <cstdio>

using namespace algofactory;

ALGO_API bool ExcuteAlgo_StatisticalAnalysis(const char* inputFile, const char* region, const char* bands,
                                             AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_StatisticalAnalysis", [&] {
        const QString input = QString::fromLocal8Bit(inputFile ? inputFile : "");
        if (!inputExists(input))
        {
            printWithPointerTail("The input file is not exists!");
            return false;
        }
        const QFileInfo info(input);
        const QString stem = info.path() + "/" + info.baseName();
        StatisticalAnalysisParam record;
        record.inputFile = input;
        record.textFile = stem + "-StatisticalText.txt";
        record.pictureFile = stem + "-StatisticalPicture.png";
        record.covImageFile = stem + "-CovImageFile.tif";
        record.corCoeFile = stem + "-CorCoeFile.tif";
        printOutput("OutTextFile", record.textFile);
        printOutput("OutStatFile", record.pictureFile);
        printOutput("OutCovImgFile", record.covImageFile);
        printOutput("OutCorCoeFile", record.corCoeFile);

        SysDataSource::RegisterGdalDrivers();
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(input.toUtf8().constData(), GA_ReadOnly));
        if (!dataset)
        {
            printWithPointerTail("The input file can not be open!");
            return false;
        }
        const Wavelengths wavelengths = input.isEmpty() ? Wavelengths() : readWavelengths(dataset);
        const bool listed =
            parseBandList(QString::fromLocal8Bit(bands ? bands : ""), dataset->GetRasterCount(), 1, record.bandList);
        record.rect = parseRegion(QString::fromLocal8Bit(region ? region : ""), dataset->GetRasterXSize(),
                                  dataset->GetRasterYSize());
        GDALClose(GDALDataset::ToHandle(dataset));
        if (!listed)
        {
            std::printf("The bands number should be greater than 1!\n");
            return false;
        }

        AlgoParamHolder holder = record;
        AlgoRunContext context;
        if (!RunAlgoPlugin(&context, QStringLiteral("StatisticalAnalysis"), &holder, result,
                           QStringLiteral("StatisticalAnalysis")))
            return false;
        const StatisticalAnalysisParam* filled = boost::any_cast<StatisticalAnalysisParam>(&holder);
        if (!filled || !ExportStatisticalChart(wavelengths, *filled))
        {
            std::printf("The result export fail!\n");
            return false;
        }
        return true;
    });
}
