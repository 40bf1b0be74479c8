// Plug-in "PolSAR_WishartUnsupervisedClassification": the H/alpha-Wishart classification (Lee et al. 1999). The
// eight feasible zones of the entropy/alpha plane seed the classes; Wishart k-means moves every pixel to the
// nearest centre until fewer than 1 % of the pixels change or Iterations passes are done; with ClassCount 16
// each class is then split by anisotropy (below / at or above 0.5) and the iteration runs again.
#include "classification_io.h"
#include "generic_params.h"
#include "polsar/PolSAR_Decomposition/ha_alpha_kernel.h"
#include "polsar/PolSAR_HAAlphaClassification/ha_alpha_zones.h"
#include "polsar_folder.h"
#include "wishart.h"

#include <QDir>
#include <QFileInfo>
#include <mutex>

namespace
{

using Matrix = Eigen::Matrix3cd;

polsarkernel::Coherency coherency(const Matrix& t)
{
    polsarkernel::Coherency c;
    c.t11 = t(0, 0).real();
    c.t22 = t(1, 1).real();
    c.t33 = t(2, 2).real();
    c.t12re = t(0, 1).real();
    c.t12im = t(0, 1).imag();
    c.t13re = t(0, 2).real();
    c.t13im = t(0, 2).imag();
    c.t23re = t(1, 2).real();
    c.t23im = t(1, 2).imag();
    return c;
}

struct ClassSums
{
    explicit ClassSums(int classes) : sums(size_t(classes), Matrix::Zero()), counts(size_t(classes), 0) {}
    std::vector<Matrix> sums;
    std::vector<long long> counts;
    long long changed = 0;
};

class PolSARWishartUnsupervised : public algokit::PluginBase
{
public:
    PolSARWishartUnsupervised() : PluginBase(QStringLiteral("PolSAR_WishartUnsupervisedClassification")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString outputDir = args.text("OutputDir").required();
        const int classCount = args.integer("ClassCount").orDefault(8).oneOf({8, 16});
        const int iterations = args.integer("Iterations").orDefault(10).range(1, 100);
        sar::PolFolderReader reader(inputDir);
        m_width = reader.width();
        m_height = reader.height();
        if (double(m_width) * m_height > 2e9)
            args.refuse("InputDir", inputDir, QStringLiteral("is too large for one label per pixel in memory"));
        m_labels.assign(size_t(m_width) * m_height, 0);

        // Zones (and anisotropy halves) of every pixel; label 0 stays for pixels without a valid matrix.
        ClassSums zones(2 * polsarzones::kZoneCount + 1);
        m_anisotropyHigh.assign(m_labels.size(), 0);
        pass(reader, [&](size_t index, const Matrix& t, ClassSums& sums) {
            const polsarkernel::HAAlphaLambda haa = polsarkernel::haAlphaLambda(coherency(t));
            if (!std::isfinite(haa.entropy))
                return;
            const int label = polsarzones::zoneOf(haa.entropy, haa.alphaDegrees) + 1;
            m_labels[index] = static_cast<unsigned char>(label);
            m_anisotropyHigh[index] = haa.anisotropy >= 0.5f;
            sums.sums[size_t(label)] += t;
            ++sums.counts[size_t(label)];
        }, zones, 0.0, 10.0);
        std::vector<Matrix> centres = means(zones, polsarzones::kZoneCount + 1);

        int passes = 0;
        double changedShare = iterate(reader, centres, iterations, 10.0, classCount == 16 ? 55.0 : 95.0, &passes);
        if (classCount == 16)
        {
            // Each class split by the anisotropy of its pixels: class c becomes 2c - 1 (A < 0.5) and 2c (A >= 0.5).
            ClassSums halves(17);
            for (size_t i = 0; i < m_labels.size(); ++i)
                if (m_labels[i])
                    m_labels[i] = static_cast<unsigned char>(2 * m_labels[i] - 1 + m_anisotropyHigh[i]);
            pass(reader, [&](size_t index, const Matrix& t, ClassSums& sums) {
                if (m_labels[index])
                {
                    sums.sums[m_labels[index]] += t;
                    ++sums.counts[m_labels[index]];
                }
            }, halves, 55.0, 60.0);
            centres = means(halves, 17);
            int more = 0;
            changedShare = iterate(reader, centres, iterations, 60.0, 95.0, &more);
            passes += more;
        }

        const QString outputPath = QDir(outputDir).filePath(QDir(QFileInfo(inputDir).absoluteFilePath()).dirName() +
                                                           "_Wishart" + QString::number(classCount) + ".tif");
        writeClasses(outputPath, classCount, centres);
        setResult(algokit::GenericOutputs()
                      .add("PolSAR_WishartUnsupervisedClassification_images", outputPath)
                      .add("PolSAR_WishartUnsupervisedClassification_iterations", QString::number(passes))
                      .add("PolSAR_WishartUnsupervisedClassification_changed_percent", QString::number(100.0 * changedShare, 'f', 2))
                      .result());
        return true;
    }

private:
    // One pass over the folder: visit(pixel index, its T3, this thread's sums) for every pixel with a finite
    // matrix; progress from `from` to `to` percent.
    void pass(sar::PolFolderReader& reader, const std::function<void(size_t, const Matrix&, ClassSums&)>& visit,
              ClassSums& total, double from, double to)
    {
        const int perPixel = sar::floatsPerPixel(reader.kind());
        const int blockRows = std::max(1, int((16u << 20) / (size_t(m_width) * 4 * perPixel)));
        std::vector<float> pixels;
        std::mutex lock;
        algokit::forEachRowBlock(m_height, blockRows, [&](int row0, int rows) {
            reader.readRows(row0, rows, pixels);
            algokit::parallelFor(rows, [&](int begin, int end) {
                ClassSums local(int(total.sums.size()));
                sar::PolCov matrix;
                for (size_t p = size_t(begin) * m_width; p < size_t(end) * m_width; ++p)
                {
                    const float* f = pixels.data() + p * perPixel;
                    bool finite = true;
                    for (int k = 0; k < perPixel; ++k)
                        finite = finite && std::isfinite(f[k]);
                    if (!finite)
                        continue;
                    sar::matrixFromFloats(reader.kind(), f, matrix);
                    const Matrix t = sar::convertMatrix(reader.kind(), sar::PolMatrix::T3, matrix).topLeftCorner<3, 3>();
                    visit(size_t(row0) * m_width + p, t, local);
                }
                std::lock_guard<std::mutex> guard(lock);
                for (size_t c = 0; c < total.sums.size(); ++c)
                {
                    total.sums[c] += local.sums[c];
                    total.counts[c] += local.counts[c];
                }
                total.changed += local.changed;
            });
            progress(from + (to - from) * (row0 + rows) / m_height);
        });
    }

