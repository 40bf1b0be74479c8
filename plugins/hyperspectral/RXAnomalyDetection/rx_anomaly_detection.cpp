// Plug-in "RXAnomalyDetection": the Reed-Xiaoli detector (Reed and Yu, 1990), the Mahalanobis distance of each
// pixel from its background over the bands not flagged bad, written as Float32 scores (no-data NaN where a
// band is missing).
//   Method 0 global: mean and covariance of the whole image, two streaming passes.
//   Method 1 local:  mean and covariance of a dual window, the WindowSize x WindowSize outer window less a guard
//                    window around the pixel (odd, about half as wide), as in Orfeo ToolBox's LocalRxDetection.
//   Method 2 global covariance, local mean: the mean of the same dual window.
// With fewer than ten pixels per band, covariances are shrunk towards a multiple of the identity by the Ledoit-Wolf
// intensity, so that windows with fewer pixels than bands still give scores.
#include "hyperspectral/hys_common.h"
#include "rx_statistics.h"
#include "spectral_cube.h"

#include <numeric>

namespace
{

using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

class RXAnomalyDetection : public algokit::PluginBase
{
public:
    RXAnomalyDetection() : PluginBase(QStringLiteral("RXAnomalyDetection")) {}

protected:
    bool run() override
    {
        const GenericAlgoRecord record = hysa::withoutZeros(params<GenericAlgoRecord>(), {"WindowSize"});
        algokit::GenericParams args(record, GetName());
        m_input = hysa::openCube(args, QStringLiteral("InputFile"), 2);
        const QString outputPath = args.text(QStringLiteral("OutputFile")).required().writableOutput();
        const int method = args.integer(QStringLiteral("Method")).orDefault(0).oneOf({0, 1, 2});
        m_width = m_input->GetRasterXSize();
        m_height = m_input->GetRasterYSize();
        const hysa::SpectralAxis axis = hysa::readSpectralAxis(m_input.get());
        for (int k = 0; k < axis.size(); ++k)
            if (axis.good[size_t(k)])
                m_bands.push_back(k + 1);
        if (m_bands.size() < 2)
            args.refuse(QStringLiteral("InputFile"), args.text(QStringLiteral("InputFile")).value(),
                        QStringLiteral("must have at least 2 bands not flagged bad, it has %1").arg(m_bands.size()));
        if (method != 0)
        {
            const int window = args.integer(QStringLiteral("WindowSize")).orDefault(11).atLeast(3).odd();
            if (window > std::min(m_width, m_height))
                args.refuse(QStringLiteral("WindowSize"), QString::number(window),
                            QStringLiteral("must not exceed the image's %1 x %2 pixels").arg(m_width).arg(m_height));
            m_outer = window / 2;
            m_guard = (m_outer - 1) / 2;
        }

        Eigen::MatrixXd whiten;
        Eigen::VectorXd mean;
        if (method != 1)
        {
            hysa::MomentAccumulator moments(int(m_bands.size()));
            const hys::BlockReader reader(m_input.get(), m_bands, HysPixelRect{0, 0, m_width, m_height});
            const int step = reader.blockRows();
            hysa::PassedBlocks passed(m_input.get(), m_bands);
            std::vector<double> block;
            for (int row0 = 0; row0 < m_height; row0 += step)
            {
                const int rows = std::min(step, m_height - row0);
                size_t pitch = 0;
                reader.read(row0, rows, block, pitch);
                passed.doneAbove(row0 + rows);
                moments.add(
                    Eigen::Map<const RowMajor>(block.data(), Eigen::Index(m_bands.size()), Eigen::Index(pitch)));
                progress(40.0 * (row0 + rows) / m_height);
            }
            if (moments.count() < 2)
                args.refuse(QStringLiteral("InputFile"), args.text(QStringLiteral("InputFile")).value(),
                            QStringLiteral("must have at least 2 pixels with every band present"));
            whiten = hysa::whitening(moments.shrunkCovariance());
            if (whiten.size() == 0)
                args.refuse(
                    QStringLiteral("InputFile"), args.text(QStringLiteral("InputFile")).value(),
                    QStringLiteral("has a singular covariance (a band is constant or a combination of others)"));
            mean = moments.mean();
        }

        algokit::OutputRaster output(outputPath, algokit::driverForPath(outputPath), m_width, m_height, 1, GDT_Float32);
        output.copyGeoreferencing(m_input.get());
        output.band(0)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
        output.band(0)->SetDescription(method == 0   ? "RX score (global)"
                                       : method == 1 ? "RX score (local)"
                                                     : "RX score (local mean)");
        const double start = method == 1 ? 0.0 : 40.0;
        if (method == 0)
            globalScores(whiten, mean, output, start);
        else
            windowScores(method, whiten, output, start);
        output.commit();
        return true;
    }

private:
    void globalScores(const Eigen::MatrixXd& whiten, const Eigen::VectorXd& mean, algokit::OutputRaster& output,
                      double start)
    {
        const hys::BlockReader reader(m_input.get(), m_bands, HysPixelRect{0, 0, m_width, m_height});
        const int step = reader.blockRows();
        hysa::PassedBlocks passed(m_input.get(), m_bands);
        std::vector<double> block;
        std::vector<float> scores;
        const Eigen::Index p = Eigen::Index(m_bands.size());
        for (int row0 = 0; row0 < m_height; row0 += step)
        {
            const int rows = std::min(step, m_height - row0);
            size_t pitch = 0;
            reader.read(row0, rows, block, pitch);
            passed.doneAbove(row0 + rows);
            scores.resize(pitch);
            const Eigen::Map<const RowMajor> x(block.data(), p, Eigen::Index(pitch));
            // One share of the pixels per core: z is (bands x share) doubles, a few tens of MB at most.
            algokit::parallelFor(int(pitch), [&](int begin, int end) {
                const Eigen::MatrixXd z = whiten * (x.middleCols(begin, end - begin).colwise() - mean);
                for (Eigen::Index j = begin; j < end; ++j)
                    scores[size_t(j)] = float(z.col(j - begin).squaredNorm());
            });
            algokit::writeRows(output.band(0), row0, rows, scores);
            progress(start + (100.0 - start) * (row0 + rows) / m_height);
        }
    }

