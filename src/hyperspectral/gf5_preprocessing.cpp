// ExcuteAlgo_GF5PreProcessing, ExcuteAlgo_HypGF5RadiometricCalibrate, ExcuteAlgo_HyspecPrePro: GF-5 AHSI
// product preparation; file names and band lists here, the pixel work in the plug-ins.
#include "entry_guard.h"
#include "output_protocol.h"
#include "records/hyperspectral_records.h"
#include "run_algo_plugin.h"
#include "sys_utility.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <cstdio>

using namespace algofactory;

namespace
{

// Copies the ".rpb" beside `image` to the output's directory under the output's complete base name;
// a failed copy (missing source, existing target) is ignored, as the run can go on without it.
void copyRpbBeside(const QString& image, const QString& output)
{
    const QFileInfo imageInfo(image);
    const QFileInfo outputInfo(output);
    const QString source = imageInfo.path() + "/" + imageInfo.completeBaseName() + ".rpb";
    const QString target = outputInfo.absolutePath() + "/" + outputInfo.completeBaseName() + ".rpb";
    QFile::copy(source, target);
}

void makeOutputDirectory(const QString& output)
{
    const QString directory = QFileInfo(output).absolutePath();
    if (!QDir(directory).exists())
        QDir().mkpath(directory);
}

template <typename Record> bool runRecord(const char* name, const Record& record, AlgoResult* result)
{
    AlgoParamHolder holder = record;
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QString::fromLatin1(name), &holder, result, QString::fromLatin1(name));
}

} // namespace

ALGO_API bool ExcuteAlgo_GF5PreProcessing(const char* inputFile, int dropOverlap, int dropAbsorption,
                                          const char* outputDir, const char* outputSuffix, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_GF5PreProcessing", [&] {
        const QFileInfo product(QString::fromLocal8Bit(inputFile ? inputFile : ""));
        const QString base = product.completeBaseName();
        const QString name = base.split('.').mid(0, 3).join('.');
        const QString directory = product.absolutePath();
        const QString prefix = base.left(8);

        stGF5AhsiPreProcessingInfo record;
        record.swirFile = directory + "/" + name + "_SW.geotiff";
        record.vnirFile = directory + "/" + name + "_VN.geotiff";
        record.swirCalibrationFile = directory + "/" + prefix + "_SWIR_RadCal_a.raw";
        record.vnirCalibrationFile = directory + "/" + prefix + "_VNIR_RadCal_a.raw";
        record.outputFile = QString::fromLocal8Bit(outputDir ? outputDir : "") + "/" + name +
                            QString::fromLocal8Bit(outputSuffix ? outputSuffix : "");
        printOutput("OutputFile", record.outputFile);

        if (dropOverlap == 1)
        {
            record.vnirDropBands = {147, 148, 149, 150};
            record.swirDropBands = {1, 2, 3, 4};
        }
        if (dropAbsorption != 0)
        {
            for (int band = 43; band <= 50; ++band)
                record.swirDropBands.push_back(band);
            for (int band = 96; band <= 112; ++band)
                record.swirDropBands.push_back(band);
        }
        makeOutputDirectory(record.outputFile);
        copyRpbBeside(record.vnirFile, record.outputFile);
        return runRecord("GF5PreProcessing", record, result);
    });
}

ALGO_API bool ExcuteAlgo_HypGF5RadiometricCalibrate(const char* inputFile, const char* calibrationFile,
                                                    const char* spectralResponseFile, const char* metaFile,
                                                    int calibrationType, int scaleFlag, int unitFlag,
                                                    const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_HypGF5RadiometricCalibrate", [&] {
        const QString esun = SysUtility::ApplicationDirPath() + "/../data/HypSpectral/GF5_AHSI_SpeRes_ESUN.txt";
        if (!QFileInfo::exists(esun))
        {
            std::printf("Esun file is not exists.");
            return false;
        }
        stGF5AhsiRadiometricCalibrateInfo record;
        record.inputFile = QString::fromLocal8Bit(inputFile ? inputFile : "");
        record.calibrationFile = QString::fromLocal8Bit(calibrationFile ? calibrationFile : "");
        record.spectralResponseFile = QString::fromLocal8Bit(spectralResponseFile ? spectralResponseFile : "");
        record.metaFile = QString::fromLocal8Bit(metaFile ? metaFile : "");
        record.calibrationType = calibrationType;
        record.esunFile = esun;
        record.scaleFlag = scaleFlag;
        record.unitFlag = unitFlag;
        record.outputFile = QString::fromLocal8Bit(outputFile ? outputFile : "");
        makeOutputDirectory(record.outputFile);
        copyRpbBeside(record.inputFile, record.outputFile);
        return runRecord("HypGF5RadiometricCalibrate", record, result);
    });
}

ALGO_API bool ExcuteAlgo_HyspecPrePro(const char* inputFile, const char* outputFile, const char* formatFile,
                                      AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_HyspecPrePro", [&] {
        const QString reference = QString::fromLocal8Bit(formatFile ? formatFile : "");
        const QString suffix = QFileInfo(reference).suffix();
        if (suffix != "img" && suffix != "dat")
            return false;
        stHyspecPreProInfo record;
        record.inputFile = QString::fromLocal8Bit(inputFile ? inputFile : "");
        record.outputFile = QString::fromLocal8Bit(outputFile ? outputFile : "");
        record.format = QStringLiteral("ENVI");
        record.referenceFile = reference;
        return runRecord("HyspecPrePro", record, result);
    });
}
