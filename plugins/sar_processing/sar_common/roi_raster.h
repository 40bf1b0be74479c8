// Training areas burnt into a label grid: each class's polygons (WKT, image pixel coordinates) over the part of
// the image they cover; a pixel belongs to a class when its centre lies inside (the last class wins on overlap).
#pragma once

#include <string>
#include <vector>

namespace sar
{

struct RoiLabels
{
    int x0 = 0;
    int y0 = 0;
    int width = 0;
    int height = 0;
    std::vector<unsigned char> labels; // width x height, 0 outside every area, else the class number (1-based)
    std::vector<long long> counts;     // pixels per class, index 0 unused
};

// classWkt[i]: the polygons of class i + 1 as one WKT geometry; an empty text has no pixels. Returns false with
// *error set when a text is not a polygon geometry, or there are more than 255 classes.
bool rasterizeRoi(const std::vector<std::string>& classWkt, int imageWidth, int imageHeight, RoiLabels& result,
                  std::string* error);

} // namespace sar
