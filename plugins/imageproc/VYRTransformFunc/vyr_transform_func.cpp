// Plug-in "VYRTransformFunc": the band transforms, one algorithm object per name: "Forward PCA", "Inverse PCA",
// "Forward MNF", "Inverse MNF", "FFT", "InvFFT", "KT", "Wavelet", "InvWavelet".
//
// PCA: components = E^T (x - mean), E the covariance eigenvectors by descending eigenvalue. MNF: the noise
// covariance is half the covariance of horizontal neighbour differences; the data are noise-whitened, then
// rotated onto the principal axes of the whitened covariance (components by descending signal-to-noise).
// The forward transforms write Float32 components unless a data type code says otherwise, plus the
// statistics file that the inverse transforms read back.
// FFT: the complex spectrum of each band, zero frequency moved to the centre, as CFloat32. InvFFT undoes it.
// Wavelet: one level of the 2-D Haar transform (pair average and difference) in quadrant layout: averages of
// averages top-left, then horizontal details right, vertical details below, diagonal details bottom-right;
// Float32 (Float64 for Float64 input). InvWavelet reconstructs the image exactly.
#include "kt_coefficients.h"
#include "linear_algebra.h"
#include "statistics_file.h"

#include "../ImgProFiltCommon/fft.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/transform_records.h"

#include <QFileInfo>
#include <cmath>

namespace
{

using namespace transform;

QString driverOf(const QString& format, const QString& output)
{
    return format.isEmpty() ? algokit::driverForPath(output) : format;
}

void checkPaths(const QString& input, const QString& output)
{
    if (input.isEmpty() || output.isEmpty())
        throw algokit::AlgoError(QStringLiteral("Input and output paths are required"));
    if (QFileInfo(input).absoluteFilePath() == QFileInfo(output).absoluteFilePath())
        throw algokit::AlgoError(QStringLiteral("The output file must differ from the input file"));
}

class Transform : public algokit::PluginBase
{
public:
    explicit Transform(const QString& name) : PluginBase(name), m_name(name) {}

protected:
    bool run() override
    {
        const auto report = [this](double percent) { progress(percent); };
        if (m_name == "Forward PCA" || m_name == "Forward MNF")
            forwardStatistics(m_name == "Forward MNF", report);
        else if (m_name == "Inverse PCA" || m_name == "Inverse MNF")
            inverseStatistics(m_name == "Inverse MNF", report);
        else if (m_name == "FFT")
            fft(report);
        else if (m_name == "InvFFT")
            inverseFft(report);
        else if (m_name == "KT")
            tasselledCap(report);
        else if (m_name == "Wavelet")
            wavelet(true, report);
        else
            wavelet(false, report);
        return true;
    }

private:
    void forwardStatistics(bool mnf, const std::function<void(double)>& report)
    {
        const auto& info = params<stPCATransformInfo>();
        checkPaths(info.inputFile, info.outputFile);
        if (info.statisticsFile.isEmpty())
            throw algokit::AlgoError(QStringLiteral("A statistics file path is required"));
        const GDALDataType outputType = typeOfCode(info.dataType);
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        const int n = input->GetRasterCount();
        if (n < 1)
            throw algokit::AlgoError(QStringLiteral("The input has no band"));
        if (mnf && n < 2 && input->GetRasterXSize() < 2)
            throw algokit::AlgoError(QStringLiteral("The image is too small for the MNF transform"));

        TransformStatistics s;
        s.kind = mnf ? "MNF" : "PCA";
        s.bands = n;
        s.sourceType = GDALGetDataTypeName(input->GetRasterBand(1)->GetRasterDataType());
        bandStatistics(input.get(), s.mean, s.covariance, mnf ? &s.noiseCovariance : nullptr,
                       [&](double p) { report(p * 0.4); });
        Matrix vectors;
        if (!mnf)
        {
            symmetricEigen(s.covariance, s.eigenvalues, vectors);
            s.forward = transpose(vectors);
            s.inverse = vectors;
        }
        else
        {
            std::vector<double> noiseValues;
            Matrix noiseVectors;
            symmetricEigen(s.noiseCovariance, noiseValues, noiseVectors);
            const double floor = std::max(1e-12 * std::fabs(noiseValues.front()), 1e-300);
            Matrix whiten = transpose(noiseVectors), unwhiten = noiseVectors;
            for (int c = 0; c < n; ++c)
            {
                const double sd = std::sqrt(std::max(noiseValues[size_t(c)], floor));
                for (int k = 0; k < n; ++k)
                {
                    whiten[size_t(c)][size_t(k)] /= sd;
                    unwhiten[size_t(k)][size_t(c)] *= sd;
                }
            }
            const Matrix whitened = multiply(multiply(whiten, s.covariance), transpose(whiten));
            symmetricEigen(whitened, s.eigenvalues, vectors);
            s.forward = multiply(transpose(vectors), whiten);
            s.inverse = multiply(unwhiten, vectors);
        }
        int components = n;
        if (!info.tableExtras.empty() && info.tableExtras.front() >= 1 && info.tableExtras.front() < n)
            components = info.tableExtras.front();
        const Matrix used(s.forward.begin(), s.forward.begin() + components);
        algokit::OutputRaster output(info.outputFile, driverOf(info.format, info.outputFile), input->GetRasterXSize(),
                                     input->GetRasterYSize(), components, outputType);
        output.copyGeoreferencing(input.get());
        applyLinear(input.get(), output, used, s.mean, {}, [&](double p) { report(40.0 + p * 0.6); });
        writeStatistics(info.statisticsFile, s);
        output.commit();
    }

