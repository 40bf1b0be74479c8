// Plug-in "PolSAR_Decomposition": boxcar-averaged coherency matrix T3 per pixel and its H/A/Alpha/Lambda images,
// streamed in row blocks with the window's overlap.
#include "ha_alpha_kernel.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/polsar_records.h"

#include <cpl_string.h>

#include <QDir>
#include <QFileInfo>
#include <array>
#include <complex>
#include <limits>

namespace
{

// T3 elements as stored per pixel, then the count of valid samples used by the box mean.
enum Element
{
    kT11,
    kT12re,
    kT12im,
    kT13re,
    kT13im,
    kT22,
    kT23re,
    kT23im,
    kT33,
    kValid,
    kElementCount
};

// Raw little-endian Float32 grid opened through a VRT raw band, so T3 folders need no ENVI header.
QString rawFloatVrt(const QString& path, int rows, int cols)
{
    char* escaped = CPLEscapeString(QFileInfo(path).absoluteFilePath().toUtf8().constData(), -1, CPLES_XML);
    const QString xml = QStringLiteral("<VRTDataset rasterXSize=\"%1\" rasterYSize=\"%2\">"
                                       "<VRTRasterBand dataType=\"Float32\" band=\"1\" subClass=\"VRTRawRasterBand\">"
                                       "<SourceFilename relativeToVRT=\"0\">%3</SourceFilename>"
                                       "<ImageOffset>0</ImageOffset><PixelOffset>4</PixelOffset>"
                                       "<LineOffset>%4</LineOffset><ByteOrder>LSB</ByteOrder>"
                                       "</VRTRasterBand></VRTDataset>")
                            .arg(cols)
                            .arg(rows)
                            .arg(QString::fromUtf8(escaped))
                            .arg(qint64(cols) * 4);
    CPLFree(escaped);
    return xml;
}

class PolSARDecomposition : public algokit::PluginBase
{
public:
    PolSARDecomposition() : PluginBase(QStringLiteral("PolSAR_Decomposition")) {}

protected:
    bool run() override
    {
        const stPolSARDecompositionInfo& info = params<stPolSARDecompositionInfo>();
        if (info.windowSize < 1 || info.windowSize % 2 == 0)
            return fail(QStringLiteral("The window size must be a positive odd number."));
        if (info.outputFiles.size() != 4)
            return fail(QStringLiteral("Four output files are required."));
        openInputs(info);
        const int width = m_inputs.front()->GetRasterXSize(), height = m_inputs.front()->GetRasterYSize();
        for (const algokit::DatasetPtr& input : m_inputs)
            if (input->GetRasterXSize() != width || input->GetRasterYSize() != height)
                return fail(QStringLiteral("The input images differ in size."));
        if (info.windowSize > std::min(width, height))
            return fail(QStringLiteral("The window is larger than the image."));

        QDir().mkpath(info.outputDir);
        static const char* const kNames[4] = {"Entropy", "Anisotropy", "Alpha (degrees)", "Lambda"};
        std::vector<algokit::OutputRaster> outputs;
        for (int i = 0; i < 4; ++i)
        {
            outputs.emplace_back(info.outputFiles[i], QStringLiteral("ENVI"), width, height, 1, GDT_Float32);
            if (info.channelFiles.size() == 4)
                outputs.back().copyGeoreferencing(m_inputs.front().get());
            outputs.back().band(0)->SetDescription(kNames[i]);
            outputs.back().band(0)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
        }

        const int half = info.windowSize / 2;
        // About 24 MB of float elements per block; every block re-reads `half` rows on each side.
        const int blockRows = std::max(
            16, std::min(height, int((24u << 20) / (size_t(width) * kElementCount * sizeof(float))) - 2 * half));
        std::array<std::vector<float>, 4> results;
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            const int first = std::max(0, row0 - half), last = std::min(height, row0 + rows + half);
            loadElements(first, last - first, width);
            keepOwnValidity(last - first, width);
            boxRows(last - first, width, half);
            for (auto& result : results)
                result.resize(size_t(rows) * width);
            algokit::parallelFor(rows, [&](int begin, int end) {
                std::vector<double> sums(size_t(kElementCount) * width);
                for (int r = begin; r < end; ++r)
                    decomposeRow(row0 + r, first, last, width, half, sums, results, size_t(r) * width);
            });
            for (int i = 0; i < 4; ++i)
            {
                algokit::writeRows(outputs[i].band(0), row0, rows, results[i]);
                outputs[i].get()->FlushCache();
            }
            // GDAL's block cache would otherwise keep the whole scene: memory stays at one block.
            for (const algokit::DatasetPtr& input : m_inputs)
                input->FlushCache();
            progress(100.0 * (row0 + rows) / height);
        });

