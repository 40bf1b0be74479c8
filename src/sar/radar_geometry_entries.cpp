// Entries of radar import and geometry (Sentinel-1, ALOS PALSAR, TerraSAR-X imports; crop, ground range, RPC,
// geocoding, terrain flattening, GF-3 footprints): the checks that need no heavy reading run here, so that a
// refusal is the one "[ERROR] " line before "Judge the rationality of input paramenters sucessfully"; the plug-in
// then checks the product itself, and its refusal or failure is also printed as an "[ERROR] " line.
#include "generic_entry.h"
#include "output_protocol.h"
#include "run_algo_plugin.h"

#include <cpl_vsi.h>

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cmath>
#include <cstring>
#include <functional>

using namespace algofactory;

namespace
{

// The orbit interpolation of the geometry algorithms needs this many state vectors.
constexpr int kMinStateVectors = 4;

QString local(const char* value)
{
    return value ? QString::fromLocal8Bit(value) : QString();
}

// Through GDAL's virtual file system, so /vsizip/ paths are checked as the plug-ins open them.
bool exists(const QString& path, bool* isFolder = nullptr)
{
    VSIStatBufL stat;
    if (path.isEmpty() || VSIStatExL(path.toUtf8().constData(), &stat, VSI_STAT_EXISTS_FLAG | VSI_STAT_NATURE_FLAG) != 0)
        return false;
    if (isFolder)
        *isFolder = VSI_ISDIR(stat.st_mode);
    return true;
}

QStringList items(const QString& list)
{
    QStringList result;
    for (const QString& item : list.split('|'))
        if (!item.trimmed().isEmpty())
            result << item.trimmed();
    return result;
}

// The SAR parameter file beside an image: its path cut at the last "." + ".xml".
QString parameterFileOf(const QString& image)
{
    const QString absolute = QFileInfo(image).absoluteFilePath();
    const int dot = absolute.lastIndexOf('.');
    const int slash = absolute.lastIndexOf('/');
    return (dot > slash ? absolute.left(dot) : absolute) + ".xml";
}

// Empty when the file is a SAR parameter file with enough state vectors, else the reason.
QString parameterFileProblem(const QString& path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return QStringLiteral("does not exist");
    QDomDocument document;
    if (file.size() > (64 << 20) || !document.setContent(&file) ||
        document.documentElement().tagName() != QLatin1String("vyrSARParameter"))
        return QStringLiteral("is not a readable SAR parameter file");
    const int vectors = document.documentElement().firstChildElement("orbitInfo").elementsByTagName("stateVector").size();
    if (vectors < kMinStateVectors)
        return QStringLiteral("holds %1 state vectors, fewer than %2").arg(vectors).arg(kMinStateVectors);
    return {};
}

// The checks of one entry in order; the first refusal is printed and the rest are skipped.
class EntryChecks
{
public:
    EntryChecks(const char* algoName, AlgoResult* result) : m_name(QString::fromLatin1(algoName)), m_result(result) {}

    bool ok() const { return m_ok; }

