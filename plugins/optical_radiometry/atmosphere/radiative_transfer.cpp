// Successive orders of scattering for the azimuth-averaged radiance field, with the first order recomputed
// exactly for the scene's azimuth.
#include "radiative_transfer.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace atmosphere
{
namespace
{

constexpr int kStreams = 12;       // Gauss nodes per hemisphere
constexpr int kLegendreTerms = 48; // phase-function expansion kept
constexpr int kLayers = 48;
constexpr double kRayleighScaleHeight = 8.0, kAerosolScaleHeight = 2.0; // km
constexpr double kTopKm = 60.0;

struct Layer
{
    double depth = 0.0, top = 0.0; // thickness and optical depth of its top
    double albedo = 1.0;
    double rayleighShare = 1.0;   // of the scattering
    std::vector<double> legendre; // beta_l of the layer's phase function, beta_0 = 1
};

void gaussLegendre(int n, std::vector<double>* nodes, std::vector<double>* weights)
{
    // Nodes and weights on (0, 1), weights summing to 1.
    nodes->assign(size_t(n), 0.0);
    weights->assign(size_t(n), 0.0);
    for (int i = 0; i < n; ++i)
    {
        double x = std::cos(M_PI * (i + 0.75) / (n + 0.5)), dp = 1.0;
        for (int it = 0; it < 100; ++it)
        {
            double p0 = 1.0, p1 = x;
            for (int k = 2; k <= n; ++k)
            {
                const double p2 = ((2 * k - 1) * x * p1 - (k - 1) * p0) / k;
                p0 = p1;
                p1 = p2;
            }
            dp = n * (x * p1 - p0) / (x * x - 1.0);
            const double dx = p1 / dp;
            x -= dx;
            if (std::fabs(dx) < 1e-15)
                break;
        }
        (*nodes)[size_t(i)] = 0.5 * (1.0 + x);
        (*weights)[size_t(i)] = 1.0 / ((1.0 - x * x) * dp * dp);
    }
}

void legendreValues(double x, int terms, double* out)
{
    out[0] = 1.0;
    if (terms > 1)
        out[1] = x;
    for (int l = 2; l < terms; ++l)
        out[l] = ((2 * l - 1) * x * out[l - 1] - (l - 1) * out[l - 2]) / l;
}

double henyeyGreenstein(double g, double cosTheta)
{
    return (1.0 - g * g) / std::pow(1.0 + g * g - 2.0 * g * cosTheta, 1.5);
}

double aerosolPhase(const ColumnOptics& c, double cosTheta)
{
    return c.forwardWeight * henyeyGreenstein(c.forwardAsymmetry, cosTheta) +
           (1.0 - c.forwardWeight) * henyeyGreenstein(-c.backwardAsymmetry, cosTheta);
}

double rayleighPhase(double cosTheta)
{
    return 0.75 * (1.0 + cosTheta * cosTheta);
}

// Cumulative optical depth above height z (km).
double depthAbove(const ColumnOptics& c, double z)
{
    return c.rayleighDepth * std::exp(-z / kRayleighScaleHeight) + c.aerosolDepth * std::exp(-z / kAerosolScaleHeight);
}

// Layers of equal optical thickness from the top down.
std::vector<Layer> makeLayers(const ColumnOptics& c)
{
    const double total = c.rayleighDepth + c.aerosolDepth;
    std::vector<Layer> layers(kLayers);
    double zTop = kTopKm;
    for (int k = 0; k < kLayers; ++k)
    {
        const double target = total * (k + 1) / kLayers;
        double lo = 0.0, hi = zTop;
        for (int it = 0; it < 60; ++it)
        {
            const double mid = 0.5 * (lo + hi);
            (depthAbove(c, mid) > target ? lo : hi) = mid;
        }
        const double zBottom = k + 1 == kLayers ? 0.0 : 0.5 * (lo + hi);
        const double rayleigh =
            c.rayleighDepth * (std::exp(-zBottom / kRayleighScaleHeight) - std::exp(-zTop / kRayleighScaleHeight));
        const double aerosol =
            c.aerosolDepth * (std::exp(-zBottom / kAerosolScaleHeight) - std::exp(-zTop / kAerosolScaleHeight));
        Layer& layer = layers[size_t(k)];
        layer.depth = rayleigh + aerosol;
        layer.top = k == 0 ? 0.0 : layers[size_t(k - 1)].top + layers[size_t(k - 1)].depth;
        const double scattering = rayleigh + c.aerosolAlbedo * aerosol;
        layer.albedo = layer.depth > 0 ? scattering / layer.depth : 0.0;
        layer.rayleighShare = scattering > 0 ? rayleigh / scattering : 1.0;
        layer.legendre.assign(kLegendreTerms, 0.0);
        const double f = c.forwardWeight, g1 = c.forwardAsymmetry, g2 = -c.backwardAsymmetry;
        for (int l = 0; l < kLegendreTerms; ++l)
        {
            const double aerosolBeta = (2 * l + 1) * (f * std::pow(g1, l) + (1.0 - f) * std::pow(g2, l));
            const double rayleighBeta = l == 0 ? 1.0 : l == 2 ? 0.5 : 0.0;
            layer.legendre[size_t(l)] = layer.rayleighShare * rayleighBeta + (1.0 - layer.rayleighShare) * aerosolBeta;
        }
        zTop = zBottom;
    }
    return layers;
}

// The azimuth-averaged field on a set of directions: mu[d] > 0 travels down, mu[d] < 0 up; weight[d] is the
// quadrature weight of d over its hemisphere (0 for directions only evaluated).
class OrdersSolver
{
public:
    OrdersSolver(const std::vector<Layer>& layers, std::vector<double> mu, std::vector<double> weight)
        : m_layers(layers), m_mu(std::move(mu)), m_weight(std::move(weight))
    {
        const size_t n = m_mu.size();
        std::vector<double> pl(n * kLegendreTerms);
        for (size_t d = 0; d < n; ++d)
            legendreValues(m_mu[d], kLegendreTerms, &pl[d * kLegendreTerms]);
        // phase[k][d][e] = sum_l beta_l P_l(mu_d) P_l(mu_e)
        m_phase.resize(layers.size());
        for (size_t k = 0; k < layers.size(); ++k)
        {
            m_phase[k].assign(n * n, 0.0);
            for (size_t d = 0; d < n; ++d)
                for (size_t e = 0; e < n; ++e)
                {
                    double sum = 0.0;
                    for (int l = 0; l < kLegendreTerms; ++l)
                        sum += layers[k].legendre[size_t(l)] * pl[d * kLegendreTerms + size_t(l)] *
                               pl[e * kLegendreTerms + size_t(l)];
                    m_phase[k][d * n + e] = sum;
                }
        }
    }

    // Azimuth-averaged phase between direction d and an arbitrary direction cosine.
    double phaseTo(size_t k, size_t d, double mu) const
    {
        double a[kLegendreTerms], b[kLegendreTerms];
        legendreValues(m_mu[d], kLegendreTerms, a);
        legendreValues(mu, kLegendreTerms, b);
        double sum = 0.0;
        for (int l = 0; l < kLegendreTerms; ++l)
            sum += m_layers[k].legendre[size_t(l)] * a[l] * b[l];
        return sum;
    }

    // Sum of all orders given the first-order layer sources source[k][d] (at layer middles). Returns the
    // field on the levels (level k = top of layer k), and the first order alone in firstOrder.
    std::vector<double> solve(std::vector<double> source, std::vector<double>* firstOrder) const
    {
        const size_t n = m_mu.size(), levels = m_layers.size() + 1;
        std::vector<double> total(levels * n, 0.0), order(levels * n);
        for (int pass = 0; pass < 400; ++pass)
        {
            transport(source, &order);
            if (pass == 0 && firstOrder)
                *firstOrder = order;
            double largest = 0.0;
            for (size_t i = 0; i < total.size(); ++i)
            {
                total[i] += order[i];
                largest = std::max(largest, std::fabs(order[i]));
            }
            if (largest < 1e-9)
                break;
            scatter(order, &source);
        }
        return total;
    }

    size_t directions() const { return m_mu.size(); }
    double mu(size_t d) const { return m_mu[d]; }
    double weight(size_t d) const { return m_weight[d]; }

private:
    // Radiance on the levels from layer sources, nothing entering at the boundaries.
    void transport(const std::vector<double>& source, std::vector<double>* field) const
    {
        const size_t n = m_mu.size(), layers = m_layers.size();
        std::fill(field->begin(), field->end(), 0.0);
        for (size_t d = 0; d < n; ++d)
        {
            const double m = std::fabs(m_mu[d]);
            if (m_mu[d] > 0)
                for (size_t k = 0; k < layers; ++k)
                {
                    const double t = std::exp(-m_layers[k].depth / m);
                    (*field)[(k + 1) * n + d] = (*field)[k * n + d] * t + source[k * n + d] * (1.0 - t);
                }
            else
                for (size_t k = layers; k-- > 0;)
                {
                    const double t = std::exp(-m_layers[k].depth / m);
                    (*field)[k * n + d] = (*field)[(k + 1) * n + d] * t + source[k * n + d] * (1.0 - t);
                }
        }
    }

    // Layer sources of the next order from the field of this one.
    void scatter(const std::vector<double>& field, std::vector<double>* source) const
    {
        const size_t n = m_mu.size();
        for (size_t k = 0; k < m_layers.size(); ++k)
        {
            const double* up = &field[k * n];
            const double* down = &field[(k + 1) * n];
            for (size_t d = 0; d < n; ++d)
            {
                double sum = 0.0;
                for (size_t e = 0; e < n; ++e)
                    if (m_weight[e] > 0)
                        sum += m_weight[e] * m_phase[k][d * n + e] * 0.5 * (up[e] + down[e]);
                (*source)[k * n + d] = 0.5 * m_layers[k].albedo * sum;
            }
        }
    }

    const std::vector<Layer>& m_layers;
    std::vector<double> m_mu, m_weight;
    std::vector<std::vector<double>> m_phase;
};

// Quadrature directions in both hemispheres plus the given extra direction cosines (weight 0).
OrdersSolver makeSolver(const std::vector<Layer>& layers, std::initializer_list<double> extra)
{
    std::vector<double> nodes, weights, mu, weight;
    gaussLegendre(kStreams, &nodes, &weights);
    for (int sign : {1, -1})
    {
        for (int i = 0; i < kStreams; ++i)
        {
            mu.push_back(sign * nodes[size_t(i)]);
            weight.push_back(weights[size_t(i)]);
        }
        for (double e : extra)
        {
            mu.push_back(sign * e);
            weight.push_back(0.0);
        }
    }
    return OrdersSolver(layers, mu, weight);
}

struct BeamSolution
{
    double transmittance = 1.0; // direct plus diffuse at the surface, per unit of incident flux
    double pathAzimuthAveraged = 0.0, firstOrderAveraged = 0.0; // reflectance in direction viewMu
};

// Sun at muSun over a black surface; reflectance leaving the top towards viewMu (upward).
BeamSolution solveBeam(const std::vector<Layer>& layers, double muSun, double viewMu)
{
    const OrdersSolver solver = makeSolver(layers, {viewMu, muSun});
    const size_t n = solver.directions(), levels = layers.size() + 1;
    std::vector<double> source(layers.size() * n);
    // Incident flux pi per unit area normal to the beam: the first-order source is albedo / 4 * P * exp.
    for (size_t k = 0; k < layers.size(); ++k)
    {
        const double beam = std::exp(-(layers[k].top + 0.5 * layers[k].depth) / muSun);
        for (size_t d = 0; d < n; ++d)
            source[k * n + d] = 0.25 * layers[k].albedo * solver.phaseTo(k, d, muSun) * beam;
    }
    std::vector<double> first;
    const std::vector<double> field = solver.solve(source, &first);
    const double bottomDepth = layers.back().top + layers.back().depth;
    double diffuse = 0.0;
    for (size_t d = 0; d < n; ++d)
        if (solver.mu(d) > 0)
            diffuse += solver.weight(d) * solver.mu(d) * field[(levels - 1) * n + d];
    BeamSolution out;
    out.transmittance = std::exp(-bottomDepth / muSun) + 2.0 * diffuse / muSun;
    // The view direction is the first extra direction of the upward hemisphere.
    const size_t view = size_t(kStreams + 2 + kStreams);
    out.pathAzimuthAveraged = field[view] / muSun;
    out.firstOrderAveraged = first[view] / muSun;
    return out;
}

// Reflectance of the atmosphere seen from below under isotropic illumination from the surface.
double sphericalAlbedo(const std::vector<Layer>& layers)
{
    const OrdersSolver solver = makeSolver(layers, {});
    const size_t n = solver.directions(), levels = layers.size() + 1;
    std::vector<double> source(layers.size() * n);
    const double bottom = layers.back().top + layers.back().depth;
    for (size_t k = 0; k < layers.size(); ++k)
    {
        const double middle = layers[k].top + 0.5 * layers[k].depth;
        for (size_t d = 0; d < n; ++d)
        {
            double sum = 0.0;
            for (size_t e = 0; e < n; ++e)
                if (solver.mu(e) < 0)
                    sum += solver.weight(e) * solver.phaseTo(k, d, solver.mu(e)) *
                           std::exp(-(bottom - middle) / -solver.mu(e));
            source[k * n + d] = 0.5 * layers[k].albedo * sum;
        }
    }
    const std::vector<double> field = solver.solve(source, nullptr);
    double reflected = 0.0;
    for (size_t d = 0; d < n; ++d)
        if (solver.mu(d) > 0)
            reflected += solver.weight(d) * solver.mu(d) * field[(levels - 1) * n + d];
    return 2.0 * reflected;
}

// First-order reflectance for the exact scattering angle.
double singleScattering(const std::vector<Layer>& layers, const ColumnOptics& c, double muSun, double muView,
                        double cosTheta)
{
    const double aerosol = aerosolPhase(c, cosTheta), rayleigh = rayleighPhase(cosTheta);
    double sum = 0.0;
    for (const Layer& layer : layers)
    {
        const double phase = layer.rayleighShare * rayleigh + (1.0 - layer.rayleighShare) * aerosol;
        const double middle = layer.top + 0.5 * layer.depth;
        sum += 0.25 * layer.albedo * phase * std::exp(-middle / muSun) * std::exp(-layer.top / muView) *
               (1.0 - std::exp(-layer.depth / muView));
    }
    return sum / muSun;
}

} // namespace

ScatteringTerms scatteringTerms(const ColumnOptics& column, const Geometry& geometry)
{
    constexpr double kDeg = M_PI / 180.0;
    const double muSun = std::cos(geometry.sunZenithDeg * kDeg);
    const double muView = std::max(std::cos(geometry.viewZenithDeg * kDeg), 1e-3);
    ScatteringTerms terms;
    if (column.rayleighDepth + column.aerosolDepth <= 0)
        return terms;
    const std::vector<Layer> layers = makeLayers(column);
    const BeamSolution sun = solveBeam(layers, muSun, muView);
    const BeamSolution view = solveBeam(layers, muView, muView);
    const double cosTheta = -muSun * muView - std::sin(geometry.sunZenithDeg * kDeg) *
                                                  std::sin(geometry.viewZenithDeg * kDeg) *
                                                  std::cos(geometry.relativeAzimuthDeg * kDeg);
    terms.pathReflectance =
        sun.pathAzimuthAveraged - sun.firstOrderAveraged + singleScattering(layers, column, muSun, muView, cosTheta);
    terms.downTransmittance = sun.transmittance;
    terms.upTransmittance = view.transmittance;
    terms.sphericalAlbedo = sphericalAlbedo(layers);
    return terms;
}

} // namespace atmosphere