        stPolSARDecompositionInfo produced = info;
        for (algokit::OutputRaster& output : outputs)
            output.commit();
        produced.resultImages = info.outputFiles.join('|');
        setResult(produced);
        return true;
    }

private:
    void openInputs(const stPolSARDecompositionInfo& info)
    {
        m_inputs.clear();
        if (info.channelFiles.size() == 4)
        {
            for (const QString& file : info.channelFiles)
            {
                m_inputs.push_back(algokit::openRaster(file));
                if (m_inputs.back()->GetRasterCount() != 1 ||
                    !GDALDataTypeIsComplex(m_inputs.back()->GetRasterBand(1)->GetRasterDataType()))
                    throw algokit::AlgoError(QStringLiteral("Not a single-band complex image: %1").arg(file));
            }
            return;
        }
        if (info.t3Dir.isEmpty() || info.t3Rows <= 0 || info.t3Cols <= 0)
            throw algokit::AlgoError(QStringLiteral("Neither channel images nor a T3 folder were given."));
        for (const char* name : {"T11.bin", "T12_real.bin", "T12_imag.bin", "T13_real.bin", "T13_imag.bin", "T22.bin",
                                 "T23_real.bin", "T23_imag.bin", "T33.bin"})
            m_inputs.push_back(algokit::openRaster(rawFloatVrt(info.t3Dir + "/" + name, info.t3Rows, info.t3Cols)));
    }

    // Fills m_elements with the per-pixel T3 of rows [first, first + rows); a sample with a non-finite
    // element counts as absent (all zeros, valid 0).
    void loadElements(int first, int rows, int width)
    {
        const size_t count = size_t(rows) * width;
        for (auto& element : m_elements)
            element.resize(count);
        if (m_inputs.size() == 4)
        {
            for (int c = 0; c < 4; ++c)
            {
                m_channels[c].resize(count);
                if (m_inputs[c]->GetRasterBand(1)->RasterIO(GF_Read, 0, first, width, rows, m_channels[c].data(), width,
                                                            rows, GDT_CFloat32, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Read failed at row %1: %2")
                                                 .arg(first)
                                                 .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
            }
            algokit::parallelFor(rows, [&](int begin, int end) {
                const float scale = float(M_SQRT1_2);
                for (size_t i = size_t(begin) * width; i < size_t(end) * width; ++i)
                {
                    const std::complex<float> hh = m_channels[0][i], hv = m_channels[1][i], vh = m_channels[2][i],
                                              vv = m_channels[3][i];
                    const std::complex<float> k1 = (hh + vv) * scale, k2 = (hh - vv) * scale, k3 = (hv + vh) * scale;
                    storeSample(i, k1, k2, k3);
                }
            });
            return;
        }
        for (int e = 0; e < kValid; ++e)
            algokit::readRows(m_inputs[size_t(e)]->GetRasterBand(1), first, rows, m_elements[e]);
        algokit::parallelFor(rows, [&](int begin, int end) {
            for (size_t i = size_t(begin) * width; i < size_t(end) * width; ++i)
            {
                bool valid = true;
                for (int e = 0; e < kValid; ++e)
                    valid = valid && std::isfinite(m_elements[e][i]);
                m_elements[kValid][i] = valid ? 1.0f : 0.0f;
                if (!valid)
                    for (int e = 0; e < kValid; ++e)
                        m_elements[e][i] = 0.0f;
            }
        });
    }

    void storeSample(size_t i, std::complex<float> k1, std::complex<float> k2, std::complex<float> k3)
    {
        const float parts[6] = {k1.real(), k1.imag(), k2.real(), k2.imag(), k3.real(), k3.imag()};
        bool valid = true;
        for (float part : parts)
            valid = valid && std::isfinite(part);
        if (!valid)
        {
            for (auto& element : m_elements)
                element[i] = 0.0f;
            return;
        }
        const std::complex<float> t12 = k1 * std::conj(k2), t13 = k1 * std::conj(k3), t23 = k2 * std::conj(k3);
        m_elements[kT11][i] = std::norm(k1);
        m_elements[kT22][i] = std::norm(k2);
        m_elements[kT33][i] = std::norm(k3);
        m_elements[kT12re][i] = t12.real();
        m_elements[kT12im][i] = t12.imag();
        m_elements[kT13re][i] = t13.real();
        m_elements[kT13im][i] = t13.imag();
        m_elements[kT23re][i] = t23.real();
        m_elements[kT23im][i] = t23.imag();
        m_elements[kValid][i] = 1.0f;
    }

    // Replaces every element row by its horizontal box sum over [x - half, x + half] inside the image.
    void boxRows(int rows, int width, int half)
    {
        if (half == 0)
            return;
        algokit::parallelFor(rows, [&](int begin, int end) {
            std::vector<float> line(width);
            for (int r = begin; r < end; ++r)
                for (auto& element : m_elements)
                {
                    float* row = element.data() + size_t(r) * width;
                    std::copy(row, row + width, line.begin());
                    double sum = 0.0;
                    for (int x = 0; x < std::min(half, width); ++x)
                        sum += line[x];
                    for (int x = 0; x < width; ++x)
                    {
                        if (x + half < width)
                            sum += line[x + half];
                        if (x - half - 1 >= 0)
                            sum -= line[x - half - 1];
                        row[x] = float(sum);
                    }
                }
        });
    }

    // One output row: vertical sum of the horizontal sums, box mean, eigen-decomposition.
    void decomposeRow(int y, int first, int last, int width, int half, std::vector<double>& sums,
                      std::array<std::vector<float>, 4>& results, size_t offset) const
    {
        std::fill(sums.begin(), sums.end(), 0.0);
        for (int row = std::max(first, y - half); row <= std::min(last - 1, y + half); ++row)
            for (int e = 0; e < kElementCount; ++e)
            {
                const float* source = m_elements[e].data() + size_t(row - first) * width;
                double* target = sums.data() + size_t(e) * width;
                for (int x = 0; x < width; ++x)
                    target[x] += source[x];
            }
        const float nan = std::numeric_limits<float>::quiet_NaN();
        const size_t own = size_t(y - first) * width;
        for (int x = 0; x < width; ++x)
        {
            polsarkernel::HAAlphaLambda value{nan, nan, nan, nan};
            // A pixel whose own sample is invalid gets NaN even when its neighbours could give it a value.
            const double n = sums[size_t(kValid) * width + x];
            if (m_ownValid[own + x] && n > 0.0)
            {
                const auto at = [&](int e) { return sums[size_t(e) * width + x] / n; };
                polsarkernel::Coherency t;
                t.t11 = at(kT11);
                t.t22 = at(kT22);
                t.t33 = at(kT33);
                t.t12re = at(kT12re);
                t.t12im = at(kT12im);
                t.t13re = at(kT13re);
                t.t13im = at(kT13im);
                t.t23re = at(kT23re);
                t.t23im = at(kT23im);
                value = polsarkernel::haAlphaLambda(t);
            }
            results[0][offset + x] = value.entropy;
            results[1][offset + x] = value.anisotropy;
            results[2][offset + x] = value.alphaDegrees;
            results[3][offset + x] = value.lambda;
        }
    }

    // The per-pixel validity, kept before the box sums overwrite it.
    void keepOwnValidity(int rows, int width)
    {
        m_ownValid.resize(size_t(rows) * width);
        const std::vector<float>& valid = m_elements[kValid];
        for (size_t i = 0; i < m_ownValid.size(); ++i)
            m_ownValid[i] = valid[i] > 0.5f;
    }

    std::vector<algokit::DatasetPtr> m_inputs;
    std::array<std::vector<std::complex<float>>, 4> m_channels;
    std::array<std::vector<float>, kElementCount> m_elements;
    std::vector<unsigned char> m_ownValid;
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARDecomposition)
