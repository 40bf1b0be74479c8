// Polarimetric speckle filtering over the span's choice of neighbours.
#include "polsar_filter.h"

#include "raster_io.h"

#include <algorithm>
#include <cmath>

namespace sar
{

namespace
{

// The span of each pixel of a block (NaN when an element is not finite).
void spans(PolMatrix kind, const std::vector<float>& pixels, size_t count, std::vector<float>& out)
{
    const int perPixel = floatsPerPixel(kind);
    out.resize(count);
    PolCov matrix;
    for (size_t p = 0; p < count; ++p)
    {
        const float* f = pixels.data() + p * perPixel;
        bool finite = true;
        for (int k = 0; k < perPixel; ++k)
            finite = finite && std::isfinite(f[k]);
        if (!finite)
        {
            out[p] = std::numeric_limits<float>::quiet_NaN();
            continue;
        }
        matrixFromFloats(kind, f, matrix);
        out[p] = float(span(kind, matrix));
    }
}

} // namespace

void polSceneStatistics(PolFolderReader& reader, SpeckleSettings& settings)
{
    const int width = reader.width(), height = reader.height();
    const int rows = std::max(1, std::min(height, int((4u << 20) / std::max(1, width)) / 8));
    const int stripes = std::min(8, std::max(1, height / rows));
    std::vector<float> pixels, stripe, sample;
    std::vector<double> estimates;
    for (int s = 0; s < stripes; ++s)
    {
        const int row0 = int((long long)(height - rows) * s / std::max(1, stripes - 1));
        const int count = std::min(rows, height - row0);
        reader.readRows(row0, count, pixels);
        spans(reader.kind(), pixels, size_t(count) * width, stripe);
        const double looks = estimateLooks(stripe.data(), width, count);
        if (looks > 0.0)
            estimates.push_back(looks);
        sample.insert(sample.end(), stripe.begin(), stripe.end());
    }
    if (!(settings.looks > 0.0))
    {
        std::sort(estimates.begin(), estimates.end());
        settings.looks = estimates.empty() ? 1.0 : std::max(0.5, estimates[estimates.size() / 2]);
    }
    const double bright = quantile(sample, 0.98);
    if (std::isfinite(bright))
        settings.brightThreshold = bright;
}

void filterPolFolder(PolFolderReader& reader, PolFolderWriter& writer, const SpeckleSettings& settings,
                     const std::function<void(double)>& report)
{
    const PolMatrix kind = reader.kind();
    const int width = reader.width(), height = reader.height(), perPixel = floatsPerPixel(kind);
    const int halo = speckleHalo(settings);
    const int blockRows = std::max(32, int((16u << 20) / (size_t(width) * 4 * perPixel)));
    std::vector<float> pixels, span, out;
    algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
        const int first = std::max(0, row0 - halo), last = std::min(height, row0 + rows + halo);
        reader.readRows(first, last - first, pixels);
        spans(kind, pixels, size_t(last - first) * width, span);
        const SpeckleBlockFilter kernel(span.data(), width, last - first, settings);
        out.assign(size_t(rows) * width * perPixel, std::numeric_limits<float>::quiet_NaN());
        algokit::parallelFor(rows, [&](int begin, int end) {
            SpeckleBlockFilter::Neighbourhood chosen;
            std::vector<int> marks;
            std::vector<double> mean(static_cast<size_t>(perPixel), 0.0);
            for (int r = begin; r < end; ++r)
            {
                const int y = row0 - first + r;
                for (int x = 0; x < width; ++x)
                {
                    const size_t centre = size_t(y) * width + x;
                    if (!std::isfinite(span[centre]))
                        continue;
                    kernel.neighbourhood(x, y, chosen, marks);
                    std::fill(mean.begin(), mean.end(), 0.0);
                    for (int pixel : chosen.pixels)
                        for (int k = 0; k < perPixel; ++k)
                            mean[size_t(k)] += pixels[size_t(pixel) * perPixel + k];
                    float* target = out.data() + (size_t(r) * width + x) * perPixel;
                    const double n = double(chosen.pixels.size());
                    for (int k = 0; k < perPixel; ++k)
                    {
                        const double m = mean[size_t(k)] / n;
                        target[k] = float(m + chosen.weight * (pixels[centre * perPixel + k] - m));
                    }
                }
            }
        });
        writer.writeRows(rows, out);
        report(double(row0 + rows) / height);
    });
}

} // namespace sar
