// Two dates on one grid: the later image is warped onto the earlier one's grid when they differ, their
// overlap is checked, and rows of both are read with a validity byte per pixel.
#pragma once

#include "generic_params.h"
#include "raster_io.h"

#include <QString>
#include <vector>

namespace obia
{

struct DatePair
{
    algokit::DatasetPtr before;
    algokit::DatasetPtr afterSource;
    algokit::DatasetPtr afterWarped; // set when the later image had to be resampled
    GDALDataset* after() const { return afterWarped ? afterWarped.get() : afterSource.get(); }
    bool resampled() const { return bool(afterWarped); }
};

// Opens nothing: takes the two opened rasters and puts the later one on the grid of the earlier one (bilinear,
// Float32, outside its footprint no data). Refuses, through args, when their footprints do not overlap or when
// they differ in size and either lacks georeferencing. Keys name the parameters in the messages.
DatePair alignDates(const algokit::GenericParams& args, const QString& beforeKey, algokit::DatasetPtr before,
                    const QString& afterKey, algokit::DatasetPtr after);

// Rows [row0, row0 + rows) of the given bands (0-based, the same for both images when afterBands is empty) of both
// dates, pixel-interleaved as float, and a byte per pixel that is 1 where every value of both is valid (not NaN,
// not the band's no-data value).
struct RowsOfBoth
{
    std::vector<float> before;
    std::vector<float> after;
    std::vector<unsigned char> valid;
};
void readBoth(const DatePair& pair, const std::vector<int>& beforeBands, const std::vector<int>& afterBands,
              int row0, int rows, RowsOfBoth& out);

// Marks invalid every pixel of `pixels` (bands values each) that is NaN or equals its band's no-data value.
void markNoData(GDALDataset* dataset, const std::vector<int>& bands0, const std::vector<float>& pixels,
                std::vector<unsigned char>& valid);

// Area of one pixel in square metres when the grid is projected in metres, in square degrees when geographic,
// 1 (a pixel) without georeferencing; unit: "m2", "deg2" or "pixel".
double pixelArea(GDALDataset* dataset, QString* unit);

// A path beside `path` with `suffix` before the extension: /a/b.tif + "_magnitude" -> /a/b_magnitude.tif.
QString sidePath(const QString& path, const QString& suffix);

} // namespace obia