    // Methods 1 and 2, block by block with a halo of the outer radius above and below.
    void windowScores(int method, const Eigen::MatrixXd& whiten, algokit::OutputRaster& output, double start)
    {
        const hys::BlockReader reader(m_input.get(), m_bands, HysPixelRect{0, 0, m_width, m_height});
        const Eigen::Index p = Eigen::Index(m_bands.size());
        // Local covariances cost far more per pixel than reading: short blocks keep progress regular.
        const int step = std::max(1, std::min(method == 1 ? 16 : 1 << 20, hysa::blockRowsFor(m_width, int(p))));
        hysa::PassedBlocks passed(m_input.get(), m_bands);
        std::vector<double> block;
        std::vector<float> scores;
        for (int row0 = 0; row0 < m_height; row0 += step)
        {
            const int rows = std::min(step, m_height - row0);
            const int top = std::max(0, row0 - m_outer), bottom = std::min(m_height, row0 + rows + m_outer);
            reader.readWindow(HysPixelRect{0, top, m_width, bottom - top}, block);
            // The next block reads from row0 + rows - outer on.
            passed.doneAbove(std::max(0, row0 + rows - m_outer));
            const size_t pitch = size_t(m_width) * size_t(bottom - top);
            scores.assign(size_t(m_width) * size_t(rows), std::numeric_limits<float>::quiet_NaN());
            if (method == 1)
                localBlock(block, pitch, top, bottom, row0, rows, scores);
            else
                localMeanBlock(whiten, block, pitch, top, bottom, row0, rows, scores);
            algokit::writeRows(output.band(0), row0, rows, scores);
            progress(start + (100.0 - start) * (row0 + rows) / m_height);
        }
    }

    void localBlock(const std::vector<double>& block, size_t pitch, int top, int bottom, int row0, int rows,
                    std::vector<float>& scores) const
    {
        const Eigen::Index p = Eigen::Index(m_bands.size());
        const Eigen::Map<const RowMajor> x(block.data(), p, Eigen::Index(pitch));
        algokit::parallelFor(m_width * rows, [&](int begin, int end) {
            Eigen::MatrixXd background(p, (2 * m_outer + 1) * (2 * m_outer + 1));
            for (int index = begin; index < end; ++index)
            {
                const int row = row0 + index / m_width, col = index % m_width;
                const Eigen::Index centre = Eigen::Index(row - top) * m_width + col;
                if (x.col(centre).hasNaN())
                    continue;
                Eigen::Index n = 0;
                for (int r = std::max(top, row - m_outer); r <= std::min(bottom - 1, row + m_outer); ++r)
                    for (int c = std::max(0, col - m_outer); c <= std::min(m_width - 1, col + m_outer); ++c)
                    {
                        if (std::abs(r - row) <= m_guard && std::abs(c - col) <= m_guard)
                            continue;
                        const Eigen::Index j = Eigen::Index(r - top) * m_width + c;
                        if (!x.col(j).hasNaN())
                            background.col(n++) = x.col(j);
                    }
                scores[size_t(index)] = float(hysa::localRxScore(background.leftCols(n), x.col(centre)));
            }
        });
    }

