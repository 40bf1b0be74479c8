// Classifies segments with a model written by MSS_TrainModel (or MSS_Classify): a classification image with the
// model's class colours and names, and the segment polygons with their class.
#include "records/generic_record.h"
#include "segment_workflow.h"

using namespace algokit;

namespace
{

class MssClassifyByModel : public PluginBase
{
public:
    MssClassifyByModel() : PluginBase(QStringLiteral("MSS_ClassifyByModel")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        GenericParams args(record, GetName());
        obia::SegmentInputs inputs = obia::openSegmentInputs(args);
        const QString modelPath = args.text("ModelFile").existingFile();
        obia::ClassScheme scheme;
        obia::SegmentClassifier classifier;
        try
        {
            classifier = obia::SegmentClassifier::load(modelPath, &scheme);
        }
        catch (const std::runtime_error& error)
        {
            args.refuse(QStringLiteral("ModelFile"), modelPath, QString::fromUtf8(error.what()));
        }
        obia::checkModelFeatures(args, classifier, inputs.image->GetRasterCount());
        obia::applyProject(args, QStringLiteral("Extra"), &scheme);
        const QString classField = args.text("ClassField").orDefault(QStringLiteral("class"));
        const obia::ClassificationPaths paths = obia::classificationPaths(args);
        const obia::SegmentFeatures features =
            obia::measureSegments(inputs.labels.get(), inputs.image.get(), [&](double done) { progress(40.0 * done); });
        std::vector<int> codes;
        try
        {
            codes = obia::predictSegments(features, classifier, scheme);
        }
        catch (const std::runtime_error& error)
        {
            throw AlgoError(QStringLiteral("MSS_ClassifyByModel: the model cannot classify the segments: %1").arg(QString::fromUtf8(error.what())));
        }
        claimOutput(paths.image);
        claimOutput(paths.polygons);
        obia::writeClassification(inputs, codes, scheme, paths.image, paths.polygons, classField, [&](double done) { progress(50.0 + 50.0 * done); });
        GenericOutputs outputs;
        outputs.add(paths.image == args.text("OutputFile").value() ? QStringLiteral("PolygonFile") : QStringLiteral("ClassImageFile"),
                    paths.image == args.text("OutputFile").value() ? paths.polygons : paths.image);
        setResult(outputs.result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MssClassifyByModel)
