// Plug-in "NeuralNetworkCluster": a one-dimensional self-organising (Kohonen) map, or plain competitive
// learning, trained on an even sample of the image; every pixel is then labelled with its nearest node.
// Record: networkType 0 = map with a Gaussian neighbourhood along the chain of nodes, 1 = winner only;
// learningRate = initial rate (default 0.5), radius = initial neighbourhood radius in nodes (default
// classCount / 2), epochs = passes over the sample (default 10). Rate and radius fall linearly to
// 1 % and 0.5 nodes. Inputs are scaled per band to [0, 1] for training so that no band dominates.
#include "classification_io.h"
#include "plugin_base.h"
#include "records/classification_records.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

namespace
{

constexpr size_t kTrainingSample = 50000;

class NeuralNetworkCluster : public algokit::PluginBase
{
public:
    NeuralNetworkCluster() : PluginBase(QStringLiteral("NeuralNetworkCluster")) {}

protected:
    bool run() override
    {
        const NETWORKCLASS& info = params<NETWORKCLASS>();
        if (info.classCount < 1 || info.classCount > 255)
            return fail(QStringLiteral("The number of classes must be from 1 to 255."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        algokit::checkBandIndices(source.get(), info.bands);
        const int bands = int(info.bands.size());
        const int k = info.classCount;

        std::vector<float> sample = algokit::samplePixels(source.get(), info.bands, kTrainingSample);
        const size_t n = sample.size() / size_t(bands);
        if (n == 0)
            return fail(QStringLiteral("The image has no pixel."));
        // Per-band scaling to [0, 1].
        std::vector<double> low(bands, std::numeric_limits<double>::max()), scale(bands, 1.0);
        std::vector<double> high(bands, std::numeric_limits<double>::lowest());
        for (size_t p = 0; p < n; ++p)
            for (int b = 0; b < bands; ++b)
                low[b] = std::min(low[b], double(sample[p * bands + b])), high[b] = std::max(high[b], double(sample[p * bands + b]));
        for (int b = 0; b < bands; ++b)
            scale[b] = high[b] > low[b] ? 1.0 / (high[b] - low[b]) : 1.0;
        std::vector<double> data(sample.size());
        for (size_t p = 0; p < n; ++p)
            for (int b = 0; b < bands; ++b)
                data[p * bands + b] = (sample[p * bands + b] - low[b]) * scale[b];

        std::vector<double> weights = train(data, bands, k, info);
        // Back to image units for the assignment of every pixel.
        for (int c = 0; c < k; ++c)
            for (int b = 0; b < bands; ++b)
                weights[size_t(c) * bands + b] = weights[size_t(c) * bands + b] / scale[b] + low[b];

        algokit::LabelStore labels(source->GetRasterXSize(), source->GetRasterYSize());
        algokit::assignPass(source.get(), info.bands, weights, labels, false, [&](double done) { progress(20.0 + 70.0 * done); });
        const QString driver = info.format.isEmpty() ? QString() : info.format;
        algokit::OutputRaster output = algokit::createClassRaster(info.outputFile, source.get(), algokit::distinctColours(k),
                                                                  algokit::defaultClassNames(k), driver);
        labels.copyTo(output.band(0), [&](double done) { progress(90.0 + 10.0 * done); });
        output.commit();
        progress(100.0);
        return true;
    }

private:
    std::vector<double> train(const std::vector<double>& data, int bands, int k, const NETWORKCLASS& info)
    {
        const size_t n = data.size() / size_t(bands);
        const double rate0 = info.learningRate > 0.f ? std::min(1.0, double(info.learningRate)) : 0.5;
        const double radius0 = info.radius > 0.f ? double(info.radius) : std::max(1.0, k / 2.0);
        const int epochs = info.epochs > 0 ? info.epochs : 10;
        const bool neighbourhood = info.networkType != 1;

        // Nodes start on the diagonal of the scaled data cube, in chain order.
        std::vector<double> weights(size_t(k) * bands);
        for (int c = 0; c < k; ++c)
            for (int b = 0; b < bands; ++b)
                weights[size_t(c) * bands + b] = (c + 0.5) / k;

        std::vector<size_t> order(n);
        std::iota(order.begin(), order.end(), size_t(0));
        std::mt19937_64 random(2024u);
        const double steps = double(epochs) * double(n);
        double step = 0.0;
        for (int epoch = 0; epoch < epochs; ++epoch)
        {
            std::shuffle(order.begin(), order.end(), random);
            for (size_t index : order)
            {
                const double t = step++ / steps;
                const double rate = rate0 * (1.0 - 0.99 * t);
                const double radius = radius0 + (0.5 - radius0) * t;
                const double* x = &data[index * bands];
                int winner = 0;
                double best = std::numeric_limits<double>::max();
                for (int c = 0; c < k; ++c)
                {
                    double distance = 0.0;
                    for (int b = 0; b < bands; ++b)
                        distance += std::pow(x[b] - weights[size_t(c) * bands + b], 2);
                    if (distance < best)
                        best = distance, winner = c;
                }
                for (int c = 0; c < k; ++c)
                {
                    const int gap = std::abs(c - winner);
                    if (!neighbourhood && gap != 0)
                        continue;
                    const double influence = neighbourhood ? std::exp(-double(gap * gap) / (2.0 * radius * radius)) : 1.0;
                    if (influence < 1e-3)
                        continue;
                    for (int b = 0; b < bands; ++b)
                        weights[size_t(c) * bands + b] += rate * influence * (x[b] - weights[size_t(c) * bands + b]);
                }
            }
            progress(20.0 * (epoch + 1) / epochs);
        }
        return weights;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(NeuralNetworkCluster)
