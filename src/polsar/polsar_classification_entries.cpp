// Entries of the polarimetric classifications: H/alpha-Wishart, supervised Wishart, SVM and class merging, in the radar
// pattern with their checks before the plug-in runs.
#include "entry_guard.h"
#include "generic_entry.h"
#include "output_protocol.h"
#include "classification/roi_reader.h"
#include "sar_processing/sar_common/polsar_layout.h"
#include "sar_processing/sar_common/roi_raster.h"
#include "sys_data_source.h"

#include <cpl_error.h>
#include <gdal_priv.h>
#include <ogr_geometry.h>

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <memory>

using namespace algofactory;

namespace
{

QString local(const char* value)
{
    return value ? QString::fromLocal8Bit(value) : QString();
}

bool refuseParameter(const char* algo, const char* key, const QString& value, const QString& rule)
{
    if (value.isNull())
        printError(QStringLiteral("%1: the parameter %2 %3!").arg(QLatin1String(algo), QLatin1String(key), rule));
    else
        printError(QStringLiteral("%1: the parameter %2 (%3) %4!").arg(QLatin1String(algo), QLatin1String(key), value, rule));
    return false;
}

// The checks of the supervised classifications: the folder, the ROI file and each class's pixel count (a 3 x 3
// complex covariance needs at least 9 pixels; the SVM's features need as many); the ROI classes come back as the
// record's RoiClassNames, RoiClassColours and RoiClassGeometries (WKT, image coordinates).
bool checkTrainingInputs(const char* algo, const QString& input, const QString& roi, const QString& output,
                         QStringList& names, QStringList& colours, QStringList& geometries)
{
    if (input.trimmed().isEmpty())
        return refuseParameter(algo, "InputDir", QString(), "is empty");
    if (roi.trimmed().isEmpty())
        return refuseParameter(algo, "RoiFile", QString(), "is empty");
    if (output.trimmed().isEmpty())
        return refuseParameter(algo, "OutputDir", QString(), "is empty");
    sar::PolMatrix kind;
    sar::PolConfig config;
    const std::string problem = sar::inspectPolFolder(QFile::encodeName(input).toStdString(), &kind, &config);
    if (!problem.empty())
        return refuseParameter(algo, "InputDir", input, QString::fromStdString(problem));
    if (!sar::convertible(kind, sar::PolMatrix::T3))
        return refuseParameter(algo, "InputDir", input, "holds C2 matrices: the classification needs quad-pol data");
    if (!QFileInfo(roi).isFile())
        return refuseParameter(algo, "RoiFile", roi, "does not exist");
    std::vector<RoiArea> areas;
    algofactory::ReadRoiAreas(roi, areas);
    if (areas.empty())
        return refuseParameter(algo, "RoiFile", roi, "holds no ROI class");
    if (areas.size() > 255)
        return refuseParameter(algo, "RoiFile", roi, "holds more than 255 classes");
    std::vector<std::string> wkt;
    for (const RoiArea& area : areas)
    {
        OGRMultiPolygon multi;
        for (const SysGeometry::Polygon& polygon : area.geometries)
            if (polygon.Ring().size() >= 3)
                multi.addGeometryDirectly(polygon.ToOgr());
        char* text = nullptr;
        multi.exportToWkt(&text);
        wkt.emplace_back(multi.IsEmpty() || !text ? "" : text);
        CPLFree(text);
        names << area.name;
        colours << QStringLiteral("%1,%2,%3").arg(area.color.red()).arg(area.color.green()).arg(area.color.blue());
        geometries << QString::fromStdString(wkt.back());
    }
    SysDataSource::RegisterGdalDrivers();
    sar::RoiLabels labels;
    std::string error;
    if (!sar::rasterizeRoi(wkt, config.cols, config.rows, labels, &error))
        return refuseParameter(algo, "RoiFile", roi, QString::fromStdString(error));
    for (size_t c = 0; c < areas.size(); ++c)
        if (labels.counts[c + 1] < 9)
            return refuseParameter(algo, "RoiFile", roi,
                                   QStringLiteral("has the class \"%1\" with %2 pixels of the image, fewer than the 9 a covariance needs")
                                       .arg(areas[c].name).arg(labels.counts[c + 1]));
    return true;
}

} // namespace