    EntryChecks& nonEmpty(const char* key, const QString& value)
    {
        if (m_ok && value.trimmed().isEmpty())
            refuseEmpty(key);
        return *this;
    }
    EntryChecks& existingFile(const char* key, const QString& value)
    {
        bool folder = false;
        return check(key, value, exists(value, &folder) && !folder, "is not an existing file");
    }
    EntryChecks& existingPath(const char* key, const QString& value)
    {
        return check(key, value, exists(value), "does not exist");
    }
    // Every "|" item exists; with `parameterFiles`, each also has a parameter file with state vectors.
    EntryChecks& existingFiles(const char* key, const QString& value, bool parameterFiles)
    {
        const QStringList list = items(value);
        if (m_ok && list.isEmpty())
            refuseEmpty(key);
        for (const QString& item : list)
        {
            check(key, item, exists(item), "does not exist");
            if (parameterFiles && m_ok)
            {
                const QString parameters = parameterFileOf(item);
                const QString problem = parameterFileProblem(parameters);
                check(key, item, problem.isEmpty(), "has a SAR parameter file " + parameters + " that " + problem);
            }
        }
        return *this;
    }
    EntryChecks& parameterFile(const char* key, const QString& value)
    {
        const QString problem = m_ok ? parameterFileProblem(value) : QString();
        return check(key, value, problem.isEmpty(), problem);
    }
    EntryChecks& imageWithParameterFile(const char* key, const QString& image)
    {
        const QString parameters = parameterFileOf(image);
        const QString problem = m_ok ? parameterFileProblem(parameters) : QString();
        return check(key, image, problem.isEmpty(), "has a SAR parameter file " + parameters + " that " + problem);
    }
    EntryChecks& outputFolder(const char* key, const QString& value)
    {
        bool folder = true;
        return check(key, value, !exists(value, &folder) || folder, "cannot be created");
    }
    EntryChecks& outputFile(const char* key, const QString& value)
    {
        bool folder = false;
        return check(key, value, !exists(value, &folder) || !folder, "is a folder, not a file");
    }
    EntryChecks& suffix(const char* key, const QString& value, const char* wanted)
    {
        return check(key, value, QFileInfo(value).suffix().compare(wanted, Qt::CaseInsensitive) == 0,
                     QStringLiteral("must end in .%1").arg(wanted));
    }
    // Each "|" item (case ignored) is one of `words`; an empty list stands for all.
    EntryChecks& wordsFrom(const char* key, const QString& value, const QStringList& words)
    {
        for (const QString& item : items(value))
            check(key, value, words.contains(item.toUpper()), "must be one of " + words.join(", "));
        return *this;
    }
    EntryChecks& numberIn(const char* key, double value, double aboveLow, double atMostHigh)
    {
        const QString shown = QString::number(value);
        check(key, shown, !std::isnan(value), "is not a number");
        check(key, shown, value > aboveLow, QStringLiteral("must be greater than %1").arg(aboveLow));
        return check(key, shown, value <= atMostHigh, QStringLiteral("must be at most %1").arg(atMostHigh));
    }
    // Empty (the whole image) or four numbers x0|x1|y0|y1 (pixels) or west|east|south|north (degrees).
    EntryChecks& region(const char* key, const QString& value)
    {
        if (value.trimmed().isEmpty())
            return *this;
        const QStringList list = items(value);
        bool numbers = list.size() == 4;
        for (const QString& item : list)
        {
            bool isNumber = false;
            const double v = item.toDouble(&isNumber);
            numbers = numbers && isNumber && std::isfinite(v);
        }
        return check(key, value, numbers, "is not x0|x1|y0|y1 or west|east|south|north");
    }

private:
    EntryChecks& check(const char* key, const QString& value, bool good, const QString& rule)
    {
        if (m_ok && !good)
            refuse(QStringLiteral("%1: the parameter %2 (%3) %4!").arg(m_name, QLatin1String(key), value, rule));
        return *this;
    }
    void refuseEmpty(const char* key)
    {
        refuse(QStringLiteral("%1: the parameter %2 is empty!").arg(m_name, QLatin1String(key)));
    }
    // Also in the caller's record, as a plug-in's refusal would be.
    void refuse(const QString& message)
    {
        printError(message);
        if (m_result)
        {
            m_result->code = -1;
            WriteResultMessage(m_result, message.toLocal8Bit());
        }
        m_ok = false;
    }