    void localMeanBlock(const Eigen::MatrixXd& whiten, const std::vector<double>& block, size_t pitch, int top,
                        int bottom, int row0, int rows, std::vector<float>& scores) const
    {
        const Eigen::Index p = Eigen::Index(m_bands.size());
        const int height = bottom - top, stride = m_width + 1;
        // Whitened pixels (missing ones as zero) and summed-area tables of them and of the valid-pixel mask.
        RowMajor z(p, Eigen::Index(pitch));
        std::vector<char> valid(pitch);
        const Eigen::Map<const RowMajor> x(block.data(), p, Eigen::Index(pitch));
        algokit::parallelFor(int(pitch), [&](int begin, int end) {
            for (int j = begin; j < end; ++j)
            {
                valid[size_t(j)] = !x.col(j).hasNaN();
                z.col(j) = valid[size_t(j)] ? Eigen::VectorXd(whiten * x.col(j)) : Eigen::VectorXd::Zero(p);
            }
        });
        const size_t tableSize = size_t(stride) * size_t(height + 1);
        std::vector<double> sums(tableSize * size_t(p + 1), 0.0);
        algokit::parallelFor(int(p + 1), [&](int k0, int k1) {
            for (int k = k0; k < k1; ++k)
            {
                double* table = sums.data() + size_t(k) * tableSize;
                for (int r = 0; r < height; ++r)
                {
                    double line = 0.0;
                    for (int c = 0; c < m_width; ++c)
                    {
                        const size_t j = size_t(r) * m_width + c;
                        line += k < p ? z(k, Eigen::Index(j)) : double(valid[j]);
                        table[size_t(r + 1) * stride + c + 1] = table[size_t(r) * stride + c + 1] + line;
                    }
                }
            }
        });
        auto boxSum = [&](int k, int r0, int r1, int c0, int c1) { // inclusive rows/columns of the block
            const double* table = sums.data() + size_t(k) * tableSize;
            return table[size_t(r1 + 1) * stride + c1 + 1] - table[size_t(r0) * stride + c1 + 1] -
                   table[size_t(r1 + 1) * stride + c0] + table[size_t(r0) * stride + c0];
        };
        algokit::parallelFor(m_width * rows, [&](int begin, int end) {
            for (int index = begin; index < end; ++index)
            {
                const int row = row0 + index / m_width - top, col = index % m_width;
                const size_t centre = size_t(row) * m_width + col;
                if (!valid[centre])
                    continue;
                const int o0 = std::max(0, row - m_outer), o1 = std::min(height - 1, row + m_outer);
                const int oc0 = std::max(0, col - m_outer), oc1 = std::min(m_width - 1, col + m_outer);
                const int g0 = std::max(0, row - m_guard), g1 = std::min(height - 1, row + m_guard);
                const int gc0 = std::max(0, col - m_guard), gc1 = std::min(m_width - 1, col + m_guard);
                const double count = boxSum(int(p), o0, o1, oc0, oc1) - boxSum(int(p), g0, g1, gc0, gc1);
                if (count < 1.0)
                    continue;
                double score = 0.0;
                for (int k = 0; k < p; ++k)
                {
                    const double localMean = (boxSum(k, o0, o1, oc0, oc1) - boxSum(k, g0, g1, gc0, gc1)) / count;
                    const double d = z(k, Eigen::Index(centre)) - localMean;
                    score += d * d;
                }
                scores[size_t(index)] = float(score);
            }
        });
    }

    algokit::DatasetPtr m_input;
    std::vector<int> m_bands;
    int m_width = 0, m_height = 0, m_outer = 0, m_guard = 0;
};

} // namespace

ALGO_PLUGIN_FACTORY(RXAnomalyDetection)
