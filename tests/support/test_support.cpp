// Test helpers.
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace testsupport
{

QString buildBinDir()
{
    return QStringLiteral(ALGO_BUILD_DIR) + "/bin";
}

QString sourceDir()
{
    return QStringLiteral(ALGO_SOURCE_DIR);
}

QString sharedDataDir()
{
    const QString dir = QDir::cleanPath(sourceDir() + "/../shared/data");
    return QFileInfo(dir).isDir() ? dir : QString();
}

QString sharedDataPath(const QString& relativePath)
{
    const QString dir = sharedDataDir();
    if (dir.isEmpty())
        return QString();
    const QString path = dir + "/" + relativePath;
    return QFileInfo::exists(path) ? path : QString();
}

StdoutCapture::StdoutCapture()
{
    std::cout.flush();
    std::fflush(stdout);
    m_file = std::tmpfile();
    m_savedFd = dup(STDOUT_FILENO);
    dup2(fileno(m_file), STDOUT_FILENO);
}

StdoutCapture::~StdoutCapture()
{
    stop();
}

void StdoutCapture::stop()
{
    if (m_savedFd < 0)
        return;
    std::cout.flush();
    std::fflush(stdout);
    dup2(m_savedFd, STDOUT_FILENO);
    close(m_savedFd);
    m_savedFd = -1;
    std::rewind(m_file);
    std::ostringstream text;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, m_file)) > 0)
        text.write(buffer, std::streamsize(got));
    std::fclose(m_file);
    m_file = nullptr;
    m_text = text.str();
}

std::string StdoutCapture::text()
{
    stop();
    return m_text;
}

namespace
{

bool createRaster(const QString& path, int width, int height, int bands, GDALDataType type,
                  const std::function<double(int, int, int)>& value, const QString& driver, bool georeferenced,
                  const QStringList& creationOptions, double noData)
{
    GDALAllRegister();
    GDALDriver* gdalDriver = GetGDALDriverManager()->GetDriverByName(driver.toUtf8().constData());
    if (!gdalDriver)
        return false;
    CPLStringList options;
    for (const QString& option : creationOptions)
        options.AddString(option.toUtf8().constData());
    GDALDataset* dataset = gdalDriver->Create(path.toUtf8().constData(), width, height, bands, type, options.List());
    if (!dataset)
        return false;
    if (georeferenced)
    {
        double transform[6] = {500000.0, 30.0, 0.0, 4000000.0, 0.0, -30.0};
        dataset->SetGeoTransform(transform);
        OGRSpatialReference srs;
        srs.importFromEPSG(32650);
        dataset->SetSpatialRef(&srs);
    }
    std::vector<double> row(size_t(width) * (GDALDataTypeIsComplex(type) ? 2 : 1));
    bool ok = true;
    for (int b = 0; b < bands && ok; ++b)
    {
        if (!std::isnan(noData))
            dataset->GetRasterBand(b + 1)->SetNoDataValue(noData);
        for (int y = 0; y < height && ok; ++y)
        {
            for (int x = 0; x < width; ++x)
                row[size_t(x) * (GDALDataTypeIsComplex(type) ? 2 : 1)] = value(b, x, y);
            ok = dataset->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, y, width, 1, row.data(), width, 1,
                                                         GDALDataTypeIsComplex(type) ? GDT_CFloat64 : GDT_Float64, 0,
                                                         0) == CE_None;
        }
    }
    GDALClose(GDALDataset::ToHandle(dataset));
    return ok;
}

} // namespace

bool makeRaster(const QString& path, int width, int height, int bands, GDALDataType type,
                const std::function<double(int, int, int)>& value, const QString& driver, bool georeferenced)
{
    return createRaster(path, width, height, bands, type, value, driver, georeferenced, QStringList(),
                        std::numeric_limits<double>::quiet_NaN());
}

bool makeGeoTiff(const QString& path, int width, int height, int bands, GDALDataType type,
                 const std::function<double(int, int, int)>& value, const QStringList& creationOptions, double noData)
{
    return createRaster(path, width, height, bands, type, value, QStringLiteral("GTiff"), true, creationOptions,
                        noData);
}

std::vector<double> readBand(const QString& path, int band1)
{
    GDALAllRegister();
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_ReadOnly));
    if (!dataset)
        return {};
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    std::vector<double> values(size_t(width) * size_t(height));
    if (dataset->GetRasterBand(band1)->RasterIO(GF_Read, 0, 0, width, height, values.data(), width, height, GDT_Float64,
                                                0, 0) != CE_None)
        values.clear();
    GDALClose(GDALDataset::ToHandle(dataset));
    return values;
}

static int recordProgress(double progress, const char* message, void* data)
{
    auto* self = static_cast<RecordingResult*>(data);
    self->progress.push_back(progress);
    self->messages.emplace_back(message ? message : "");
    return self->answer;
}

RecordingResult::RecordingResult()
{
    std::memset(&record, 0, sizeof record);
    record.callback = &recordProgress;
    record.userData = this;
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line))
        result.push_back(line);
    return result;
}

} // namespace testsupport