    QString m_name;
    AlgoResult* m_result;
    bool m_ok = true;
};

// The caller's progress callback is kept; the plug-in's message is read back to print it.
bool runRadarEntry(const char* algoName, const EntryChecks& checks, std::initializer_list<GenericArg> args,
                   AlgoResult* result)
{
    if (!checks.ok())
        return false;
    AlgoResult local{};
    AlgoResult* used = result ? result : &local;
    const int32_t savedCode = used->code;
    char savedMessage[sizeof used->message];
    std::memcpy(savedMessage, used->message, sizeof savedMessage);
    used->code = 0;
    used->message[0] = '\0';
    const bool ok = runRadarGenericEntry(algoName, args, used);
    if (!ok && used->message[0] != '\0')
        printError(QString::fromLocal8Bit(used->message));
    else if (!ok && used->code == 0)
    {
        used->code = savedCode;
        std::memcpy(used->message, savedMessage, sizeof savedMessage);
    }
    return ok;
}

const QStringList kSwaths = {"IW1", "IW2", "IW3", "EW1", "EW2", "EW3", "EW4", "EW5"};
const QStringList kPolarisations = {"HH", "HV", "VH", "VV"};

} // namespace

ALGO_API bool ExcuteAlgo_S1_TOPS_SLCDataImport(const char* inputFile, const char* outputDir, const char* swath, const char* polarization, AlgoResult* result)
{
    EntryChecks checks("S1_TOPS_SLCDataImport", result);
    checks.nonEmpty("InputFile", local(inputFile))
        .existingPath("InputFile", local(inputFile))
        .nonEmpty("OutputDir", local(outputDir))
        .outputFolder("OutputDir", local(outputDir))
        .wordsFrom("Swath", local(swath), kSwaths)
        .wordsFrom("Polarization", local(polarization), kPolarisations);
    return runRadarEntry("S1_TOPS_SLCDataImport", checks,
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputDir", outputDir),
            text("Swath", swath),
            text("Polarization", polarization),
        },
        result);
}

namespace
{

bool runPalsarEntry(const char* algoName, const char* inputDir, const char* outputDir, AlgoResult* result)
{
    EntryChecks checks(algoName, result);
    checks.nonEmpty("InputDir", local(inputDir))
        .existingPath("InputDir", local(inputDir))
        .nonEmpty("OutputDir", local(outputDir))
        .outputFolder("OutputDir", local(outputDir));
    return runRadarEntry(algoName, checks,
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
        },
        result);
}

} // namespace

ALGO_API bool ExcuteAlgo_PALSAR1_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result)
{
    return runPalsarEntry("PALSAR1_SLCDataImport", inputDir, outputDir, result);
}

ALGO_API bool ExcuteAlgo_PALSAR2_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result)
{
    return runPalsarEntry("PALSAR2_SLCDataImport", inputDir, outputDir, result);
}

