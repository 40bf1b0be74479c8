// Clip regions: the buffer rule, the temporary range shapefile and its clean-up, per-feature ranges.
#pragma once

#include <QString>
#include <QStringList>
#include <vector>

namespace algofactory
{

// What the clip entries learn from the input while computing the buffer.
struct ClipInputInfo
{
    bool opened = false;
    QString driver;
    std::vector<int> bands; // 0-based, all bands
};

// Opens the input, prints its projection text on a line, computes bufferPixels x pixel width (divided by
// 100000.0 for a projected reference: metres to the degrees of the WGS 84 range file) and prints
// "Buffer size:" with it once. Nothing is printed when the input does not open (info->opened false).
double computeClipBuffer(const QString& inputFile, int bufferPixels, ClipInputInfo* info);
// The "Buffer size:" line.
void printBufferLine(double buffer);

enum class RangeMode
{
    Feature = 3,  // the feature of a shapefile whose field equals a value, buffered
    GeoJson = 4,  // a GeoJSON geometry text, WGS 84
    Wkt = 5       // a POLYGON or MULTIPOLYGON text, WGS 84
};

struct RangeRequest
{
    QString shapefile;
    QString fieldName;
    QString fieldValue;
    QString clipRange;
    RangeMode mode = RangeMode::Wkt;
    double buffer = 0.0;
};

// Writes the region as a one-feature WGS 84 polygon shapefile "range.shp" in a new folder named by a UUID
// under the system's temporary folder. Prints the builder's messages; false (and no folder left) on failure.
bool buildRangeShapefile(const RangeRequest& request, QString* tempFolder, QString* rangeFile);

// One range shapefile per feature of `shapefile` in `folder`; names come from field `fieldName`
// (or the feature id when the name is empty), made safe as file names and unique. A feature without a
// geometry keeps its name but gets no range file, so the two lists then differ in length.
bool splitFeatureRanges(const QString& shapefile, const QString& fieldName, double buffer, const QString& folder,
                        QStringList* names, QStringList* rangeFiles);

// Runs a shell command whose %1 is replaced by the path quoted with shellQuote.
void runShellOnPath(const char* command, const QString& path);

// Prints the folder on a line of its own and, when a folder of that name exists, removes it with
// "chmod 777 -R" and "rm -R" (an empty path names the current folder; the quoted empty word is harmless).
void cleanUpClipFolder(const QString& tempFolder);

} // namespace algofactory
