// Plug-in "DistanceClassification": minimum distance to the ROI class means; Euclidean, or Mahalanobis
// (regularised class covariance) when the record's option is 1.
#include "plugin_base.h"
#include "supervised_models.h"

namespace
{

class DistanceClassification : public algokit::PluginBase
{
public:
    DistanceClassification() : PluginBase(QStringLiteral("DistanceClassification")) {}

protected:
    bool run() override
    {
        const stSupervisedClassificationInfo& info = *params<stSupervisedClassificationInfo*>();
        const std::vector<algokit::GaussianClass> models = algokit::gaussianClasses(info);
        const int bands = int(info.bands.size());
        auto report = [&](double done) { progress(100.0 * done); };
        if (info.option == 1)
            algokit::classifySupervised(*this, info, [&](int c, const float* x, double* scratch) {
                return algokit::mahalanobis(models[size_t(c)], x, bands, scratch);
            }, report);
        else
            algokit::classifySupervised(*this, info, [&](int c, const float* x, double*) {
                double distance = 0.0;
                for (int b = 0; b < bands; ++b)
                {
                    const double d = x[b] - models[size_t(c)].mean[size_t(b)];
                    distance += d * d;
                }
                return distance;
            }, report);
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(DistanceClassification)