ALGO_API bool ExcuteAlgo_InSAR_TSX_SLCImport(const char* xmlFile, const char* outputFile, AlgoResult* result)
{
    EntryChecks checks("InSAR_TSX_SLCImport", result);
    checks.nonEmpty("XmlFile", local(xmlFile))
        .existingFile("XmlFile", local(xmlFile))
        .nonEmpty("OutputFile", local(outputFile))
        .outputFile("OutputFile", local(outputFile));
    return runRadarEntry("InSAR_TSX_SLCImport", checks,
        {
            requiredText("XmlFile", xmlFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_SingleImageCrop(const char* inputFile, const char* outputFile, const char* region, AlgoResult* result)
{
    EntryChecks checks("InSAR_SingleImageCrop", result);
    checks.nonEmpty("InputFile", local(inputFile))
        .existingFile("InputFile", local(inputFile))
        .nonEmpty("OutputFile", local(outputFile))
        .outputFile("OutputFile", local(outputFile))
        .region("Region", local(region));
    return runRadarEntry("InSAR_SingleImageCrop", checks,
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Region", region),
        },
        result);
}

namespace
{

// InSAR_Slant2Ground and RD_GenerateRPC: an image, its parameter file with the orbit, one output file.
bool runParameterFileEntry(const char* algoName, const char* inputFile, const char* parameterFile,
                           const char* outputFile, AlgoResult* result)
{
    EntryChecks checks(algoName, result);
    checks.nonEmpty("InputFile", local(inputFile))
        .existingFile("InputFile", local(inputFile))
        .nonEmpty("ParameterFile", local(parameterFile))
        .parameterFile("ParameterFile", local(parameterFile))
        .nonEmpty("OutputFile", local(outputFile))
        .outputFile("OutputFile", local(outputFile));
    return runRadarEntry(algoName, checks,
        {
            requiredText("InputFile", inputFile),
            requiredText("ParameterFile", parameterFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

} // namespace

ALGO_API bool ExcuteAlgo_InSAR_Slant2Ground(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result)
{
    return runParameterFileEntry("InSAR_Slant2Ground", inputFile, parameterFile, outputFile, result);
}

ALGO_API bool ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result)
{
    EntryChecks checks("Batch_S1_GRD_FastOrthoCorrection", result);
    checks.existingFiles("InputFiles", local(inputFiles), false);
    if (!local(demFile).trimmed().isEmpty())
        checks.existingFile("DEMFile", local(demFile));
    checks.nonEmpty("OutputDir", local(outputDir))
        .outputFolder("OutputDir", local(outputDir))
        .numberIn("Resolution", resolution, 0.0, 10000.0);
    return runRadarEntry("Batch_S1_GRD_FastOrthoCorrection", checks,
        {
            requiredText("InputFiles", inputFiles),
            text("DEMFile", demFile),
            outputPath("OutputDir", outputDir),
            number("Resolution", resolution),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_SARGeocode(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result)
{
    EntryChecks checks("Batch_SARGeocode", result);
    checks.existingFiles("InputFiles", local(inputFiles), true)
        .nonEmpty("DEMFile", local(demFile))
        .existingFile("DEMFile", local(demFile))
        .nonEmpty("OutputDir", local(outputDir))
        .outputFolder("OutputDir", local(outputDir))
        .numberIn("Resolution", resolution, 0.0, 10000.0);
    return runRadarEntry("Batch_SARGeocode", checks,
        {
            requiredText("InputFiles", inputFiles),
            requiredText("DEMFile", demFile),
            outputPath("OutputDir", outputDir),
            number("Resolution", resolution),
        },
        result);
}

ALGO_API bool ExcuteAlgo_GF3_ContourShp(const char* metaXmlFile, const char* outputFile, AlgoResult* result)
{
    EntryChecks checks("GF3_ContourShp", result);
    checks.nonEmpty("MetaXmlFile", local(metaXmlFile))
        .existingFile("MetaXmlFile", local(metaXmlFile))
        .nonEmpty("OutputFile", local(outputFile))
        .outputFile("OutputFile", local(outputFile))
        .suffix("OutputFile", local(outputFile), "shp");
    return runRadarEntry("GF3_ContourShp", checks,
        {
            requiredText("MetaXmlFile", metaXmlFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_RD_GenerateRPC(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result)
{
    return runParameterFileEntry("RD_GenerateRPC", inputFile, parameterFile, outputFile, result);
}

ALGO_API bool ExcuteAlgo_TerrainRadiometricCorrection(const char* inputFile, const char* demFile, const char* outputFile, AlgoResult* result)
{
    EntryChecks checks("TerrainRadiometricCorrection", result);
    checks.nonEmpty("InputFile", local(inputFile))
        .existingFile("InputFile", local(inputFile))
        .imageWithParameterFile("InputFile", local(inputFile))
        .nonEmpty("DEMFile", local(demFile))
        .existingFile("DEMFile", local(demFile))
        .nonEmpty("OutputFile", local(outputFile))
        .outputFile("OutputFile", local(outputFile));
    return runRadarEntry("TerrainRadiometricCorrection", checks,
        {
            requiredText("InputFile", inputFile),
            requiredText("DEMFile", demFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}
