// Entries of the polarimetric matrix folders (conversion, change of basis, signatures, speckle filters): the radar pattern, with the folder,
// word and window checked before the plug-in runs.
#include "entry_guard.h"
#include "generic_entry.h"
#include "output_protocol.h"
#include "sar_processing/sar_common/polsar_layout.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <algorithm>

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

// InputDir and OutputDir given, InputDir a complete folder of a matrix kind; the kind and config come back.
bool checkFolders(const char* algo, const QString& input, const QString& output, sar::PolMatrix* kind,
                  sar::PolConfig* config)
{
    if (input.trimmed().isEmpty())
        return refuseParameter(algo, "InputDir", QString(), "is empty");
    if (output.trimmed().isEmpty())
        return refuseParameter(algo, "OutputDir", QString(), "is empty");
    const std::string problem = sar::inspectPolFolder(QFile::encodeName(input).toStdString(), kind, config);
    if (!problem.empty())
        return refuseParameter(algo, "InputDir", input, QString::fromStdString(problem));
    return true;
}

// The output folder OutputDir/<kind> must not be the input folder.
bool checkNotInput(const char* algo, const QString& input, const QString& output, const char* kind)
{
    if (QFileInfo(QDir(output).filePath(kind)).absoluteFilePath() == QFileInfo(input).absoluteFilePath())
        return refuseParameter(algo, "OutputDir", output, "would overwrite the input folder");
    return true;
}

// The filters: a covariance or coherency folder and an odd window that fits the image.
bool checkFilterInput(const char* algo, const QString& input, const QString& output, int windowSize)
{
    sar::PolMatrix kind;
    sar::PolConfig config;
    if (!checkFolders(algo, input, output, &kind, &config))
        return false;
    if (kind == sar::PolMatrix::S2)
        return refuseParameter(algo, "InputDir", input, "holds scattering matrices (S2): convert them to C3 or T3 first");
    if (windowSize < 3 || windowSize > 51 || windowSize % 2 == 0)
        return refuseParameter(algo, "WindowSize", QString::number(windowSize), "must be odd, from 3 to 51");
    if (windowSize > std::min(config.rows, config.cols))
        return refuseParameter(algo, "WindowSize", QString::number(windowSize), "is larger than the image");
    return checkNotInput(algo, input, output, sar::polMatrixName(kind));
}

} // namespace

ALGO_API bool ExcuteAlgo_PolSAR_MatrixConvert(const char* inputDir, const char* outputDir, const char* targetMatrix,
                                              AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_MatrixConvert", [&] {
        const char* algo = "PolSAR_MatrixConvert";
        const QString input = local(inputDir), output = local(outputDir), target = local(targetMatrix);
        sar::PolMatrix from, to;
        sar::PolConfig config;
        if (!checkFolders(algo, input, output, &from, &config))
            return false;
        int azimuthLooks = 1, rangeLooks = 1;
        if (!sar::parseTargetMatrix(target.toStdString(), &to, &azimuthLooks, &rangeLooks))
            return refuseParameter(algo, "TargetMatrix", target,
                                   "must be one of S2, C2, C3, T3, C4, T4, optionally with looks such as T3:4x1");
        if (azimuthLooks > config.rows || rangeLooks > config.cols)
            return refuseParameter(algo, "TargetMatrix", target, "asks for more looks than the image has lines or columns");
        if (!sar::convertible(from, to))
            return refuseParameter(algo, "TargetMatrix", target,
                                   QStringLiteral("cannot be made from %1").arg(sar::polMatrixName(from)));
        if (!checkNotInput(algo, input, output, sar::polMatrixName(to)))
            return false;
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), outputPath("OutputDir", outputDir),
                                     text("TargetMatrix", targetMatrix)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_PolSAR_Filter(const char* inputDir, const char* outputDir, const char* filterType, int windowSize,
                                       AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_Filter", [&] {
        const char* algo = "PolSAR_Filter";
        const QString input = local(inputDir), output = local(outputDir);
        const QString filter = local(filterType).isEmpty() ? QStringLiteral("RefinedLee") : local(filterType);
        if (input.trimmed().isEmpty())
            return refuseParameter(algo, "InputDir", QString(), "is empty");
        if (output.trimmed().isEmpty())
            return refuseParameter(algo, "OutputDir", QString(), "is empty");
        static const QStringList kFilters = {"Boxcar", "RefinedLee", "IDAN"};
        if (!kFilters.contains(filter))
            return refuseParameter(algo, "FilterType", filter, "must be one of " + kFilters.join(", "));
        if (!checkFilterInput(algo, input, output, windowSize))
            return false;
        const QByteArray word = filter.toLocal8Bit();
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), outputPath("OutputDir", outputDir),
                                     text("FilterType", word.constData()), number("WindowSize", windowSize)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_PolSAR_STANFilter(const char* inputDir, const char* outputDir, int windowSize, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_STANFilter", [&] {
        const char* algo = "PolSAR_STANFilter";
        if (!checkFilterInput(algo, local(inputDir), local(outputDir), windowSize))
            return false;
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), outputPath("OutputDir", outputDir),
                                     number("WindowSize", windowSize)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_PolSAR_BasisChange(const char* inputDir, const char* outputDir, const char* basis, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_BasisChange", [&] {
        const char* algo = "PolSAR_BasisChange";
        const QString input = local(inputDir), output = local(outputDir), basisText = local(basis);
        sar::PolMatrix kind;
        sar::PolConfig config;
        if (!checkFolders(algo, input, output, &kind, &config))
            return false;
        if (kind == sar::PolMatrix::C2)
            return refuseParameter(algo, "InputDir", input,
                                   "holds C2 matrices: a change of basis needs both channels of both polarisations");
        double psi = 0.0, chi = 0.0;
        if (!sar::parsePolarisationBasis(basisText.toStdString(), &psi, &chi))
            return refuseParameter(algo, "Basis", basisText, "must be linear, circular or orientation,ellipticity in degrees");
        if (!checkNotInput(algo, input, output, sar::polMatrixName(kind)))
            return false;
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), outputPath("OutputDir", outputDir), text("Basis", basis)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_PolSAR_PolSignatures(const char* inputDir, const char* outputDir, const char* region,
                                              AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_PolSAR_PolSignatures", [&] {
        const char* algo = "PolSAR_PolSignatures";
        const QString input = local(inputDir), output = local(outputDir), regionText = local(region);
        sar::PolMatrix kind;
        sar::PolConfig config;
        if (!checkFolders(algo, input, output, &kind, &config))
            return false;
        if (kind == sar::PolMatrix::C2)
            return refuseParameter(algo, "InputDir", input, "holds C2 matrices: signatures need quad-pol data");
        // Four integers x0|x1|y0|y1 (ends included) name a region; anything else means the whole image.
        const QStringList parts = regionText.split('|');
        bool numbers = parts.size() == 4;
        int b[4] = {0, 0, 0, 0};
        for (int i = 0; numbers && i < 4; ++i)
            b[i] = parts[i].trimmed().toInt(&numbers);
        if (numbers && (b[0] < 0 || b[2] < 0 || b[1] < b[0] || b[3] < b[2] || b[1] >= config.cols || b[3] >= config.rows))
            return refuseParameter(algo, "Region", regionText,
                                   QStringLiteral("is not inside the %1 x %2 image").arg(config.cols).arg(config.rows));
        return runRadarGenericEntry(algo,
                                    {requiredText("InputDir", inputDir), outputPath("OutputDir", outputDir), text("Region", region)},
                                    result);
    });
}
