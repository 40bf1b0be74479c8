// Plug-in "MLClassification": Gaussian maximum likelihood with equal priors; each pixel goes to the class of
// largest log-likelihood, -(ln|S| + (x - m)^T S^-1 (x - m)) / 2, with a regularised covariance S.
#include "plugin_base.h"
#include "supervised_models.h"

namespace
{

class MLClassification : public algokit::PluginBase
{
public:
    MLClassification() : PluginBase(QStringLiteral("MLClassification")) {}

protected:
    bool run() override
    {
        const stSupervisedClassificationInfo& info = *params<stSupervisedClassificationInfo*>();
        const std::vector<algokit::GaussianClass> models = algokit::gaussianClasses(info);
        const int bands = int(info.bands.size());
        algokit::classifySupervised(*this, info, [&](int c, const float* x, double* scratch) {
            return models[size_t(c)].logDeterminant + algokit::mahalanobis(models[size_t(c)], x, bands, scratch);
        }, [&](double done) { progress(100.0 * done); });
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MLClassification)
