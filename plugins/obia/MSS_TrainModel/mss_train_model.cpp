// Trains a segment classifier (random trees, SVM, k nearest neighbours, boosted trees, normal Bayes, MLP) on
// samples of segments, reports its 5-fold cross-validated overall accuracy and kappa, and writes the model file.
#include "class_map.h"
#include "records/generic_record.h"
#include "segment_workflow.h"

using namespace algokit;

namespace
{

class MssTrainModel : public PluginBase
{
public:
    MssTrainModel() : PluginBase(QStringLiteral("MSS_TrainModel")) {}

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
        const QString modelPath = args.text("ModelFile").writableOutput();
        for (const QString& key : {QStringLiteral("InputFile"), QStringLiteral("SegmentFile"), QStringLiteral("SampleFile")})
            obia::refuseSameFile(args, QStringLiteral("ModelFile"), modelPath, key, args.text(key).value());
        obia::SampleTable table = obia::samplesOf(args, inputs, columns, nullptr, {}, [&](double done) { progress(60.0 * done); });
        obia::applyProject(args, QStringLiteral("Extra"), &table.scheme);
        double accuracy = 0.0, kappa = 0.0;
        try
        {
            obia::crossValidate(kind, options, table, 5, &accuracy, &kappa);
            progress(90.0);
            const obia::SegmentClassifier classifier = obia::SegmentClassifier::train(kind, options, table);
            claimOutput(modelPath);
            classifier.save(modelPath, table.scheme);
        }
        catch (const std::runtime_error& error)
        {
            throw AlgoError(QStringLiteral("MSS_TrainModel: the classifier %1 cannot be trained: %2").arg(kind, QString::fromUtf8(error.what())));
        }
        setResult(GenericOutputs()
                      .add(QStringLiteral("OverallAccuracy"), QString::number(accuracy, 'f', 4))
                      .add(QStringLiteral("Kappa"), QString::number(kappa, 'f', 4))
                      .add(QStringLiteral("SampleCount"), QString::number(table.rows()))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MssTrainModel)
