// Trains a segment classifier on samples and classifies every segment in one call: the classification image,
// the segment polygons with their class, and, when ModelFile is given, the model for later runs.
#include "class_map.h"
#include "records/generic_record.h"
#include "segment_workflow.h"

using namespace algokit;

namespace
{

class MssClassify : public PluginBase
{
public:
    MssClassify() : PluginBase(QStringLiteral("MSS_Classify")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        GenericParams args(record, GetName());
        obia::SegmentInputs inputs = obia::openSegmentInputs(args);
        args.text("SampleFile").existingFile();
        const QStringList columns = obia::featureColumnsOf(args, inputs.image->GetRasterCount());
        const QString kind = obia::classifierOf(args);
        const QMap<QString, double> options = obia::optionsOf(args, kind);
        const QString classField = args.text("ClassField").required();
        const obia::ClassificationPaths paths = obia::classificationPaths(args);
        const QString modelPath = args.text("ModelFile").isEmpty() ? QString() : args.text("ModelFile").writableOutput().value();
        const obia::SegmentFeatures features =
            obia::measureSegments(inputs.labels.get(), inputs.image.get(), [&](double done) { progress(30.0 * done); });
        obia::SampleTable table = obia::samplesOf(args, inputs, columns, &features, {}, [&](double done) { progress(30.0 + 20.0 * done); });
        double accuracy = 0.0, kappa = 0.0;
        std::vector<int> codes;
        try
        {
            obia::crossValidate(kind, options, table, 5, &accuracy, &kappa);
            const obia::SegmentClassifier classifier = obia::SegmentClassifier::train(kind, options, table);
            progress(60.0);
            if (!modelPath.isEmpty())
            {
                claimOutput(modelPath);
                classifier.save(modelPath, table.scheme);
            }
            codes = obia::predictSegments(features, classifier, table.scheme);
        }
        catch (const std::runtime_error& error)
        {
            throw AlgoError(QStringLiteral("MSS_Classify: the classifier %1 cannot be trained: %2").arg(kind, QString::fromUtf8(error.what())));
        }
        claimOutput(paths.image);
        claimOutput(paths.polygons);
        obia::writeClassification(inputs, codes, table.scheme, paths.image, paths.polygons, classField,
                                  [&](double done) { progress(65.0 + 35.0 * done); });
        GenericOutputs outputs;
        const bool imageIsOutput = paths.image == args.text("OutputFile").value();
        outputs.add(imageIsOutput ? QStringLiteral("PolygonFile") : QStringLiteral("ClassImageFile"), imageIsOutput ? paths.polygons : paths.image);
        if (!modelPath.isEmpty())
            outputs.add(QStringLiteral("ModelFile"), modelPath);
        outputs.add(QStringLiteral("OverallAccuracy"), QString::number(accuracy, 'f', 4));
        outputs.add(QStringLiteral("Kappa"), QString::number(kappa, 'f', 4));
        setResult(outputs.result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MssClassify)
