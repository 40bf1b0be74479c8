// Quality figures of fused images: ERGAS, spectral angle, Q2n.
#include "fusion_quality.h"

#include <cmath>
#include <limits>

namespace optgeo
{

namespace
{

bool validPixel(const Bands& a, const Bands& b, size_t p)
{
    for (size_t i = 0; i < a.size(); ++i)
        if (!std::isfinite(a[i][p]) || !std::isfinite(b[i][p]))
            return false;
    return true;
}

} // namespace

double ergas(const Bands& reference, const Bands& fused, size_t count, double ratio)
{
    const size_t n = reference.size();
    std::vector<double> sq(n, 0.0), sum(n, 0.0);
    size_t valid = 0;
    for (size_t p = 0; p < count; ++p)
    {
        if (!validPixel(reference, fused, p))
            continue;
        ++valid;
        for (size_t b = 0; b < n; ++b)
        {
            const double d = double(fused[b][p]) - reference[b][p];
            sq[b] += d * d;
            sum[b] += reference[b][p];
        }
    }
    if (valid == 0 || n == 0)
        return std::numeric_limits<double>::quiet_NaN();
    double total = 0.0;
    for (size_t b = 0; b < n; ++b)
    {
        const double mean = sum[b] / valid;
        const double rmse = std::sqrt(sq[b] / valid);
        total += mean != 0.0 ? (rmse / mean) * (rmse / mean) : 0.0;
    }
    return 100.0 / ratio * std::sqrt(total / n);
}

double spectralAngleDegrees(const Bands& reference, const Bands& fused, size_t count)
{
    double total = 0.0;
    size_t valid = 0;
    for (size_t p = 0; p < count; ++p)
    {
        if (!validPixel(reference, fused, p))
            continue;
        double dot = 0.0, rr = 0.0, ff = 0.0;
        for (size_t b = 0; b < reference.size(); ++b)
        {
            dot += double(reference[b][p]) * fused[b][p];
            rr += double(reference[b][p]) * reference[b][p];
            ff += double(fused[b][p]) * fused[b][p];
        }
        if (rr <= 0.0 || ff <= 0.0)
            continue;
        total += std::acos(std::max(-1.0, std::min(1.0, dot / std::sqrt(rr * ff))));
        ++valid;
    }
    return valid ? total / valid * 180.0 / M_PI : std::numeric_limits<double>::quiet_NaN();
}

namespace
{

constexpr int kMaxDims = 8;

// Cayley-Dickson product of n <= kMaxDims components: (p, q)(r, s) = (p r - s* q, s p + q r*).
void product(const double* a, const double* b, double* out, int n)
{
    if (n == 1)
    {
        out[0] = a[0] * b[0];
        return;
    }
    const int h = n / 2;
    const double *p = a, *q = a + h, *r = b, *s = b + h;
    double sc[kMaxDims / 2] = {}, rc[kMaxDims / 2] = {}, t1[kMaxDims / 2], t2[kMaxDims / 2];
    for (int i = 0; i < h; ++i)
    {
        sc[i] = i ? -s[i] : s[i];
        rc[i] = i ? -r[i] : r[i];
    }
    product(p, r, t1, h);
    product(sc, q, t2, h);
    for (int i = 0; i < h; ++i)
        out[i] = t1[i] - t2[i];
    product(s, p, t1, h);
    product(q, rc, t2, h);
    for (int i = 0; i < h; ++i)
        out[h + i] = t1[i] + t2[i];
}

double norm(const double* a, int n)
{
    double s = 0.0;
    for (int i = 0; i < n; ++i)
        s += a[i] * a[i];
    return std::sqrt(s);
}

} // namespace

std::vector<double> hypercomplexConjugate(std::vector<double> a)
{
    for (size_t i = 1; i < a.size(); ++i)
        a[i] = -a[i];
    return a;
}

std::vector<double> hypercomplexProduct(const std::vector<double>& a, const std::vector<double>& b)
{
    std::vector<double> out(a.size());
    product(a.data(), b.data(), out.data(), int(a.size()));
    return out;
}

double q2n(const Bands& reference, const Bands& fused, int width, int height, int blockSize)
{
    const int bands = int(reference.size());
    int dims = 1;
    while (dims < bands)
        dims *= 2;
    if (dims > kMaxDims || bands == 0)
        return std::numeric_limits<double>::quiet_NaN();
    double total = 0.0;
    int blocks = 0;
    const size_t full = size_t(blockSize) * blockSize;
    for (int by = 0; by + blockSize <= height; by += blockSize)
        for (int bx = 0; bx + blockSize <= width; bx += blockSize)
        {
            double meanZ[kMaxDims] = {}, meanF[kMaxDims] = {}, cross[kMaxDims] = {};
            double z[kMaxDims] = {}, f[kMaxDims] = {}, zf[kMaxDims];
            double powerZ = 0.0, powerF = 0.0;
            size_t valid = 0;
            for (int y = by; y < by + blockSize; ++y)
                for (int x = bx; x < bx + blockSize; ++x)
                {
                    const size_t p = size_t(y) * width + x;
                    if (!validPixel(reference, fused, p))
                        continue;
                    for (int b = 0; b < bands; ++b)
                    {
                        z[b] = reference[b][p];
                        f[b] = -double(fused[b][p]); // conjugate: every imaginary part negated
                    }
                    f[0] = -f[0];
                    product(z, f, zf, dims);
                    for (int d = 0; d < dims; ++d)
                    {
                        meanZ[d] += z[d];
                        meanF[d] += d ? -f[d] : f[d];
                        cross[d] += zf[d];
                    }
                    const double nz = norm(z, dims), nf = norm(f, dims);
                    powerZ += nz * nz;
                    powerF += nf * nf;
                    ++valid;
                }
            if (valid < full)
                continue; // blocks with invalid pixels are left out
            double meanFc[kMaxDims], meanProduct[kMaxDims];
            for (int d = 0; d < dims; ++d)
            {
                meanZ[d] /= valid;
                meanF[d] /= valid;
                cross[d] /= valid;
                meanFc[d] = d ? -meanF[d] : meanF[d];
            }
            product(meanZ, meanFc, meanProduct, dims);
            for (int d = 0; d < dims; ++d)
                cross[d] -= meanProduct[d];
            const double mz = norm(meanZ, dims), mf = norm(meanF, dims);
            const double varZ = powerZ / valid - mz * mz, varF = powerF / valid - mf * mf;
            const double denominator = (varZ + varF) * (mz * mz + mf * mf);
            // Flat blocks: only the luminance term is defined (1 for identical ones).
            double q;
            if (denominator > 0.0)
                q = 4.0 * norm(cross, dims) * mz * mf / denominator;
            else
                q = (mz * mz + mf * mf) > 0.0 ? 2.0 * mz * mf / (mz * mz + mf * mf) : 1.0;
            total += q;
            ++blocks;
        }
    return blocks ? total / blocks : std::numeric_limits<double>::quiet_NaN();
}

} // namespace optgeo