    static std::vector<Matrix> means(const ClassSums& sums, int classes)
    {
        std::vector<Matrix> centres(size_t(classes), Matrix::Zero());
        for (int c = 1; c < classes; ++c)
            if (sums.counts[size_t(c)] > 0)
                centres[size_t(c)] = sums.sums[size_t(c)] / double(sums.counts[size_t(c)]);
        return centres;
    }

    // Wishart k-means from `centres` (index 0 unused); returns the share of pixels changed in the last pass.
    double iterate(sar::PolFolderReader& reader, std::vector<Matrix>& centres, int iterations, double from, double to,
                   int* passes)
    {
        const int classes = int(centres.size());
        double changedShare = 0.0;
        long long valid = 0;
        for (unsigned char label : m_labels)
            valid += label != 0;
        for (int i = 0; i < iterations; ++i)
        {
            std::vector<sar::WishartCentre> models;
            for (const Matrix& centre : centres)
                models.push_back(sar::wishartCentre(centre));
            ClassSums sums(classes);
            const double step = (to - from) / iterations;
            pass(reader, [&](size_t index, const Matrix& t, ClassSums& local) {
                if (!m_labels[index])
                    return;
                int best = m_labels[index];
                double bestDistance = std::numeric_limits<double>::infinity();
                for (int c = 1; c < classes; ++c)
                    if (models[size_t(c)].usable)
                    {
                        const double d = sar::wishartDistance(models[size_t(c)], t);
                        if (d < bestDistance)
                        {
                            bestDistance = d;
                            best = c;
                        }
                    }
                local.changed += best != m_labels[index];
                m_labels[index] = static_cast<unsigned char>(best);
                local.sums[size_t(best)] += t;
                ++local.counts[size_t(best)];
            }, sums, from + i * step, from + (i + 1) * step);
            *passes = i + 1;
            for (int c = 1; c < classes; ++c)
                if (sums.counts[size_t(c)] > 0)
                    centres[size_t(c)] = sums.sums[size_t(c)] / double(sums.counts[size_t(c)]);
            changedShare = valid ? double(sums.changed) / double(valid) : 0.0;
            if (changedShare < 0.01)
                break;
        }
        return changedShare;
    }

    void writeClasses(const QString& path, int classCount, const std::vector<Matrix>& centres)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        std::vector<algokit::Rgb> colours{{0, 0, 0}};
        QStringList names{"Unclassified"};
        for (int z = 0; z < polsarzones::kZoneCount; ++z)
        {
            const polsarzones::ZoneInfo& zone = polsarzones::kZones[z];
            const QString name = QString::fromLatin1(zone.name);
            if (classCount == 8)
            {
                colours.push_back({zone.red, zone.green, zone.blue});
                names << name;
                continue;
            }
            colours.push_back({zone.red / 2, zone.green / 2, zone.blue / 2});
            names << name + ", anisotropy < 0.5";
            colours.push_back({zone.red, zone.green, zone.blue});
            names << name + ", anisotropy >= 0.5";
        }
        GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
        algokit::DatasetPtr shape(memory->Create("", m_width, m_height, 0, GDT_Byte, nullptr));
        algokit::OutputRaster output = algokit::createClassRaster(path, shape.get(), colours, names);
        output.band(0)->SetNoDataValue(0);
        // The class centres (T3 upper triangles) travel with the image, for merging classes later.
        for (size_t c = 1; c < centres.size(); ++c)
        {
            QStringList values;
            const Matrix& t = centres[c];
            for (double v : {t(0, 0).real(), t(0, 1).real(), t(0, 1).imag(), t(0, 2).real(), t(0, 2).imag(),
                             t(1, 1).real(), t(1, 2).real(), t(1, 2).imag(), t(2, 2).real()})
                values << QString::number(v, 'g', 17);
            output.get()->SetMetadataItem(QStringLiteral("WISHART_CENTRE_%1").arg(c).toUtf8().constData(),
                                          values.join(' ').toUtf8().constData(), "POLSAR");
        }
        const int blockRows = std::max(1, (8 << 20) / std::max(1, m_width));
        algokit::forEachRowBlock(m_height, blockRows, [&](int row0, int rows) {
            std::vector<unsigned char> block(m_labels.begin() + size_t(row0) * m_width,
                                             m_labels.begin() + size_t(row0 + rows) * m_width);
            algokit::writeRows(output.band(0), row0, rows, block);
            progress(95.0 + 5.0 * (row0 + rows) / m_height);
        });
        output.commit();
    }

    int m_width = 0;
    int m_height = 0;
    std::vector<unsigned char> m_labels;
    std::vector<unsigned char> m_anisotropyHigh;
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARWishartUnsupervised)
