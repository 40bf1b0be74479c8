// Pan-sharpening models: fitting at the multispectral scale, application at the pan scale.
#include "fusion_model.h"

#include "grid_resample.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>

namespace optgeo
{

namespace
{

// Means and covariance of the multispectral bands followed by the pan, and the raw (uncentred)
// cross moments used by the intensity regression, over pixels valid in every input.
struct Moments
{
    Eigen::VectorXd mean;
    Eigen::MatrixXd cov;
    Eigen::MatrixXd raw; // E[x x^T]
    size_t valid = 0;
};

Moments moments(const float* pan, const std::vector<const float*>& ms, size_t count)
{
    const int n = int(ms.size()) + 1;
    Moments m;
    Eigen::VectorXd sum = Eigen::VectorXd::Zero(n);
    Eigen::MatrixXd prod = Eigen::MatrixXd::Zero(n, n);
    Eigen::VectorXd x(n);
    for (size_t p = 0; p < count; ++p)
    {
        bool ok = std::isfinite(pan[p]);
        for (int b = 0; b + 1 < n && ok; ++b)
        {
            x[b] = ms[b][p];
            ok = std::isfinite(ms[b][p]);
        }
        if (!ok)
            continue;
        x[n - 1] = pan[p];
        sum += x;
        prod.selfadjointView<Eigen::Lower>().rankUpdate(x);
        ++m.valid;
    }
    if (m.valid == 0)
    {
        m.mean = Eigen::VectorXd::Zero(n);
        m.cov = m.raw = Eigen::MatrixXd::Zero(n, n);
        return m;
    }
    m.raw = prod.selfadjointView<Eigen::Lower>();
    m.raw /= double(m.valid);
    m.mean = sum / double(m.valid);
    m.cov = m.raw - m.mean * m.mean.transpose();
    return m;
}

// Non-negative least-squares weights of the bands that best reproduce the degraded pan (no
// intercept): bands whose weight comes out negative are dropped and the rest solved again. Equal
// weights when nothing positive remains.
std::vector<double> intensityWeights(const Moments& m, int bands)
{
    std::vector<int> active(bands);
    for (int i = 0; i < bands; ++i)
        active[i] = i;
    std::vector<double> weights(bands, 0.0);
    while (!active.empty())
    {
        const int k = int(active.size());
        Eigen::MatrixXd a(k, k);
        Eigen::VectorXd b(k);
        for (int i = 0; i < k; ++i)
        {
            b[i] = m.raw(active[i], bands);
            for (int j = 0; j < k; ++j)
                a(i, j) = m.raw(active[i], active[j]);
        }
        const Eigen::VectorXd w = a.ldlt().solve(b);
        int worst = -1;
        for (int i = 0; i < k; ++i)
            if (!std::isfinite(w[i]) || w[i] < 0.0)
                if (worst < 0 || !std::isfinite(w[i]) || w[i] < w[worst])
                    worst = i;
        if (worst < 0)
        {
            for (int i = 0; i < k; ++i)
                weights[active[i]] = w[i];
            return weights;
        }
        active.erase(active.begin() + worst);
    }
    std::fill(weights.begin(), weights.end(), 1.0 / bands);
    return weights;
}

double deviation(double variance)
{
    return variance > 0.0 ? std::sqrt(variance) : 0.0;
}

// Pan gain and offset that give the pan the mean and deviation of the intensity.
void matchPan(FusionModel& model, double intensityMean, double intensityVar, double panMean, double panVar)
{
    const double sp = deviation(panVar);
    model.panGain = sp > 0.0 ? deviation(intensityVar) / sp : 1.0;
    model.panOffset = intensityMean - model.panGain * panMean;
}

int oddAtLeastOne(double size)
{
    return std::max(1, int(size) | 1);
}

} // namespace

int FusionModel::lowPassRadius() const
{
    if (gaussSigma > 0.0)
        return int(gaussianKernel(gaussSigma).size() / 2);
    return boxSize / 2;
}

FusionModel fitFusionModel(FusionMethod method, double ratio, const float* panLow, const std::vector<const float*>& ms,
                           size_t count, const std::vector<char>& cnsGroup)
{
    FusionModel model;
    model.method = method;
    const int n = int(ms.size());
    model.bands = n;
    model.gains.assign(n, 1.0);
    const Moments m = moments(panLow, ms, count);
    const Eigen::MatrixXd cms = m.cov.topLeftCorner(n, n);
    const double panMean = m.mean[n], panVar = m.cov(n, n);

    switch (method)
    {
    case FusionMethod::Brovey:
        model.weights = intensityWeights(m, n);
        break;
    case FusionMethod::GIHS:
    case FusionMethod::GramSchmidt:
    {
        model.weights = intensityWeights(m, n);
        const Eigen::Map<const Eigen::VectorXd> w(model.weights.data(), n);
        const double iMean = w.dot(m.mean.head(n));
        const double iVar = w.dot(cms * w);
        matchPan(model, iMean, iVar, panMean, panVar);
        if (method == FusionMethod::GramSchmidt)
        {
            const Eigen::VectorXd cov = cms * w;
            for (int i = 0; i < n; ++i)
                model.gains[i] = iVar > 0.0 ? cov[i] / iVar : 1.0;
        }
        break;
    }
    case FusionMethod::PCA:
    {
        Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(cms);
        Eigen::VectorXd v = solver.eigenvectors().col(n - 1); // largest eigenvalue comes last
        if (v.sum() < 0.0)
            v = -v;
        model.weights.assign(v.data(), v.data() + n);
        model.gains = model.weights;
        model.intensityOffset = -v.dot(m.mean.head(n));
        matchPan(model, 0.0, std::max(0.0, solver.eigenvalues()[n - 1]), panMean, panVar);
        break;
    }
    case FusionMethod::HPF:
    case FusionMethod::MTFGLP:
        for (int i = 0; i < n; ++i)
        {
            const double sp = deviation(panVar);
            model.gains[i] = sp > 0.0 ? deviation(cms(i, i)) / sp : 0.0;
        }
        if (method == FusionMethod::HPF)
            model.boxSize = oddAtLeastOne(2.0 * std::round(ratio) + 1.0);
        else
            model.gaussSigma = std::max(0.5, ratio * std::sqrt(-2.0 * std::log(kNyquistGain)) / M_PI);
        break;
    case FusionMethod::SFIM:
        model.boxSize = oddAtLeastOne(2.0 * std::floor(ratio / 2.0) + 1.0);
        break;
    case FusionMethod::CNS:
        model.inGroup = cnsGroup;
        model.inGroup.resize(n, 1);
        break;
    }
    return model;
}

void lowPassPan(const FusionModel& model, const float* pan, int cols, int rows, float* dst)
{
    if (model.gaussSigma > 0.0)
        gaussianFilter(pan, cols, rows, model.gaussSigma, dst);
    else
        boxFilter(pan, cols, rows, model.boxSize, dst);
}

void fusePixels(const FusionModel& model, const float* pan, const float* panLow, const std::vector<const float*>& ms,
                size_t count, const std::vector<float*>& out)
{
    const int n = model.bands;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<double> v(n);
    int groupSize = 0;
    for (char in : model.inGroup)
        groupSize += in ? 1 : 0;

    for (size_t p = 0; p < count; ++p)
    {
        bool ok = std::isfinite(pan[p]) && (!panLow || std::isfinite(panLow[p]));
        for (int b = 0; b < n && ok; ++b)
        {
            v[b] = ms[b][p];
            ok = std::isfinite(ms[b][p]);
        }
        if (!ok)
        {
            for (int b = 0; b < n; ++b)
                out[b][p] = nan;
            continue;
        }
        const double P = pan[p];
        switch (model.method)
        {
        case FusionMethod::Brovey:
        {
            double intensity = 0.0;
            for (int b = 0; b < n; ++b)
                intensity += model.weights[b] * v[b];
            const double factor = intensity != 0.0 ? P / intensity : 0.0;
            for (int b = 0; b < n; ++b)
                out[b][p] = float(v[b] * factor);
            break;
        }
        case FusionMethod::GIHS:
        case FusionMethod::GramSchmidt:
        case FusionMethod::PCA:
        {
            double intensity = model.intensityOffset;
            for (int b = 0; b < n; ++b)
                intensity += model.weights[b] * v[b];
            const double detail = model.panGain * P + model.panOffset - intensity;
            for (int b = 0; b < n; ++b)
                out[b][p] = float(v[b] + model.gains[b] * detail);
            break;
        }
        case FusionMethod::HPF:
        case FusionMethod::MTFGLP:
        {
            const double detail = P - panLow[p];
            for (int b = 0; b < n; ++b)
                out[b][p] = float(v[b] + model.gains[b] * detail);
            break;
        }
        case FusionMethod::SFIM:
        {
            const double factor = panLow[p] != 0.0f ? P / panLow[p] : 1.0;
            for (int b = 0; b < n; ++b)
                out[b][p] = float(v[b] * factor);
            break;
        }
        case FusionMethod::CNS:
        {
            double groupSum = 0.0;
            for (int b = 0; b < n; ++b)
                if (model.inGroup[b])
                    groupSum += v[b];
            const double factor = groupSum != 0.0 ? P * groupSize / groupSum : 0.0;
            for (int b = 0; b < n; ++b)
                out[b][p] = float(model.inGroup[b] ? v[b] * factor : v[b]);
            break;
        }
        }
    }
}

} // namespace optgeo
