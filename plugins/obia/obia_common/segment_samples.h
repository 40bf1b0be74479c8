// Segments as samples: features of every segment measured from the label raster and its image, segments
// labelled by training polygons or points, and the feature table read from and written to CSV.
#pragma once

#include "segment_classifier.h"
#include "segment_features.h"

#include <functional>
#include <map>

class GDALDataset;
class OGRLayer;

namespace obia
{

// The feature words ("count", "area", "perimeter", "compactness", "shape_index", "mean", "std", "min", "max",
// "brightness"; empty text: "mean|std|brightness") into columns (mean_1 ... for every band); false with the
// offending word in *bad.
bool featureColumns(const QString& text, int bands, QStringList* columns, QString* bad);
// The values of the columns for segment s.
void appendFeatureRow(const SegmentFeatures& features, unsigned s, const QStringList& columns, std::vector<float>& row);

// Streams the label raster (band 1) with the image; report(fraction) per block.
SegmentFeatures measureSegments(GDALDataset* labels, GDALDataset* image, const std::function<void(double)>& report);

// Class of each segment a sample labels: a sample (polygon or point) labels the segments it covers at least half
// of and the segment that holds at least half of it (a point: the segment it falls in); where several samples
// label a segment, the one with the largest overlap wins. The class field holds whole numbers
// (codes) or names (codes 1..k in sorted order). scheme gets codes, names and colours.
std::map<unsigned, int> labelSegments(GDALDataset* labels, const SegmentFeatures& features, OGRLayer* samples, int classField,
                                      ClassScheme* scheme, const std::function<void(double)>& report);

// Writes "segment,class,class_name,<columns>" lines; reads them back (the scheme from the codes and names).
void writeSampleCsv(const QString& path, const SampleTable& table);
// Throws std::runtime_error saying what is wrong with the file.
SampleTable readSampleCsv(const QString& path);

} // namespace obia