    void inverseStatistics(bool mnf, const std::function<void(double)>& report)
    {
        const auto& info = params<stPCATransformInfo>();
        checkPaths(info.inputFile, info.outputFile);
        const GDALDataType outputType = typeOfCode(info.dataType);
        const TransformStatistics s = readStatistics(info.statisticsFile, mnf ? "MNF" : "PCA");
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        const int components = input->GetRasterCount();
        if (components < 1 || components > s.bands)
            throw algokit::AlgoError(QStringLiteral("The input has %1 bands; the statistics file describes %2")
                                         .arg(components).arg(s.bands));
        Matrix used = zeros(s.bands, components);
        for (int i = 0; i < s.bands; ++i)
            for (int c = 0; c < components; ++c)
                used[size_t(i)][size_t(c)] = s.inverse[size_t(i)][size_t(c)];
        algokit::OutputRaster output(info.outputFile, driverOf(info.format, info.outputFile), input->GetRasterXSize(),
                                     input->GetRasterYSize(), s.bands, outputType);
        output.copyGeoreferencing(input.get());
        applyLinear(input.get(), output, used, {}, s.mean, report);
        output.commit();
    }

    void fft(const std::function<void(double)>& report)
    {
        const auto& info = params<stFFTransformInfo>();
        checkPaths(info.inputFile, info.outputFile);
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        // Two whole complex bands in memory: the transform and its shifted copy.
        algokit::checkWholeImageSize(input.get(), info.inputFile, 2 * sizeof(std::complex<double>));
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        if (info.bands.empty())
            throw algokit::AlgoError(QStringLiteral("No band to transform"));
        algokit::OutputRaster output(info.outputFile, driverOf(info.format, info.outputFile), width, height,
                                     int(info.bands.size()), GDT_CFloat32);
        output.copyGeoreferencing(input.get());
        std::vector<std::complex<double>> image, shifted(size_t(width) * height);
        for (size_t b = 0; b < info.bands.size(); ++b)
        {
            if (info.bands[b] < 0 || info.bands[b] >= input->GetRasterCount())
                throw algokit::AlgoError(QStringLiteral("Band %1 is not in the input").arg(info.bands[b] + 1));
            readComplex(input->GetRasterBand(info.bands[b] + 1), image);
            filtcommon::fft2d(image, width, height, false);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    shifted[size_t((y + height / 2) % height) * width + size_t((x + width / 2) % width)] =
                        image[size_t(y) * width + x];
            writeComplex(output.band(int(b)), shifted);
            report(100.0 * (b + 1) / info.bands.size());
        }
        output.commit();
    }

