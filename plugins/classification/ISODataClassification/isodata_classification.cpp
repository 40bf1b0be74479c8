// Plug-in "ISODataClassification": ISODATA clustering. Every iteration assigns all pixels (streamed), dissolves
// classes below the minimal size, then either splits classes whose largest band deviation exceeds the limit
// (while there are few classes, or on odd iterations below twice the expected count) or merges up to the
// allowed number of pairs of centres closer than the minimal distance. A last pass assigns every pixel to
// the final centres; classes left empty are dropped from the output.
#include "classification_io.h"
#include "plugin_base.h"
#include "records/classification_records.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr size_t kSeedSample = 100000;
constexpr int kMaxClasses = 255;
// Centres moving less than this fraction of the data range count as settled.
constexpr double kSettledShift = 1e-4;

struct ClassState
{
    std::vector<double> centre;
    std::vector<double> deviation;
    std::int64_t count = 0;
};

class ISODataClassification : public algokit::PluginBase
{
public:
    ISODataClassification() : PluginBase(QStringLiteral("ISODataClassification")) {}

protected:
    bool run() override
    {
        const stInfoClassificationISO& info = params<stInfoClassificationISO>();
        if (info.initialClasses < 2 || info.initialClasses > kMaxClasses || info.expectedClasses < 2 ||
            info.expectedClasses > kMaxClasses)
            return fail(QStringLiteral("The numbers of classes must be from 2 to 255."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        algokit::checkBandIndices(source.get(), info.bands);
        const int bands = int(info.bands.size());
        const int iterations = std::max(1, info.maxIterations);

        const std::vector<float> sample = algokit::samplePixels(source.get(), info.bands, kSeedSample);
        const double settled = kSettledShift * dataRange(sample, bands);
        std::vector<double> centres = algokit::seedCentres(sample, bands, info.initialClasses);
        algokit::LabelStore labels(source->GetRasterXSize(), source->GetRasterYSize());
        const double passes = iterations + 1;
        for (int iteration = 1; iteration <= iterations; ++iteration)
        {
            const algokit::ClusterSums sums = algokit::assignPass(source.get(), info.bands, centres, labels, true, [&](double done) {
                progress(95.0 * (iteration - 1 + done) / passes);
            });
            std::vector<ClassState> classes = classStates(sums, info.minClassSize);
            const std::vector<double> previous = centres;
            bool reshaped = classes.size() != centres.size() / size_t(bands);
            if (iteration < iterations)
            {
                const int n = int(classes.size());
                if (n <= info.expectedClasses / 2 || (iteration % 2 == 1 && n < 2 * info.expectedClasses))
                    reshaped |= split(classes, info);
                else
                    reshaped |= merge(classes, info);
            }
            centres.clear();
            for (const ClassState& state : classes)
                centres.insert(centres.end(), state.centre.begin(), state.centre.end());
            if (!reshaped && maxShift(previous, centres) <= settled)
                break;
        }

        const algokit::ClusterSums final = algokit::assignPass(source.get(), info.bands, centres, labels, false,
                                                               [&](double done) { progress(95.0 * (passes - 1 + done) / passes); });
        // Empty classes are dropped; the others keep their order.
        std::vector<unsigned char> map(256, 0);
        int kept = 0;
        for (int c = 0; c < final.classes; ++c)
            if (final.counts[size_t(c)] > 0)
                map[size_t(c)] = static_cast<unsigned char>(kept++);
        algokit::OutputRaster output = algokit::createClassRaster(info.outputFile, source.get(), algokit::distinctColours(kept),
                                                                  algokit::defaultClassNames(kept));
        labels.copyTo(output.band(0), [&](double done) { progress(95.0 + 5.0 * done); }, map);
        output.commit();
        progress(100.0);
        return true;
    }

private:
    static double dataRange(const std::vector<float>& sample, int bands)
    {
        double range = 0.0;
        for (int b = 0; b < bands; ++b)
        {
            float low = std::numeric_limits<float>::max(), high = std::numeric_limits<float>::lowest();
            for (size_t p = b; p < sample.size(); p += size_t(bands))
                low = std::min(low, sample[p]), high = std::max(high, sample[p]);
            if (high >= low)
                range = std::max(range, double(high) - low);
        }
        return range;
    }

    static double maxShift(const std::vector<double>& before, const std::vector<double>& after)
    {
        double shift = 0.0;
        for (size_t i = 0; i < before.size() && i < after.size(); ++i)
            shift = std::max(shift, std::fabs(before[i] - after[i]));
        return shift;
    }

    // Means and deviations of the classes large enough to keep (the largest is kept if none is).
    static std::vector<ClassState> classStates(const algokit::ClusterSums& sums, int minClassSize)
    {
        std::vector<ClassState> classes;
        int largest = 0;
        for (int c = 0; c < sums.classes; ++c)
            if (sums.counts[size_t(c)] > sums.counts[size_t(largest)])
                largest = c;
        for (int c = 0; c < sums.classes; ++c)
        {
            const std::int64_t count = sums.counts[size_t(c)];
            if (count == 0 || (count < minClassSize && c != largest))
                continue;
            ClassState state;
            state.count = count;
            for (int b = 0; b < sums.bands; ++b)
            {
                const double mean = sums.sums[size_t(c) * sums.bands + b] / double(count);
                const double variance = sums.squares[size_t(c) * sums.bands + b] / double(count) - mean * mean;
                state.centre.push_back(mean);
                state.deviation.push_back(std::sqrt(std::max(variance, 0.0)));
            }
            classes.push_back(std::move(state));
        }
        return classes;
    }

    // A class whose largest band deviation exceeds the limit, and large enough for two classes, becomes two
    // classes one deviation either side of its centre along that band.
    static bool split(std::vector<ClassState>& classes, const stInfoClassificationISO& info)
    {
        bool changed = false;
        const size_t before = classes.size();
        for (size_t c = 0; c < before && int(classes.size()) < std::min(kMaxClasses, 2 * info.expectedClasses); ++c)
        {
            ClassState& state = classes[c];
            const auto widest = std::max_element(state.deviation.begin(), state.deviation.end());
            const size_t band = size_t(widest - state.deviation.begin());
            if (*widest <= info.maxStdDev || state.count < 2 * std::int64_t(info.minClassSize + 1))
                continue;
            ClassState other = state;
            state.centre[band] -= *widest;
            other.centre[band] += *widest;
            state.count /= 2;
            other.count = state.count;
            classes.push_back(std::move(other));
            changed = true;
        }
        return changed;
    }

    // The closest pairs of centres below the minimal distance, each class in at most one pair, become one
    // class at their pixel-weighted mean.
    static bool merge(std::vector<ClassState>& classes, const stInfoClassificationISO& info)
    {
        struct Pair
        {
            double distance;
            size_t first;
            size_t second;
        };
        std::vector<Pair> pairs;
        for (size_t i = 0; i < classes.size(); ++i)
            for (size_t j = i + 1; j < classes.size(); ++j)
            {
                double squared = 0.0;
                for (size_t b = 0; b < classes[i].centre.size(); ++b)
                    squared += std::pow(classes[i].centre[b] - classes[j].centre[b], 2);
                const double distance = std::sqrt(squared);
                if (distance < info.minDistance)
                    pairs.push_back({distance, i, j});
            }
        std::sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.distance < b.distance; });
        std::vector<bool> used(classes.size(), false), removed(classes.size(), false);
        int merged = 0;
        for (const Pair& pair : pairs)
        {
            if (merged >= info.maxMergePairs || int(classes.size()) - merged <= 2)
                break;
            if (used[pair.first] || used[pair.second])
                continue;
            ClassState& a = classes[pair.first];
            const ClassState& b = classes[pair.second];
            const double total = double(a.count + b.count);
            for (size_t d = 0; d < a.centre.size(); ++d)
                a.centre[d] = (a.centre[d] * double(a.count) + b.centre[d] * double(b.count)) / total;
            a.count += b.count;
            used[pair.first] = used[pair.second] = true;
            removed[pair.second] = true;
            ++merged;
        }
        std::vector<ClassState> kept;
        for (size_t c = 0; c < classes.size(); ++c)
            if (!removed[c])
                kept.push_back(std::move(classes[c]));
        classes.swap(kept);
        return merged > 0;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ISODataClassification)
