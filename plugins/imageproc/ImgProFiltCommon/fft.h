// Discrete Fourier transforms of images through FFTW on every core, for the frequency-domain filters and the FFT
// transform.
#pragma once

#include "plugin_base.h"
#include "raster_io.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <mutex>
#include <thread>
#include <vector>

namespace filtcommon
{

namespace fftdetail
{

// FFTW's planner is not thread-safe: plans are made and destroyed under one lock, each with the machine's cores.
inline std::mutex& plannerLock()
{
    static std::mutex lock;
    return lock;
}

inline void usePlannerThreads()
{
    static std::once_flag once;
    std::call_once(once, [] { fftw_init_threads(); });
    fftw_plan_with_nthreads(int(std::max(1u, std::thread::hardware_concurrency())));
}

class Plan
{
public:
    template <typename Make> explicit Plan(Make make, int width, int height)
    {
        std::lock_guard<std::mutex> guard(plannerLock());
        usePlannerThreads();
        m_plan = make();
        if (!m_plan)
            throw algokit::AlgoError(
                QStringLiteral("The Fourier transform of a %1 x %2 image could not be planned").arg(width).arg(height));
    }
    ~Plan()
    {
        std::lock_guard<std::mutex> guard(plannerLock());
        fftw_destroy_plan(m_plan);
    }
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;
    void execute() const { fftw_execute(m_plan); }

private:
    fftw_plan m_plan = nullptr;
};

template <typename T> void scaleAll(T* data, size_t count, double factor)
{
    algokit::parallelFor(int((count + 65535) / 65536), [&](int begin, int end) {
        const size_t last = std::min(count, size_t(end) * 65536);
        for (size_t i = size_t(begin) * 65536; i < last; ++i)
            data[i] *= factor;
    });
}

} // namespace fftdetail

// In place on a width x height image stored row by row: forward unnormalised, inverse divided by width * height.
inline void fft2d(std::vector<std::complex<double>>& image, int width, int height, bool inverse)
{
    fftw_complex* data = reinterpret_cast<fftw_complex*>(image.data());
    const fftdetail::Plan plan(
        [&] { return fftw_plan_dft_2d(height, width, data, data, inverse ? FFTW_BACKWARD : FFTW_FORWARD, FFTW_ESTIMATE); },
        width, height);
    plan.execute();
    if (inverse)
        fftdetail::scaleAll(image.data(), image.size(), 1.0 / (double(width) * double(height)));
}

// Columns of the half spectrum of a real image of this width (FFTW's r2c layout: u = 0 .. width / 2).
inline int halfSpectrumWidth(int width)
{
    return width / 2 + 1;
}

// Filters a real width x height image in place by a transfer function of the spectrum that is symmetric about
// the zero frequency (H(-u, -v) = H(u, v)): transfer holds it over the half spectrum, row by row,
// halfSpectrumWidth(width) values a row. Equal to the full complex transform's real part, at half the work.
inline void filterRealImage(std::vector<double>& pixels, int width, int height, const std::vector<double>& transfer)
{
    const int half = halfSpectrumWidth(width);
    std::vector<std::complex<double>> spectrum(size_t(half) * size_t(height));
    fftw_complex* data = reinterpret_cast<fftw_complex*>(spectrum.data());
    {
        const fftdetail::Plan forward(
            [&] { return fftw_plan_dft_r2c_2d(height, width, pixels.data(), data, FFTW_ESTIMATE); }, width, height);
        forward.execute();
    }
    const double scale = 1.0 / (double(width) * double(height));
    algokit::parallelFor(height, [&](int begin, int end) {
        for (size_t i = size_t(begin) * half; i < size_t(end) * half; ++i)
            spectrum[i] *= transfer[i] * scale;
    });
    const fftdetail::Plan backward(
        [&] { return fftw_plan_dft_c2r_2d(height, width, data, pixels.data(), FFTW_ESTIMATE); }, width, height);
    backward.execute();
}

// Distance of spectrum sample (u, v) from the zero frequency, in samples (unshifted layout).
inline double frequencyDistance(int u, int v, int width, int height)
{
    const double fu = u <= width / 2 ? u : u - width;
    const double fv = v <= height / 2 ? v : v - height;
    return std::sqrt(fu * fu + fv * fv);
}

} // namespace filtcommon
