// Fast Fourier transforms of any length (radix 2, Bluestein's chirp for other lengths) and of images, for the
// frequency-domain filters and the FFT transform.
#pragma once

#include "raster_io.h"

#include <cmath>
#include <complex>
#include <memory>
#include <vector>

namespace filtcommon
{

template <typename R> class Fft
{
public:
    using Complex = std::complex<R>;

    explicit Fft(int n) : m_n(n)
    {
        if ((n & (n - 1)) == 0)
        {
            m_twiddle.resize(size_t(std::max(1, n / 2)));
            for (int k = 0; k < n / 2; ++k)
                m_twiddle[size_t(k)] = std::polar(1.0, -2.0 * M_PI * k / n);
            return;
        }
        int m = 1;
        while (m < 2 * n - 1)
            m <<= 1;
        m_inner = std::make_unique<Fft>(m);
        m_chirp.resize(size_t(n));
        for (int k = 0; k < n; ++k)
        {
            const long long square = (1LL * k * k) % (2LL * n); // keeps the angle exact for long lines
            m_chirp[size_t(k)] = std::polar(1.0, -M_PI * double(square) / n);
        }
        m_filter.assign(size_t(m), std::complex<double>());
        for (int k = 0; k < n; ++k)
        {
            m_filter[size_t(k)] = std::conj(m_chirp[size_t(k)]);
            if (k > 0)
                m_filter[size_t(m - k)] = std::conj(m_chirp[size_t(k)]);
        }
        m_inner->transformDouble(m_filter.data(), false);
    }

    int size() const { return m_n; }

    // In place; forward unnormalised, inverse divided by n.
    void transform(Complex* data, bool inverse) const
    {
        std::vector<std::complex<double>> line(data, data + m_n);
        transformDouble(line.data(), inverse);
        const double scale = inverse ? 1.0 / m_n : 1.0;
        for (int k = 0; k < m_n; ++k)
            data[k] = Complex(line[size_t(k)] * scale);
    }

private:
    // Unnormalised in both directions, in double precision.
    void transformDouble(std::complex<double>* data, bool inverse) const
    {
        if (!m_inner)
            return radix2(data, inverse);
        const size_t m = m_filter.size();
        std::vector<std::complex<double>> work(m);
        for (int k = 0; k < m_n; ++k)
        {
            const std::complex<double> w = inverse ? std::conj(m_chirp[size_t(k)]) : m_chirp[size_t(k)];
            work[size_t(k)] = data[k] * w;
        }
        m_inner->radix2(work.data(), false);
        for (size_t k = 0; k < m; ++k)
            work[k] *= inverse ? std::conj(m_filterConj(k)) : m_filter[k];
        m_inner->radix2(work.data(), true);
        for (int k = 0; k < m_n; ++k)
        {
            const std::complex<double> w = inverse ? std::conj(m_chirp[size_t(k)]) : m_chirp[size_t(k)];
            data[k] = work[size_t(k)] * w / double(m);
        }
    }

    // The inverse direction's filter spectrum is the transform of the conjugated chirp: conj(F(k)) read at -k.
    std::complex<double> m_filterConj(size_t k) const { return m_filter[(m_filter.size() - k) % m_filter.size()]; }

    void radix2(std::complex<double>* data, bool inverse) const
    {
        const int n = m_n;
        for (int i = 1, j = 0; i < n; ++i)
        {
            int bit = n >> 1;
            for (; j & bit; bit >>= 1)
                j ^= bit;
            j ^= bit;
            if (i < j)
                std::swap(data[i], data[j]);
        }
        for (int length = 2; length <= n; length <<= 1)
        {
            const int half = length / 2, step = n / length;
            for (int start = 0; start < n; start += length)
                for (int k = 0; k < half; ++k)
                {
                    std::complex<double> w = m_twiddle[size_t(k * step)];
                    if (inverse)
                        w = std::conj(w);
                    const std::complex<double> a = data[start + k], b = data[start + k + half] * w;
                    data[start + k] = a + b;
                    data[start + k + half] = a - b;
                }
        }
    }

    int m_n;
    std::vector<std::complex<double>> m_twiddle;
    std::unique_ptr<Fft> m_inner;
    std::vector<std::complex<double>> m_chirp;
    std::vector<std::complex<double>> m_filter;
};

// 2-D transform of a width x height image stored row by row; rows and columns spread over the cores.
template <typename R> void fft2d(std::vector<std::complex<R>>& image, int width, int height, bool inverse)
{
    const Fft<R> rows(width), columns(height);
    algokit::parallelFor(height, [&](int begin, int end) {
        for (int y = begin; y < end; ++y)
            rows.transform(image.data() + size_t(y) * size_t(width), inverse);
    });
    algokit::parallelFor(width, [&](int begin, int end) {
        std::vector<std::complex<R>> column(static_cast<size_t>(height));
        for (int x = begin; x < end; ++x)
        {
            for (int y = 0; y < height; ++y)
                column[size_t(y)] = image[size_t(y) * size_t(width) + size_t(x)];
            columns.transform(column.data(), inverse);
            for (int y = 0; y < height; ++y)
                image[size_t(y) * size_t(width) + size_t(x)] = column[size_t(y)];
        }
    });
}

// Distance of spectrum sample (u, v) from the zero frequency, in samples (unshifted layout).
inline double frequencyDistance(int u, int v, int width, int height)
{
    const double fu = u <= width / 2 ? u : u - width;
    const double fv = v <= height / 2 ? v : v - height;
    return std::sqrt(fu * fu + fv * fv);
}

} // namespace filtcommon
