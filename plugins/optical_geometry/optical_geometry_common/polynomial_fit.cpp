// Polynomial plane mappings: least squares and RANSAC.
#include "polynomial_fit.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <random>

namespace optgeo
{

namespace
{

void terms(int order, double x, double y, double* t)
{
    int k = 0;
    for (int n = 0; n <= order; ++n)
        for (int i = 0; i <= n; ++i)
            t[k++] = std::pow(x, n - i) * std::pow(y, i);
}

} // namespace

int termCount(int order)
{
    return (order + 1) * (order + 2) / 2;
}

void Polynomial::map(double x, double y, double* u, double* v) const
{
    double t[10];
    terms(order, (x - cx) / scale, (y - cy) / scale, t);
    *u = *v = 0;
    for (int k = 0; k < termCount(order); ++k)
    {
        *u += cu[k] * t[k];
        *v += cv[k] * t[k];
    }
}

bool fitPolynomial(const std::vector<TiePoint>& points, int order, Polynomial* out)
{
    const int n = int(points.size()), m = termCount(order);
    if (n < m)
        return false;
    Polynomial p;
    p.order = order;
    double minX = HUGE_VAL, maxX = -HUGE_VAL, minY = HUGE_VAL, maxY = -HUGE_VAL;
    for (const TiePoint& t : points)
    {
        p.cx += t.x / n;
        p.cy += t.y / n;
        minX = std::min(minX, t.x);
        maxX = std::max(maxX, t.x);
        minY = std::min(minY, t.y);
        maxY = std::max(maxY, t.y);
    }
    p.scale = std::max({maxX - minX, maxY - minY, 1.0}) / 2;
    Eigen::MatrixXd a(n, m);
    Eigen::VectorXd bu(n), bv(n);
    for (int i = 0; i < n; ++i)
    {
        bu[i] = points[i].u;
        bv[i] = points[i].v;
    }
    for (int i = 0; i < n; ++i)
    {
        double t[10];
        terms(order, (points[i].x - p.cx) / p.scale, (points[i].y - p.cy) / p.scale, t);
        for (int k = 0; k < m; ++k)
            a(i, k) = t[k];
    }
    const auto qr = a.colPivHouseholderQr();
    if (qr.rank() < m)
        return false;
    const Eigen::VectorXd u = qr.solve(bu), v = qr.solve(bv);
    p.cu.assign(u.data(), u.data() + m);
    p.cv.assign(v.data(), v.data() + m);
    *out = p;
    return true;
}

bool ransacPolynomial(const std::vector<TiePoint>& points, int order, double tolerance, int iterations,
                      Polynomial* out, std::vector<char>* inliers)
{
    const int n = int(points.size()), m = termCount(order);
    if (n < m)
        return false;
    std::mt19937 random(12345);
    std::vector<int> index(n);
    for (int i = 0; i < n; ++i)
        index[i] = i;
    std::vector<char> best;
    int bestCount = 0;
    const auto count = [&](const Polynomial& p, std::vector<char>* flags) {
        int c = 0;
        flags->assign(n, 0);
        for (int i = 0; i < n; ++i)
        {
            double u = 0, v = 0;
            p.map(points[i].x, points[i].y, &u, &v);
            if (std::hypot(u - points[i].u, v - points[i].v) <= tolerance)
            {
                (*flags)[i] = 1;
                ++c;
            }
        }
        return c;
    };
    std::vector<char> flags;
    for (int it = 0; it < (n == m ? 1 : iterations); ++it)
    {
        std::shuffle(index.begin(), index.end(), random);
        std::vector<TiePoint> sample;
        for (int k = 0; k < m; ++k)
            sample.push_back(points[index[k]]);
        Polynomial p;
        if (!fitPolynomial(sample, order, &p))
            continue;
        const int c = count(p, &flags);
        if (c > bestCount)
        {
            bestCount = c;
            best = flags;
        }
    }
    if (bestCount < m)
        return false;
    // Refit on the inliers, then take the inliers of the refit model once more.
    for (int round = 0; round < 2; ++round)
    {
        std::vector<TiePoint> kept;
        for (int i = 0; i < n; ++i)
            if (best[i])
                kept.push_back(points[i]);
        if (!fitPolynomial(kept, order, out))
            return false;
        if (count(*out, &best) < m)
            return false;
    }
    *inliers = best;
    return true;
}

} // namespace optgeo
