// Whole-band filtering in the frequency domain.
#include "frequency_filter.h"

namespace filtcommon
{

void runFrequencyFilter(const FilterJob& job, const FrequencyPass& pass, const std::function<void(double)>& progress)
{
    validateJob(job);
    algokit::DatasetPtr source = algokit::openRaster(job.inputFile);
    // One band's pixels, its half spectrum and the transfer function over it are held whole.
    algokit::checkWholeImageSize(source.get(), job.inputFile, sizeof(double) + sizeof(std::complex<double>));
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    for (int band : job.bands)
        if (band < 0 || band >= source->GetRasterCount())
            throw algokit::AlgoError(QStringLiteral("Band %1 is not in the input").arg(band + 1));
    const GDALDataType inputType = source->GetRasterBand(job.bands.front() + 1)->GetRasterDataType();
    if (GDALDataTypeIsComplex(inputType))
        throw algokit::AlgoError(QStringLiteral("Complex pixels are not supported by this filter"));
    const QString driver = job.format.isEmpty() ? algokit::driverForPath(job.outputFile) : job.format;
    algokit::OutputRaster output(job.outputFile, driver, width, height, int(job.bands.size()), realTypeFor(inputType));
    output.copyGeoreferencing(source.get());

    const int half = halfSpectrumWidth(width);
    std::vector<double> transfer(size_t(half) * size_t(height));
    for (int v = 0; v < height; ++v)
        for (int u = 0; u < half; ++u)
            transfer[size_t(v) * half + u] = pass.transfer(frequencyDistance(u, v, width, height));

    std::vector<double> pixels;
    for (size_t b = 0; b < job.bands.size(); ++b)
    {
        algokit::readRows<double>(source->GetRasterBand(job.bands[b] + 1), 0, height, pixels);
        if (pass.before)
            for (double& value : pixels)
                value = pass.before(value);
        progress(100.0 * (3 * b + 1) / (3.0 * job.bands.size()));
        filterRealImage(pixels, width, height, transfer);
        progress(100.0 * (3 * b + 2) / (3.0 * job.bands.size()));
        if (pass.after)
            for (double& value : pixels)
                value = pass.after(value);
        algokit::writeRows<double>(output.band(int(b)), 0, height, pixels);
        progress(100.0 * (3 * b + 3) / (3.0 * job.bands.size()));
    }
    output.commit();
}

} // namespace filtcommon