    void inverseFft(const std::function<void(double)>& report)
    {
        const auto& info = params<stInvFFTransformInfo>();
        checkPaths(info.inputFile, info.outputFile);
        const GDALDataType outputType = typeOfCode(info.dataType);
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        // Two whole complex bands and a real one in memory.
        algokit::checkWholeImageSize(input.get(), info.inputFile, 2 * sizeof(std::complex<double>) + sizeof(double));
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = input->GetRasterCount();
        if (bands < 1)
            throw algokit::AlgoError(QStringLiteral("The input has no band"));
        algokit::OutputRaster output(info.outputFile, driverOf(info.format, info.outputFile), width, height, bands,
                                     outputType);
        output.copyGeoreferencing(input.get());
        std::vector<std::complex<double>> shifted, image(size_t(width) * height);
        std::vector<double> real(image.size());
        for (int b = 0; b < bands; ++b)
        {
            readComplex(input->GetRasterBand(b + 1), shifted);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    image[size_t(y) * width + x] =
                        shifted[size_t((y + height / 2) % height) * width + size_t((x + width / 2) % width)];
            filtcommon::fft2d(image, width, height, true);
            for (size_t i = 0; i < image.size(); ++i)
                real[i] = image[i].real();
            algokit::writeRows<double>(output.band(b), 0, height, real);
            report(100.0 * (b + 1) / bands);
        }
        output.commit();
    }

