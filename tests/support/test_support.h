// Test helpers: temporary folders, standard-output capture, small rasters made with GDAL, sample data.
#pragma once

#include "AlgoFactory.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace testsupport
{

// The build tree's bin/ and the repository's source folder.
QString buildBinDir();
QString sourceDir();

// ../shared/data beside the repository, or empty when this clone has none.
QString sharedDataDir();
// Skips the current test when ../shared/data (or the file under it) is absent.
#define SKIP_WITHOUT_SHARED_DATA(relativePath)                                                     \
    do                                                                                             \
    {                                                                                              \
        if (testsupport::sharedDataPath(relativePath).isEmpty())                                   \
            GTEST_SKIP() << "../shared/data/" << relativePath << " is not available";              \
    } while (0)
QString sharedDataPath(const QString& relativePath);

// Captures everything written to standard output (std::cout, printf, the C library) while alive.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();
    // Stops capturing (if still capturing) and returns the text.
    std::string text();

private:
    void stop();
    int m_savedFd = -1;
    FILE* m_file = nullptr;
    std::string m_text;
};

// Creates a raster; value(band0, x, y) gives each pixel. Returns false when GDAL refuses.
bool makeRaster(const QString& path, int width, int height, int bands, GDALDataType type,
                const std::function<double(int band, int x, int y)>& value, const QString& driver = "GTiff",
                bool georeferenced = true);

// A GeoTIFF made like makeRaster with creation options (e.g. "TILED=YES") and, unless noData is NaN, that
// no-data value on every band.
bool makeGeoTiff(const QString& path, int width, int height, int bands, GDALDataType type,
                 const std::function<double(int band, int x, int y)>& value, const QStringList& creationOptions,
                 double noData = std::numeric_limits<double>::quiet_NaN());

// Reads a whole band as doubles (test rasters are small).
std::vector<double> readBand(const QString& path, int band1);

// An AlgoResult with a recording callback.
struct RecordingResult
{
    RecordingResult();
    AlgoResult record;
    std::vector<double> progress;
    std::vector<std::string> messages;
    int answer = 0; // what the callback returns
};

// Lines of a text, without line ends.
std::vector<std::string> lines(const std::string& text);

} // namespace testsupport
