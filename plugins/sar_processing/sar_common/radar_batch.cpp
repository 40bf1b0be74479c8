// Helpers of the batch radar plug-ins.
#include "radar_batch.h"

#include <QDir>
#include <QFileInfo>
#include <cmath>
#include <complex>
#include <limits>

namespace sar
{

namespace
{

bool hasWord(const QString& text, const QStringList& words)
{
    const QStringList tokens = text.toLower().split(QRegExp("[^a-z0-9]+"), Qt::SkipEmptyParts);
    for (const QString& word : words)
        if (tokens.contains(word))
            return true;
    return false;
}

} // namespace

RadarScale bandScale(GDALDataset* dataset, int band1, const QString& path)
{
    GDALRasterBand* band = dataset->GetRasterBand(band1);
    const QString unit = QString::fromUtf8(band->GetUnitType()).trimmed();
    if (unit.compare("dB", Qt::CaseInsensitive) == 0)
        return RadarScale::Decibel;
    const QString description = QString::fromUtf8(band->GetDescription());
    for (const QString& text : {description, QFileInfo(path).completeBaseName()})
    {
        if (hasWord(text, {"db", "decibel"}))
            return RadarScale::Decibel;
        if (hasWord(text, {"amplitude", "amp"}))
            return RadarScale::Amplitude;
        if (hasWord(text, {"intensity", "power", "sigma0", "beta0", "gamma0"}))
            return RadarScale::Intensity;
    }
    SarParameterRecord record;
    if (readParameterFile(path, record) && hasWord(QString::fromStdString(record.imageDataType), {"amplitude"}))
        return RadarScale::Amplitude;
    return RadarScale::Intensity;
}

const char* scaleName(RadarScale scale)
{
    switch (scale)
    {
    case RadarScale::Amplitude:
        return "amplitude";
    case RadarScale::Decibel:
        return "dB";
    default:
        return "intensity";
    }
}

float toIntensity(float value, RadarScale scale)
{
    switch (scale)
    {
    case RadarScale::Amplitude:
        return value * value;
    case RadarScale::Decibel:
        return std::pow(10.0f, value / 10.0f);
    default:
        return value;
    }
}

float fromIntensity(float intensity, RadarScale scale)
{
    switch (scale)
    {
    case RadarScale::Amplitude:
        return intensity >= 0.0f ? std::sqrt(intensity) : std::numeric_limits<float>::quiet_NaN();
    case RadarScale::Decibel:
        return intensity > 0.0f ? 10.0f * std::log10(intensity) : std::numeric_limits<float>::quiet_NaN();
    default:
        return intensity;
    }
}

QString batchOutputPath(const QString& outputDir, const QString& input, const QString& suffix)
{
    return QDir(outputDir).filePath(QFileInfo(input).completeBaseName() + "_" + suffix + ".tif");
}

void readComplexRows(GDALRasterBand* band, int row0, int rows, std::vector<std::complex<float>>& buffer)
{
    const int width = band->GetXSize();
    buffer.resize(size_t(width) * rows);
    if (band->RasterIO(GF_Read, 0, row0, width, rows, buffer.data(), width, rows, GDT_CFloat32, 0, 0) != CE_None)
        throw algokit::AlgoError(QStringLiteral("Cannot read rows %1-%2: %3").arg(row0).arg(row0 + rows - 1).arg(CPLGetLastErrorMsg()));
}

void readFloatRows(GDALRasterBand* band, int row0, int rows, std::vector<float>& buffer, bool complexToIntensity)
{
    const int width = band->GetXSize();
    buffer.resize(size_t(width) * rows);
    int hasNoData = 0;
    const double noData = band->GetNoDataValue(&hasNoData);
    if (GDALDataTypeIsComplex(band->GetRasterDataType()) && complexToIntensity)
    {
        std::vector<std::complex<float>> values;
        readComplexRows(band, row0, rows, values);
        for (size_t i = 0; i < values.size(); ++i)
            buffer[i] = std::norm(values[i]);
        return;
    }
    algokit::readRows(band, row0, rows, buffer);
    if (hasNoData)
        for (float& v : buffer)
            if (v == float(noData))
                v = std::numeric_limits<float>::quiet_NaN();
}

algokit::OutputRaster createFloatOutput(const QString& path, GDALDataset* source, int bands, int width, int height)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    algokit::OutputRaster output(path, QStringLiteral("GTiff"), width ? width : source->GetRasterXSize(),
                                 height ? height : source->GetRasterYSize(), bands, GDT_Float32,
                                 {"TILED=YES", "COMPRESS=NONE", "BIGTIFF=IF_SAFER"});
    output.copyGeoreferencing(source);
    for (int b = 0; b < bands && b < source->GetRasterCount(); ++b)
        output.band(b)->SetDescription(source->GetRasterBand(b + 1)->GetDescription());
    for (int b = 0; b < bands; ++b)
        output.band(b)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
    return output;
}

bool readParameterFile(const QString& input, SarParameterRecord& record)
{
    const QString path = sarParameterFilePath(input);
    if (!QFileInfo(path).isFile())
        return false;
    try
    {
        return ReadSarParameterFile(path.toLocal8Bit().constData(), record);
    }
    catch (const std::exception&)
    {
        return false;
    }
}

bool writeParameterFile(const QString& output, const SarParameterRecord& record)
{
    return WriteSarParameterFile(sarParameterFilePath(output), record);
}

BatchOutcome runBatch(const QStringList& inputs,
                      const std::function<QStringList(const QString&, const std::function<void(double)>&)>& work,
                      const std::function<void(double)>& progress)
{
    BatchOutcome outcome;
    QString firstFailure;
    for (int i = 0; i < inputs.size(); ++i)
    {
        const auto report = [&](double fraction) { progress(100.0 * (i + std::clamp(fraction, 0.0, 1.0)) / inputs.size()); };
        try
        {
            outcome.written << work(inputs[i], report);
        }
        catch (const algokit::AlgoError& error)
        {
            outcome.failures << inputs[i] + ": " + error.message();
        }
        catch (const std::exception& error)
        {
            outcome.failures << inputs[i] + ": " + QString::fromLocal8Bit(error.what());
        }
        report(1.0);
    }
    if (outcome.written.isEmpty() && !outcome.failures.isEmpty())
        throw algokit::AlgoError(outcome.failures.front());
    return outcome;
}

} // namespace sar
