// Plug-in "KmeansClassification": Lloyd's k-means over every pixel, streamed by row blocks on all cores,
// stopping when the fraction of pixels that change class is at most the record's threshold.
#include "classification_io.h"
#include "clustering.h"
#include "plugin_base.h"
#include "records/classification_records.h"

namespace
{

constexpr int kDefaultIterations = 20;
constexpr size_t kSeedSample = 100000;

class KmeansClassification : public algokit::PluginBase
{
public:
    KmeansClassification() : PluginBase(QStringLiteral("KmeansClassification")) {}

protected:
    bool run() override
    {
        const stInfoClassificationKmeans& info = params<stInfoClassificationKmeans>();
        if (info.expectedClasses < 2 || info.expectedClasses > 255)
            return fail(QStringLiteral("The number of classes must be from 2 to 255."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        algokit::checkBandIndices(source.get(), info.bands);
        const int bands = int(info.bands.size());
        const int iterations = info.maxIterations > 0 ? info.maxIterations : kDefaultIterations;

        std::vector<double> centres =
            algokit::seedCentres(algokit::samplePixels(source.get(), info.bands, kSeedSample), bands, info.expectedClasses);
        algokit::LabelStore labels(source->GetRasterXSize(), source->GetRasterYSize());
        const double pixels = double(source->GetRasterXSize()) * source->GetRasterYSize();
        for (int iteration = 0; iteration < iterations; ++iteration)
        {
            const algokit::ClusterSums sums = algokit::assignPass(
                source.get(), info.bands, centres, labels, false, [&](double done) {
                    progress(95.0 * (iteration + done) / iterations);
                });
            for (int c = 0; c < info.expectedClasses; ++c)
                if (sums.counts[size_t(c)] > 0) // an empty class keeps its centre
                    for (int b = 0; b < bands; ++b)
                        centres[size_t(c) * bands + b] = sums.sums[size_t(c) * bands + b] / double(sums.counts[size_t(c)]);
            const double changed = iteration == 0 ? 1.0 : double(sums.changed) / pixels;
            if (changed <= info.threshold)
                break;
        }
        // The labels of the last pass are the assignment of every pixel to its nearest centre.
        algokit::OutputRaster output =
            algokit::createClassRaster(info.outputFile, source.get(), algokit::distinctColours(info.expectedClasses),
                                       algokit::defaultClassNames(info.expectedClasses));
        labels.copyTo(output.band(0), [&](double done) { progress(95.0 + 5.0 * done); });
        output.commit();
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(KmeansClassification)
