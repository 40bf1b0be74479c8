// The steps the segment classification plug-ins share, with their refusals: opening the image and its segments,
// the samples and their class field, the sample table, classifier options, and the class image and polygons.
#pragma once

#include "generic_params.h"
#include "raster_io.h"
#include "segment_samples.h"

namespace obia
{

struct SegmentInputs
{
    algokit::DatasetPtr image;  // InputFile
    algokit::DatasetPtr labels; // SegmentFile: one integer band, 0 no segment
    QString imagePath, labelPath;
};
SegmentInputs openSegmentInputs(const algokit::GenericParams& args);

// The feature columns of the Features key for the image's band count.
QStringList featureColumnsOf(const algokit::GenericParams& args, int bands);

// The samples: a table written by MSS_Sample (.csv), or a vector layer whose ClassField holds the classes. For a
// layer, segments are labelled and measured (area bounds and a per-class cap, balanced by a fixed-seed draw).
struct SampleRules
{
    double minArea = 0.0;
    double maxArea = 0.0; // 0: no bound
    int perClass = 0;     // 0: no cap
};
SampleTable samplesOf(const algokit::GenericParams& args, const SegmentInputs& inputs, const QStringList& columns,
                      const SegmentFeatures* measured, const SampleRules& rules, const std::function<void(double)>& report);

// The classifier word of the Classifier key (default RF) and its "key=value;..." Options.
QString classifierOf(const algokit::GenericParams& args);
QMap<QString, double> optionsOf(const algokit::GenericParams& args, const QString& kind);

// Class names and colours of a project file (CreateClassifyProject) given under `key`, applied to the codes 1..n in
// order; a scheme unchanged when the key is empty.
void applyProject(const algokit::GenericParams& args, const QString& key, ClassScheme* scheme);

// Where a classification goes: OutputFile is the class image and the polygons go beside it as
// <name>_segments.gpkg, or, for a vector suffix (.shp, .gpkg, .geojson, .json), OutputFile holds the polygons and
// the image goes beside it as <name>_classes.tif.
struct ClassificationPaths
{
    QString image, polygons;
};
ClassificationPaths classificationPaths(const algokit::GenericParams& args);

// The class code of every segment label 0..largest (0 for label 0 and for labels no pixel carries).
std::vector<int> predictSegments(const SegmentFeatures& features, const SegmentClassifier& classifier, const ClassScheme& scheme);

// Refuses a model whose features the image cannot give (a band it lacks) or that differ from the Features key.
void checkModelFeatures(const algokit::GenericParams& args, const SegmentClassifier& classifier, int bands);

// Writes the classification image (class codes, 0 unclassified, colour table and category names) at imagePath and
// the segment polygons with the class (field `classField`) and its name at polygonPath. The caller claims both.
void writeClassification(const SegmentInputs& inputs, const std::vector<int>& codeOfSegment, const ClassScheme& scheme,
                         const QString& imagePath, const QString& polygonPath, const QString& classField,
                         const std::function<void(double)>& report);

// Writes the sampled segments as polygons (layer "samples", by suffix: .shp, .geojson/.json, else GeoPackage) with
// the fields segment, class, class_name and the feature columns. The caller claims the file.
void writeSampleLayer(const SegmentInputs& inputs, const SampleTable& table, const QString& path,
                      const std::function<void(double)>& report);

} // namespace obia
