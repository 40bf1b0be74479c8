// Plug-in "ThinCloudRemove": haze and thin-cloud removal that keeps the image's radiometric units and data type.
// Method 0: haze-optimised transform, smoothed over cells, with per-band subtraction of the dark value's rise with HOT
// (Zhang, Guindon and Cihlar 2002);
// 1: dark-channel prior with a guided filter (He, Sun and Tang 2011); 2: homomorphic filtering (the low-frequency
// part of the log image, taken on a coarse grid, pulled toward its scene mean).
#include "generic_params.h"
#include "haze_removal.h"
#include "plugin_base.h"
#include "raster_io.h"

#include <opencv2/imgproc.hpp>

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace
{

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kHotBins = 256, kValueBins = 512, kCell = 32;

struct BandRange
{
    double low = std::numeric_limits<double>::max();
    double high = -std::numeric_limits<double>::max();
};

// A smooth surface over the image from cell means of a per-pixel quantity: cells of kCell pixels, empty cells at the
// scene mean, a Gaussian of `sigma` cells, read back bilinearly between cell centres.
class CoarseSurface
{
public:
    CoarseSurface(int width, int height)
        : m_cellsX((width + kCell - 1) / kCell), m_cellsY((height + kCell - 1) / kCell),
          m_sums(cv::Mat::zeros(m_cellsY, m_cellsX, CV_64F)), m_counts(cv::Mat::zeros(m_cellsY, m_cellsX, CV_64F))
    {
    }
    void add(int x, int y, double value)
    {
        m_sums.at<double>(y / kCell, x / kCell) += value;
        m_counts.at<double>(y / kCell, x / kCell) += 1;
    }
    void finish(double sigma)
    {
        const double total = cv::sum(m_counts)[0];
        m_mean = total > 0 ? cv::sum(m_sums)[0] / total : 0.0;
        cv::Mat cells(m_cellsY, m_cellsX, CV_32F);
        for (int y = 0; y < m_cellsY; ++y)
            for (int x = 0; x < m_cellsX; ++x)
            {
                const double n = m_counts.at<double>(y, x);
                cells.at<float>(y, x) = float(n > 0 ? m_sums.at<double>(y, x) / n : m_mean);
            }
        cv::GaussianBlur(cells, m_surface, cv::Size(0, 0), sigma, sigma, cv::BORDER_REFLECT);
    }
    double mean() const { return m_mean; }
    void range(double* low, double* high) const { cv::minMaxLoc(m_surface, low, high); }
    double at(int x, int y) const
    {
        const double fy = std::clamp((y + 0.5) / kCell - 0.5, 0.0, double(m_cellsY - 1));
        const double fx = std::clamp((x + 0.5) / kCell - 0.5, 0.0, double(m_cellsX - 1));
        const int y0 = int(fy), y1 = std::min(y0 + 1, m_cellsY - 1), x0 = int(fx), x1 = std::min(x0 + 1, m_cellsX - 1);
        const double ty = fy - y0, tx = fx - x0;
        return (1 - ty) * ((1 - tx) * m_surface.at<float>(y0, x0) + tx * m_surface.at<float>(y0, x1)) +
               ty * ((1 - tx) * m_surface.at<float>(y1, x0) + tx * m_surface.at<float>(y1, x1));
    }

private:
    int m_cellsX, m_cellsY;
    cv::Mat m_sums, m_counts, m_surface;
    double m_mean = 0;
};

class ThinCloudRemove : public algokit::PluginBase
{
public:
    ThinCloudRemove() : PluginBase(QStringLiteral("ThinCloudRemove")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text("InputFile").required().existingFile();
        m_input = args.text("InputFile").openRaster();
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        const int method = args.integer("Method").orDefault(0).oneOf({0, 1, 2});
        if (QFileInfo(outputPath).absoluteFilePath() == QFileInfo(inputPath).absoluteFilePath())
            args.refuse(QStringLiteral("OutputFile"), outputPath, QStringLiteral("must differ from the input"));
        m_bands = m_input->GetRasterCount();
        m_width = m_input->GetRasterXSize();
        m_height = m_input->GetRasterYSize();
        if (method == 0)
        {
            if (!findBlueAndRed())
                args.refuse(QStringLiteral("Method"), QStringLiteral("0"),
                            QStringLiteral("needs blue and red bands (band metadata, or at least three bands in the "
                                           "order blue, green, red)"));
        }
        if (method == 1)
            algokit::checkWholeImageSize(m_input.get(), inputPath, 4 * size_t(m_bands) + 16);
        for (int b = 0; b < m_bands; ++b)
        {
            int has = 0;
            const double value = m_input->GetRasterBand(b + 1)->GetNoDataValue(&has);
            m_noData.push_back(has ? value : kNaN);
        }

        const GDALDataType type = m_input->GetRasterBand(1)->GetRasterDataType();
        QStringList options;
        if (algokit::driverForPath(outputPath) == QLatin1String("GTiff"))
            options << QStringLiteral("TILED=YES") << QStringLiteral("BIGTIFF=IF_SAFER");
        algokit::OutputRaster output(outputPath, algokit::driverForPath(outputPath), m_width, m_height, m_bands, type,
                                     options);
        output.copyGeoreferencing(m_input.get());
        for (int b = 0; b < m_bands; ++b)
        {
            GDALRasterBand* in = m_input->GetRasterBand(b + 1);
            GDALRasterBand* out = output.band(b);
            if (!std::isnan(m_noData[size_t(b)]))
                out->SetNoDataValue(m_noData[size_t(b)]);
            out->SetDescription(in->GetDescription());
            out->SetMetadata(in->GetMetadata());
            out->SetUnitType(in->GetUnitType());
        }
        m_limits = typeLimits(type);
        m_step = algokit::rowsPerBlock(m_input.get(), 8 * size_t(m_bands));
        if (method == 0)
            hazeOptimised(output);
        else if (method == 1)
            darkChannel(output);
        else
            homomorphic(output);
        output.commit();
        return true;
    }

private:
    bool isNoData(int band, double value) const
    {
        return std::isnan(value) || value == m_noData[size_t(band)];
    }

    // Blue and red by band id or wavelength, else bands 1 and 3.
    bool findBlueAndRed()
    {
        for (int b = 0; b < m_bands; ++b)
        {
            GDALRasterBand* band = m_input->GetRasterBand(b + 1);
            const char* wavelength = band->GetMetadataItem("wavelength");
            double w = wavelength ? std::atof(wavelength) : kNaN;
            if (w > 100)
                w /= 1000.0;
            if (w >= 0.43 && w <= 0.52 && m_blue < 0)
                m_blue = b;
            if (w >= 0.62 && w <= 0.69 && m_red < 0)
                m_red = b;
        }
        if (m_blue < 0 || m_red < 0)
        {
            m_blue = m_bands >= 3 ? 0 : -1;
            m_red = m_bands >= 3 ? 2 : -1;
        }
        return m_blue >= 0 && m_red >= 0;
    }

    // Reads all bands of a block: values[b] holds band b's rows.
    void readBlock(int row0, int rows, std::vector<std::vector<double>>* values)
    {
        values->resize(static_cast<size_t>(m_bands));
        for (int b = 0; b < m_bands; ++b)
            algokit::readRows(m_input->GetRasterBand(b + 1), row0, rows, (*values)[size_t(b)]);
    }

    void writeBlock(const algokit::OutputRaster& output, int row0, int rows, std::vector<std::vector<double>>* values)
    {
        for (int b = 0; b < m_bands; ++b)
        {
            std::vector<double>& v = (*values)[size_t(b)];
            for (double& x : v)
                if (!isNoData(b, x))
                    x = clampToType(x);
            algokit::writeRows(output.band(b), row0, rows, v);
        }
    }

    double clampToType(double x) const
    {
        if (!m_limits.integer)
            return x;
        return std::clamp(std::round(x), m_limits.low, m_limits.high);
    }

    std::vector<BandRange> ranges(double from, double to)
    {
        std::vector<BandRange> result(static_cast<size_t>(m_bands));
        std::vector<std::vector<double>> values;
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            for (int b = 0; b < m_bands; ++b)
                for (double x : values[size_t(b)])
                    if (!isNoData(b, x))
                    {
                        result[size_t(b)].low = std::min(result[size_t(b)].low, x);
                        result[size_t(b)].high = std::max(result[size_t(b)].high, x);
                    }
            progress(from + (to - from) * (row0 + rows) / m_height);
        });
        for (BandRange& range : result)
            if (range.low > range.high)
                range = BandRange{0.0, 1.0};
            else if (range.high <= range.low)
                range.high = range.low + 1.0;
        return result;
    }

    void hazeOptimised(const algokit::OutputRaster& output)
    {
        const std::vector<BandRange> range = ranges(0, 15);
        std::vector<std::vector<double>> values;
        const BandRange& blue = range[size_t(m_blue)];
        const BandRange& red = range[size_t(m_red)];

        // The clear line in the red-blue plane.
        radiometry::PairHistogram redBlue(red.low, red.high, blue.low, blue.high, 256);
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            const std::vector<double>&bv = values[size_t(m_blue)], &rv = values[size_t(m_red)];
            for (size_t i = 0; i < bv.size(); ++i)
                if (!isNoData(m_blue, bv[i]) && !isNoData(m_red, rv[i]))
                    redBlue.add(rv[i], bv[i]);
            progress(15 + 20.0 * (row0 + rows) / m_height);
        });
        const radiometry::ClearLine line = radiometry::fitClearLine(redBlue);
        const double theta = std::atan(line.slope);
        const double sinT = std::sin(theta), cosT = std::cos(theta);
        // Haze varies slowly across a scene while surfaces change from pixel to pixel: HOT is smoothed over
        // cells of kCell pixels before its levels are formed, so that a level gathers areas under similar haze.
        CoarseSurface hotSurface(m_width, m_height);
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            const std::vector<double>&bv = values[size_t(m_blue)], &rv = values[size_t(m_red)];
            for (size_t i = 0; i < bv.size(); ++i)
                if (!isNoData(m_blue, bv[i]) && !isNoData(m_red, rv[i]))
                    hotSurface.add(int(i % size_t(m_width)), row0 + int(i / size_t(m_width)),
                                   radiometry::hazeOptimisedTransform(bv[i], rv[i], sinT, cosT));
            progress(35 + 10.0 * (row0 + rows) / m_height);
        });
        hotSurface.finish(1.0);
        double hotLow = 0, hotHigh = 1;
        hotSurface.range(&hotLow, &hotHigh);
        if (hotHigh <= hotLow)
            hotHigh = hotLow + 1e-6;
        const auto hotBin = [&](double hot) {
            return std::clamp(int((hot - hotLow) / (hotHigh - hotLow) * kHotBins), 0, kHotBins - 1);
        };

        // Histograms of every band per fine HOT bin.
        std::vector<std::vector<std::vector<long long>>> counts(
            size_t(m_bands), std::vector<std::vector<long long>>(kHotBins, std::vector<long long>(kValueBins, 0)));
        std::vector<long long> hotCounts(kHotBins, 0);
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            const std::vector<double>&bv = values[size_t(m_blue)], &rv = values[size_t(m_red)];
            for (size_t i = 0; i < bv.size(); ++i)
            {
                if (isNoData(m_blue, bv[i]) || isNoData(m_red, rv[i]))
                    continue;
                const int h = hotBin(hotSurface.at(int(i % size_t(m_width)), row0 + int(i / size_t(m_width))));
                ++hotCounts[size_t(h)];
                for (int b = 0; b < m_bands; ++b)
                {
                    const double x = values[size_t(b)][i];
                    if (isNoData(b, x))
                        continue;
                    const BandRange& r = range[size_t(b)];
                    ++counts[size_t(b)][size_t(h)][size_t(std::clamp(int((x - r.low) / (r.high - r.low) * kValueBins), 0, kValueBins - 1))];
                }
            }
            progress(45 + 25.0 * (row0 + rows) / m_height);
        });

        // Fine bins merged into levels of enough pixels; the reference level holds the 10th percentile of HOT.
        long long total = 0;
        for (long long c : hotCounts)
            total += c;
        const long long minimum = std::max<long long>(200, total / 200);
        std::vector<int> levelOf(kHotBins, 0);
        std::vector<double> levelCentre;
        std::vector<long long> levelCount;
        int level = 0;
        long long inLevel = 0, seen = 0;
        double weighted = 0;
        int reference = -1;
        for (int h = 0; h < kHotBins; ++h)
        {
            levelOf[size_t(h)] = level;
            inLevel += hotCounts[size_t(h)];
            weighted += double(hotCounts[size_t(h)]) * h;
            seen += hotCounts[size_t(h)];
            if (reference < 0 && double(seen) >= 0.1 * double(total))
                reference = level;
            if (inLevel >= minimum || h == kHotBins - 1)
            {
                levelCentre.push_back(inLevel ? weighted / double(inLevel) : h);
                levelCount.push_back(inLevel);
                ++level;
                inLevel = 0;
                weighted = 0;
            }
        }
        const int levels = level;
        std::vector<std::vector<double>> offsetByBin(size_t(m_bands), std::vector<double>(kHotBins, 0.0));
        for (int b = 0; b < m_bands; ++b)
        {
            std::vector<std::vector<long long>> byLevel(size_t(levels), std::vector<long long>(kValueBins, 0));
            for (int h = 0; h < kHotBins; ++h)
                for (int v = 0; v < kValueBins; ++v)
                    byLevel[size_t(levelOf[size_t(h)])][size_t(v)] += counts[size_t(b)][size_t(h)][size_t(v)];
            const std::vector<double> offsets =
                radiometry::hazeOffsetsByLevel(byLevel, range[size_t(b)].low, range[size_t(b)].high, reference, 1.0);
            // A line through the levels' dark-value rises (weighted by their pixels) gives the band's haze
            // response to HOT; single levels are too noisy to subtract as they are.
            double sw = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
            for (int k = reference; k >= 0 && k < levels; ++k)
            {
                const double w = double(levelCount[size_t(k)]), x = levelCentre[size_t(k)] - levelCentre[size_t(reference)];
                sw += w;
                sx += w * x;
                sy += w * offsets[size_t(k)];
                sxx += w * x * x;
                sxy += w * x * offsets[size_t(k)];
            }
            const double denominator = sw * sxx - sx * sx;
            const double slope = denominator > 0 ? std::max(0.0, (sw * sxy - sx * sy) / denominator) : 0.0;
            for (int h = 0; h < kHotBins; ++h)
                offsetByBin[size_t(b)][size_t(h)] =
                    reference >= 0 ? std::max(0.0, slope * (h - levelCentre[size_t(reference)])) : 0.0;
        }
        counts.clear();

        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            const std::vector<double> bv = values[size_t(m_blue)], rv = values[size_t(m_red)];
            for (size_t i = 0; i < bv.size(); ++i)
            {
                if (isNoData(m_blue, bv[i]) || isNoData(m_red, rv[i]))
                    continue;
                const int h = hotBin(hotSurface.at(int(i % size_t(m_width)), row0 + int(i / size_t(m_width))));
                for (int b = 0; b < m_bands; ++b)
                    if (!isNoData(b, values[size_t(b)][i]))
                        values[size_t(b)][i] -= offsetByBin[size_t(b)][size_t(h)];
            }
            writeBlock(output, row0, rows, &values);
            progress(70 + 30.0 * (row0 + rows) / m_height);
        });
    }

    void darkChannel(const algokit::OutputRaster& output)
    {
        std::vector<cv::Mat> bands(static_cast<size_t>(m_bands));
        cv::Mat valid(m_height, m_width, CV_8U, cv::Scalar(1));
        double scale = 0;
        for (int b = 0; b < m_bands; ++b)
        {
            std::vector<float> data;
            algokit::readRows(m_input->GetRasterBand(b + 1), 0, m_height, data);
            bands[size_t(b)] = cv::Mat(m_height, m_width, CV_32F);
            std::copy(data.begin(), data.end(), bands[size_t(b)].ptr<float>());
            uint8_t* ok = valid.ptr<uint8_t>();
            for (size_t i = 0; i < data.size(); ++i)
                if (isNoData(b, data[i]))
                    ok[i] = 0;
                else
                    scale = std::max(scale, double(data[i]));
            progress(30.0 * (b + 1) / m_bands);
        }
        if (scale <= 0)
            scale = 1;
        for (cv::Mat& band : bands)
        {
            band /= scale;
            band.setTo(0.0f, valid == 0);
        }
        const int radius = std::max(8, std::min(60, std::min(m_width, m_height) / 20));
        radiometry::darkChannelDehaze(bands, valid, 15, 0.95, radius, 1e-3, 0.1);
        progress(80);
        std::vector<std::vector<double>> values(static_cast<size_t>(m_bands));
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            for (int b = 0; b < m_bands; ++b)
            {
                const float* recovered = bands[size_t(b)].ptr<float>(row0);
                std::vector<double>& v = values[size_t(b)];
                for (size_t i = 0; i < v.size(); ++i)
                    if (!isNoData(b, v[i]) && valid.ptr<uint8_t>(row0)[i])
                        v[i] = double(recovered[i]) * scale;
            }
            writeBlock(output, row0, rows, &values);
            progress(80 + 20.0 * (row0 + rows) / m_height);
        });
    }

    void homomorphic(const algokit::OutputRaster& output)
    {
        constexpr double kLowGain = 0.3; // share of the low-frequency variation kept
        const std::vector<BandRange> range = ranges(0, 20);
        std::vector<double> shift(static_cast<size_t>(m_bands));
        for (int b = 0; b < m_bands; ++b)
            shift[size_t(b)] = std::max(0.0, -range[size_t(b)].low) + 0.01 * (range[size_t(b)].high - range[size_t(b)].low);
        const int cellsX = (m_width + kCell - 1) / kCell, cellsY = (m_height + kCell - 1) / kCell;
        std::vector<cv::Mat> sums(static_cast<size_t>(m_bands)), counts(static_cast<size_t>(m_bands));
        for (int b = 0; b < m_bands; ++b)
        {
            sums[size_t(b)] = cv::Mat::zeros(cellsY, cellsX, CV_64F);
            counts[size_t(b)] = cv::Mat::zeros(cellsY, cellsX, CV_64F);
        }
        std::vector<std::vector<double>> values;
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            for (int b = 0; b < m_bands; ++b)
                for (int r = 0; r < rows; ++r)
                    for (int x = 0; x < m_width; ++x)
                    {
                        const double v = values[size_t(b)][size_t(r) * size_t(m_width) + size_t(x)];
                        if (isNoData(b, v))
                            continue;
                        sums[size_t(b)].at<double>((row0 + r) / kCell, x / kCell) += std::log(v + shift[size_t(b)]);
                        counts[size_t(b)].at<double>((row0 + r) / kCell, x / kCell) += 1;
                    }
            progress(20 + 40.0 * (row0 + rows) / m_height);
        });
        // The low-pass surface: cell means (empty cells take the scene mean), smoothed over a few cells.
        std::vector<cv::Mat> low(static_cast<size_t>(m_bands));
        std::vector<double> sceneMean(static_cast<size_t>(m_bands));
        for (int b = 0; b < m_bands; ++b)
        {
            const double total = cv::sum(counts[size_t(b)])[0];
            sceneMean[size_t(b)] = total > 0 ? cv::sum(sums[size_t(b)])[0] / total : 0.0;
            cv::Mat mean(cellsY, cellsX, CV_32F);
            for (int y = 0; y < cellsY; ++y)
                for (int x = 0; x < cellsX; ++x)
                {
                    const double n = counts[size_t(b)].at<double>(y, x);
                    mean.at<float>(y, x) = float(n > 0 ? sums[size_t(b)].at<double>(y, x) / n : sceneMean[size_t(b)]);
                }
            cv::GaussianBlur(mean, low[size_t(b)], cv::Size(0, 0), 2.0, 2.0, cv::BORDER_REFLECT);
        }
        algokit::forEachRowBlock(m_height, m_step, [&](int row0, int rows) {
            readBlock(row0, rows, &values);
            for (int b = 0; b < m_bands; ++b)
            {
                const cv::Mat& surface = low[size_t(b)];
                for (int r = 0; r < rows; ++r)
                {
                    // Cell centres sit at (c + 0.5) * kCell: interpolate bilinearly between them.
                    const double fy = std::clamp((row0 + r + 0.5) / kCell - 0.5, 0.0, double(cellsY - 1));
                    const int y0 = int(fy), y1 = std::min(y0 + 1, cellsY - 1);
                    const double ty = fy - y0;
                    for (int x = 0; x < m_width; ++x)
                    {
                        double& v = values[size_t(b)][size_t(r) * size_t(m_width) + size_t(x)];
                        if (isNoData(b, v))
                            continue;
                        const double fx = std::clamp((x + 0.5) / kCell - 0.5, 0.0, double(cellsX - 1));
                        const int x0 = int(fx), x1 = std::min(x0 + 1, cellsX - 1);
                        const double tx = fx - x0;
                        const double l = (1 - ty) * ((1 - tx) * surface.at<float>(y0, x0) + tx * surface.at<float>(y0, x1)) +
                                         ty * ((1 - tx) * surface.at<float>(y1, x0) + tx * surface.at<float>(y1, x1));
                        const double logValue = std::log(v + shift[size_t(b)]) - (1.0 - kLowGain) * (l - sceneMean[size_t(b)]);
                        v = std::exp(logValue) - shift[size_t(b)];
                    }
                }
            }
            writeBlock(output, row0, rows, &values);
            progress(60 + 40.0 * (row0 + rows) / m_height);
        });
    }

    struct Limits
    {
        bool integer = false;
        double low = 0, high = 0;
    };
    static Limits typeLimits(GDALDataType type)
    {
        switch (type)
        {
        case GDT_Byte: return {true, 0, 255};
        case GDT_UInt16: return {true, 0, 65535};
        case GDT_Int16: return {true, -32768, 32767};
        case GDT_UInt32: return {true, 0, 4294967295.0};
        case GDT_Int32: return {true, -2147483648.0, 2147483647.0};
        default: return {};
        }
    }

    algokit::DatasetPtr m_input;
    int m_bands = 0, m_width = 0, m_height = 0, m_step = 1;
    int m_blue = -1, m_red = -1;
    std::vector<double> m_noData;
    Limits m_limits;
};

} // namespace

ALGO_PLUGIN_FACTORY(ThinCloudRemove)
