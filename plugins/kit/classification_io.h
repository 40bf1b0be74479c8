// Classification images for plug-ins: reading selected bands pixel-interleaved, a training sample,
// and single-band Byte class outputs with a colour table and class names.
#pragma once

#include "clustering.h"
#include "raster_io.h"

#include <QString>
#include <QStringList>
#include <array>
#include <functional>
#include <vector>

namespace algokit
{

// Checks 0-based band indices against the dataset; throws AlgoError naming the first one missing.
void checkBandIndices(GDALDataset* dataset, const std::vector<int>& bands0);

// Rows [row0, row0 + rows) of the given bands (0-based), pixel after pixel, band values side by side.
void readPixels(GDALDataset* dataset, const std::vector<int>& bands0, int row0, int rows, std::vector<float>& pixels);

// About maxPixels pixels spread evenly over the image (whole rows, every step-th pixel of them).
std::vector<float> samplePixels(GDALDataset* dataset, const std::vector<int>& bands0, size_t maxPixels);

using Rgb = std::array<int, 3>;

// n colours far apart from one another (hues around the wheel, alternating lightness).
std::vector<Rgb> distinctColours(int count);

// A single-band Byte classification raster with colour table and category names; georeferenced like
// `source`. The driver comes from the path unless given.
OutputRaster createClassRaster(const QString& path, GDALDataset* source, const std::vector<Rgb>& colours,
                               const QStringList& names, const QString& driver = QString(), GDALDataType type = GDT_Byte);

// Byte for up to 256 classes, UInt16 beyond.
GDALDataType classDataType(size_t classCount);

// Reads rows [row0 - halo, row0 + rows + halo), clipped to the band, as int32; returns the first row read.
int readRowsWithHalo(GDALRasterBand* band, int row0, int rows, int halo, std::vector<int>& buffer);

// "Class_1" ... "Class_<count>".
QStringList defaultClassNames(int count);

// Colour table entries and category names of band 1 of a classification (names: "Class_%d" when none).
struct ClassTable
{
    std::vector<Rgb> colours;
    QStringList names;
};
ClassTable readClassTable(GDALDataset* dataset);

// One byte per pixel of class labels between passes: in memory up to kMemoryLimit bytes, beyond that in
// an uncompressed temporary file that is removed with the store.
class LabelStore
{
public:
    static constexpr size_t kMemoryLimit = size_t(512) << 20;
    LabelStore(int width, int height);
    ~LabelStore();
    LabelStore(const LabelStore&) = delete;
    LabelStore& operator=(const LabelStore&) = delete;
    void read(int row0, int rows, std::vector<unsigned char>& labels) const;
    void write(int row0, int rows, const std::vector<unsigned char>& labels);
    // Copies the labels through `map` (old label -> written value; identity when empty) into band.
    void copyTo(GDALRasterBand* band, const std::function<void(double done)>& report,
                const std::vector<unsigned char>& map = {}) const;

private:
    DatasetPtr m_labels;
    QString m_temporaryPath;
    int m_width;
    int m_height;
};

// One assignment pass over the image: every pixel labelled with its nearest centre (labels stored), the
// per-class sums (and squares) accumulated, pixels whose label changed counted. report(fraction done).
ClusterSums assignPass(GDALDataset* dataset, const std::vector<int>& bands0, const std::vector<double>& centres,
                       LabelStore& labels, bool withSquares, const std::function<void(double done)>& report);

} // namespace algokit