ALGO_API bool ExcuteAlgo_PolSAR_WishartUnsupervisedClassification(const char* inputDir, const char* outputDir, int classCount,
                                                                  int iterations, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_WishartUnsupervisedClassification", [&] {
        const char* algo = "PolSAR_WishartUnsupervisedClassification";
        const QString input = local(inputDir), output = local(outputDir);
        if (input.trimmed().isEmpty())
            return refuseParameter(algo, "InputDir", QString(), "is empty");
        if (output.trimmed().isEmpty())
            return refuseParameter(algo, "OutputDir", QString(), "is empty");
        sar::PolMatrix kind;
        sar::PolConfig config;
        const std::string problem = sar::inspectPolFolder(QFile::encodeName(input).toStdString(), &kind, &config);
        if (!problem.empty())
            return refuseParameter(algo, "InputDir", input, QString::fromStdString(problem));
        if (!sar::convertible(kind, sar::PolMatrix::T3))
            return refuseParameter(algo, "InputDir", input, "holds C2 matrices: the classification needs quad-pol data");
        if (classCount != 8 && classCount != 16)
            return refuseParameter(algo, "ClassCount", QString::number(classCount), "must be 8 or 16");
        if (iterations < 1 || iterations > 100)
            return refuseParameter(algo, "Iterations", QString::number(iterations), "must be from 1 to 100");
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), outputPath("OutputDir", outputDir),
                                     number("ClassCount", classCount), number("Iterations", iterations)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_PolSAR_ClassMerge(const char* inputFile, const char* outputFile, const char* mergePairs,
                                           AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_ClassMerge", [&] {
        const char* algo = "PolSAR_ClassMerge";
        const QString input = local(inputFile), output = local(outputFile), pairs = local(mergePairs);
        if (input.trimmed().isEmpty())
            return refuseParameter(algo, "InputFile", QString(), "is empty");
        if (output.trimmed().isEmpty())
            return refuseParameter(algo, "OutputFile", QString(), "is empty");
        static const QRegularExpression kForm("^\\s*(\\d+|\\d+\\s*\\|\\s*\\d+(\\s*,\\s*\\d+\\s*\\|\\s*\\d+)*)\\s*$");
        if (!kForm.match(pairs).hasMatch())
            return refuseParameter(algo, "MergePairs", pairs, "must be pairs such as 3|1,5|2 or a class count");
        if (!QFileInfo(input).isFile())
            return refuseParameter(algo, "InputFile", input, "does not exist");
        SysDataSource::RegisterGdalDrivers();
        CPLPushErrorHandler(CPLQuietErrorHandler);
        GDALDataset* dataset = GDALDataset::Open(input.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_READONLY);
        CPLPopErrorHandler();
        const bool byteClasses = dataset && dataset->GetRasterCount() == 1 &&
                                 dataset->GetRasterBand(1)->GetRasterDataType() == GDT_Byte;
        if (dataset)
            GDALClose(GDALDataset::ToHandle(dataset));
        if (!byteClasses)
            return refuseParameter(algo, "InputFile", input, "is not a single-band Byte classification image");
        if (QFileInfo(output).absoluteFilePath() == QFileInfo(input).absoluteFilePath())
            return refuseParameter(algo, "OutputFile", output, "is the input file");
        return runRadarGenericEntry(algo,
                                    {requiredText("InputFile", inputFile), outputPath("OutputFile", outputFile),
                                     text("MergePairs", mergePairs)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_WishartSupervisedClassification(const char* inputDir, const char* roiFile, const char* outputDir,
                                                         AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_WishartSupervisedClassification", [&] {
        const char* algo = "WishartSupervisedClassification";
        QStringList names, colours, geometries;
        if (!checkTrainingInputs(algo, local(inputDir), local(roiFile), local(outputDir), names, colours, geometries))
            return false;
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), requiredText("RoiFile", roiFile),
                                     outputPath("OutputDir", outputDir),
                                     GenericArg{"RoiClassNames", names, GenericArg::Role::Plain},
                                     GenericArg{"RoiClassColours", colours, GenericArg::Role::Plain},
                                     GenericArg{"RoiClassGeometries", geometries, GenericArg::Role::Plain}},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_PolSAR_SVMClassification(const char* inputDir, const char* roiFile, const char* outputDir,
                                                  AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_SVMClassification", [&] {
        const char* algo = "PolSAR_SVMClassification";
        QStringList names, colours, geometries;
        if (!checkTrainingInputs(algo, local(inputDir), local(roiFile), local(outputDir), names, colours, geometries))
            return false;
        if (names.size() < 2)
            return refuseParameter(algo, "RoiFile", local(roiFile), "holds one class: an SVM needs at least two");
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), requiredText("RoiFile", roiFile),
                                     outputPath("OutputDir", outputDir),
                                     GenericArg{"RoiClassNames", names, GenericArg::Role::Plain},
                                     GenericArg{"RoiClassColours", colours, GenericArg::Role::Plain},
                                     GenericArg{"RoiClassGeometries", geometries, GenericArg::Role::Plain}},
                                    result);
    });
}
