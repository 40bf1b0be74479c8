// Image-space bias correction of RPC models.
#include "bias_correction.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>

namespace optgeo
{

ImageBias fitImageBias(const std::vector<ImagePoint>& predicted, const std::vector<ImagePoint>& measured)
{
    ImageBias bias;
    const size_t n = std::min(predicted.size(), measured.size());
    if (n == 0)
        return bias;
    if (n < 3)
    {
        for (size_t i = 0; i < n; ++i)
        {
            bias.pixel[0] += (measured[i].pixel - predicted[i].pixel) / n;
            bias.line[0] += (measured[i].line - predicted[i].line) / n;
        }
        return bias;
    }
    Eigen::MatrixXd a(n, 3);
    Eigen::VectorXd dp(n), dl(n);
    for (size_t i = 0; i < n; ++i)
    {
        a.row(i) << 1.0, predicted[i].pixel, predicted[i].line;
        dp[i] = measured[i].pixel - predicted[i].pixel;
        dl[i] = measured[i].line - predicted[i].line;
    }
    const auto solver = a.colPivHouseholderQr();
    if (solver.rank() < 3)
    {
        // Points on one line: only a shift is determined.
        bias.pixel[0] = dp.mean();
        bias.line[0] = dl.mean();
        return bias;
    }
    const Eigen::Vector3d cp = solver.solve(dp), cl = solver.solve(dl);
    for (int k = 0; k < 3; ++k)
    {
        bias.pixel[k] = cp[k];
        bias.line[k] = cl[k];
    }
    bias.affine = true;
    return bias;
}

RpcModel foldBiasIntoModel(const RpcModel& model, const ImageBias& bias, double lonMin, double lonMax, double latMin,
                           double latMax, double heightMin, double heightMax, double* worstFit)
{
    // Numerator changes that reproduce the correction at a grid of ground points; the smallest such
    // change (least-squares, minimum norm) keeps the model as it was wherever the grid does not reach.
    constexpr int kPlan = 11, kHeights = 5;
    const int count = kPlan * kPlan * kHeights;
    Eigen::MatrixXd terms(count, 20);
    Eigen::VectorXd targetSample(count), targetLine(count);
    int row = 0;
    for (int k = 0; k < kHeights; ++k)
        for (int j = 0; j < kPlan; ++j)
            for (int i = 0; i < kPlan; ++i, ++row)
            {
                const double lon = lonMin + (lonMax - lonMin) * i / (kPlan - 1);
                const double lat = latMin + (latMax - latMin) * j / (kPlan - 1);
                const double h = heightMin + (heightMax - heightMin) * k / (kHeights - 1);
                double s = 0, l = 0;
                rpcGroundToImage(model, lon, lat, h, &s, &l);
                double cs = 0, cl = 0;
                bias.apply(s + 0.5, l + 0.5, &cs, &cl);
                const std::array<double, 20> t = rpcTerms((lon - model.longOff) / model.longScale,
                                                          (lat - model.latOff) / model.latScale,
                                                          (h - model.heightOff) / model.heightScale);
                double sd = 0, ld = 0;
                for (int c = 0; c < 20; ++c)
                {
                    terms(row, c) = t[c];
                    sd += model.sampDen[c] * t[c];
                    ld += model.lineDen[c] * t[c];
                }
                targetSample[row] = (cs - 0.5 - s) / model.sampScale * sd;
                targetLine[row] = (cl - 0.5 - l) / model.lineScale * ld;
            }
    const auto solver = terms.completeOrthogonalDecomposition();
    const Eigen::VectorXd ds = solver.solve(targetSample), dl = solver.solve(targetLine);
    RpcModel out = model;
    for (int c = 0; c < 20; ++c)
    {
        out.sampNum[c] += ds[c];
        out.lineNum[c] += dl[c];
    }
    double worst = 0;
    row = 0;
    for (int k = 0; k < kHeights; ++k)
        for (int j = 0; j < kPlan; ++j)
            for (int i = 0; i < kPlan; ++i, ++row)
            {
                const double lon = lonMin + (lonMax - lonMin) * i / (kPlan - 1);
                const double lat = latMin + (latMax - latMin) * j / (kPlan - 1);
                const double h = heightMin + (heightMax - heightMin) * k / (kHeights - 1);
                double s = 0, l = 0, s2 = 0, l2 = 0, cs = 0, cl = 0;
                rpcGroundToImage(model, lon, lat, h, &s, &l);
                rpcGroundToImage(out, lon, lat, h, &s2, &l2);
                bias.apply(s + 0.5, l + 0.5, &cs, &cl);
                worst = std::max({worst, std::fabs(s2 + 0.5 - cs), std::fabs(l2 + 0.5 - cl)});
            }
    if (worstFit)
        *worstFit = worst;
    return out;
}

} // namespace optgeo