    static void readComplex(GDALRasterBand* band, std::vector<std::complex<double>>& image)
    {
        const int width = band->GetXSize(), height = band->GetYSize();
        image.resize(size_t(width) * height);
        if (band->RasterIO(GF_Read, 0, 0, width, height, image.data(), width, height, GDT_CFloat64, 0, 0) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Read failed: %1").arg(CPLGetLastErrorMsg()));
    }

    static void writeComplex(GDALRasterBand* band, std::vector<std::complex<double>>& image)
    {
        const int width = band->GetXSize(), height = band->GetYSize();
        if (band->RasterIO(GF_Write, 0, 0, width, height, image.data(), width, height, GDT_CFloat64, 0, 0) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(CPLGetLastErrorMsg()));
    }

    void tasselledCap(const std::function<void(double)>& report)
    {
        const auto& info = params<stKTTransformInfo>();
        checkPaths(info.inputFile, info.outputFile);
        const Matrix& coefficients = tasselledCapCoefficients(info.sensorType);
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        const int needed = int(coefficients.front().size());
        if (input->GetRasterCount() < needed)
            throw algokit::AlgoError(QStringLiteral("The sensor needs %1 bands").arg(needed));
        const int components = std::max(1, std::min(info.components, int(coefficients.size())));
        const Matrix used(coefficients.begin(), coefficients.begin() + components);
        algokit::OutputRaster output(info.outputFile, driverOf(info.format, info.outputFile), input->GetRasterXSize(),
                                     input->GetRasterYSize(), components, GDT_Float32);
        output.copyGeoreferencing(input.get());
        applyLinear(input.get(), output, used, {}, {}, report);
        output.commit();
    }

    void wavelet(bool forward, const std::function<void(double)>& report);

    QString m_name;
};

// Haar analysis of one line: averages in [0, ceil(n/2)), differences after them.
void haarForward(const double* in, double* out, int n, size_t inStep, size_t outStep)
{
    const int half = (n + 1) / 2;
    for (int i = 0; i < n / 2; ++i)
    {
        const double even = in[size_t(2 * i) * inStep], odd = in[size_t(2 * i + 1) * inStep];
        const double detail = odd - even;
        out[size_t(i) * outStep] = even + detail / 2;
        out[size_t(half + i) * outStep] = detail;
    }
    if (n % 2)
        out[size_t(half - 1) * outStep] = in[size_t(n - 1) * inStep];
}

void haarInverse(const double* in, double* out, int n, size_t inStep, size_t outStep)
{
    const int half = (n + 1) / 2;
    for (int i = 0; i < n / 2; ++i)
    {
        const double detail = in[size_t(half + i) * inStep];
        const double even = in[size_t(i) * inStep] - detail / 2;
        out[size_t(2 * i) * outStep] = even;
        out[size_t(2 * i + 1) * outStep] = even + detail;
    }
    if (n % 2)
        out[size_t(n - 1) * outStep] = in[size_t(half - 1) * inStep];
}

void Transform::wavelet(bool forward, const std::function<void(double)>& report)
{
    const auto& info = params<stWaveletTransformInfo>();
    checkPaths(info.inputFile, info.outputFile);
    algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
    const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = input->GetRasterCount();
    if (bands < 1)
        throw algokit::AlgoError(QStringLiteral("The input has no band"));
    const GDALDataType inputType = input->GetRasterBand(1)->GetRasterDataType();
    if (GDALDataTypeIsComplex(inputType))
        throw algokit::AlgoError(QStringLiteral("Complex pixels are not supported"));
    const GDALDataType outputType = inputType == GDT_Float64 ? GDT_Float64 : GDT_Float32;
    algokit::OutputRaster output(info.outputFile, driverOf(info.format, info.outputFile), width, height, bands, outputType);
    output.copyGeoreferencing(input.get());
    const int top = (height + 1) / 2, pairs = height / 2; // approximation rows, detail rows
    const int step = std::max(1, algokit::rowsPerBlock(input.get(), 8 * 4, 8u << 20) / 2); // row pairs per block
    std::vector<double> a, d, rows, result;
    for (int b = 0; b < bands; ++b)
    {
        GDALRasterBand* in = input->GetRasterBand(b + 1);
        GDALRasterBand* out = output.band(b);
        for (int p0 = 0; p0 < top; p0 += step)
        {
            const int count = std::min(step, top - p0);          // approximation rows of this block
            const int details = std::max(0, std::min(count, pairs - p0)); // detail rows of this block
            if (forward)
            {
                const int r0 = 2 * p0, n = std::min(2 * count, height - r0);
                algokit::readRows<double>(in, r0, n, rows);
                result.assign(rows.size(), 0.0);
                for (int r = 0; r < n; ++r)
                    haarForward(rows.data() + size_t(r) * width, result.data() + size_t(r) * width, width, 1, 1);
                a.assign(size_t(count) * width, 0.0);
                d.assign(size_t(details) * width, 0.0);
                for (int x = 0; x < width; ++x)
                    for (int i = 0; i < count; ++i)
                    {
                        if (2 * i + 1 < n)
                        {
                            const double even = result[size_t(2 * i) * width + x], odd = result[size_t(2 * i + 1) * width + x];
                            d[size_t(i) * width + x] = odd - even;
                            a[size_t(i) * width + x] = even + (odd - even) / 2;
                        }
                        else
                            a[size_t(i) * width + x] = result[size_t(2 * i) * width + x];
                    }
                algokit::writeRows<double>(out, p0, count, a);
                if (details > 0)
                    algokit::writeRows<double>(out, top + p0, details, d);
            }
            else
            {
                algokit::readRows<double>(in, p0, count, a);
                if (details > 0)
                    algokit::readRows<double>(in, top + p0, details, d);
                const int r0 = 2 * p0, n = std::min(2 * count, height - r0);
                rows.assign(size_t(n) * width, 0.0);
                for (int x = 0; x < width; ++x)
                    for (int i = 0; i < count; ++i)
                    {
                        if (i < details)
                        {
                            const double detail = d[size_t(i) * width + x];
                            const double even = a[size_t(i) * width + x] - detail / 2;
                            rows[size_t(2 * i) * width + x] = even;
                            rows[size_t(2 * i + 1) * width + x] = even + detail;
                        }
                        else
                            rows[size_t(2 * i) * width + x] = a[size_t(i) * width + x];
                    }
                result.assign(rows.size(), 0.0);
                for (int r = 0; r < n; ++r)
                    haarInverse(rows.data() + size_t(r) * width, result.data() + size_t(r) * width, width, 1, 1);
                algokit::writeRows<double>(out, r0, n, result);
            }
            report(100.0 * (b + double(p0 + count) / top) / bands);
        }
    }
    output.commit();
}

} // namespace

extern "C" __attribute__((visibility("default"))) IAlgorithm* GetAlgoObj(QString algoName)
{
    static const char* const names[] = {"Forward PCA", "Inverse PCA", "Forward MNF", "Inverse MNF", "FFT",
                                        "InvFFT",      "KT",          "Wavelet",     "InvWavelet"};
    try
    {
        for (const char* name : names)
            if (algoName == QLatin1String(name))
                return new Transform(algoName);
    }
    catch (...)
    {
    }
    return nullptr;
}
