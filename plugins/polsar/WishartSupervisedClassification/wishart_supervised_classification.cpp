// Plug-in "WishartSupervisedClassification": every pixel of a quad-pol folder to the training class of least
// Wishart distance ln|V| + tr(V^-1 T) (Lee, Grunes and Kwok 1994), V the mean coherency matrix of each class's
// training pixels; a class image with the ROI's names and colours and the confusion matrix of the training areas.
#include "classification_io.h"
#include "generic_params.h"
#include "polsar_folder.h"
#include "roi_raster.h"
#include "wishart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <mutex>

namespace
{

using Matrix = Eigen::Matrix3cd;

class WishartSupervised : public algokit::PluginBase
{
public:
    WishartSupervised() : PluginBase(QStringLiteral("WishartSupervisedClassification")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString roiFile = args.text("RoiFile").required();
        const QString outputDir = args.text("OutputDir").required();
        const QStringList names = args.raw("RoiClassNames").toStringList();
        const QStringList colours = args.raw("RoiClassColours").toStringList();
        const QStringList geometries = args.raw("RoiClassGeometries").toStringList();
        if (names.isEmpty() || names.size() != colours.size() || names.size() != geometries.size() || names.size() > 255)
            args.refuse("RoiFile", roiFile, QStringLiteral("came without its classes (names, colours and areas)"));
        sar::PolFolderReader reader(inputDir);
        const int width = reader.width(), height = reader.height(), classes = names.size();
        std::vector<std::string> wkt;
        for (const QString& geometry : geometries)
            wkt.push_back(geometry.toStdString());
        sar::RoiLabels training;
        std::string error;
        if (!sar::rasterizeRoi(wkt, width, height, training, &error))
            args.refuse("RoiFile", roiFile, QString::fromStdString(error));
        const sar::MatrixConverter toT3(reader.kind(), sar::PolMatrix::T3);
        const int perPixel = sar::floatsPerPixel(reader.kind());

        // Class centres from the training pixels (finite matrices only).
        std::vector<Matrix> sums(size_t(classes) + 1, Matrix::Zero());
        std::vector<long long> counts(size_t(classes) + 1, 0);
        std::vector<float> pixels;
        const int blockRows = std::max(1, int((16u << 20) / (size_t(width) * 4 * perPixel)));
        if (training.height > 0)
            algokit::forEachRowBlock(training.height, blockRows, [&](int offset, int rows) {
                reader.readRows(training.y0 + offset, rows, pixels);
                float t3[9];
                sar::PolCov matrix;
                for (int r = 0; r < rows; ++r)
                    for (int c = 0; c < training.width; ++c)
                    {
                        const int label = training.labels[size_t(offset + r) * training.width + c];
                        const float* f = pixels.data() + (size_t(r) * width + training.x0 + c) * perPixel;
                        if (!label || !std::all_of(f, f + perPixel, [](float v) { return std::isfinite(v); }))
                            continue;
                        toT3.convert(f, t3);
                        sar::matrixFromFloats(sar::PolMatrix::T3, t3, matrix);
                        sums[size_t(label)] += matrix.topLeftCorner<3, 3>();
                        ++counts[size_t(label)];
                    }
                progress(20.0 * (offset + rows) / training.height);
            });
        std::vector<sar::WishartCentre> centres(size_t(classes) + 1);
        std::vector<Matrix> means(size_t(classes) + 1, Matrix::Zero());
        for (int c = 1; c <= classes; ++c)
        {
            if (counts[size_t(c)] < 9)
                args.refuse("RoiFile", roiFile, QStringLiteral("has the class \"%1\" with %2 valid pixels, fewer than the 9 a covariance needs")
                                                    .arg(names[c - 1]).arg(counts[size_t(c)]));
            means[size_t(c)] = sums[size_t(c)] / double(counts[size_t(c)]);
            centres[size_t(c)] = sar::wishartCentre(means[size_t(c)]);
            if (!centres[size_t(c)].usable)
                args.refuse("RoiFile", roiFile, QStringLiteral("has the class \"%1\" whose mean matrix is singular").arg(names[c - 1]));
        }

        // The class image, and the confusion of the training pixels (rows: ROI class, columns: assigned class).
        const QString base = QDir(outputDir).filePath(QDir(QFileInfo(inputDir).absoluteFilePath()).dirName() + "_WishartSupervised");
        QDir().mkpath(outputDir);
        std::vector<algokit::Rgb> palette{{0, 0, 0}};
        QStringList classNames{"Unclassified"};
        for (int c = 0; c < classes; ++c)
        {
            const QStringList rgb = colours[c].split(',');
            palette.push_back({rgb.value(0).toInt(), rgb.value(1).toInt(), rgb.value(2).toInt()});
            classNames << names[c];
        }
        GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
        algokit::DatasetPtr shape(memory->Create("", width, height, 0, GDT_Byte, nullptr));
        claimOutput(base + ".tif");
        algokit::OutputRaster output = algokit::createClassRaster(base + ".tif", shape.get(), palette, classNames);
        output.band(0)->SetNoDataValue(0);
        std::vector<long long> confusion(size_t(classes + 1) * (classes + 1), 0);
        std::vector<unsigned char> labels;
        std::mutex lock;
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            reader.readRows(row0, rows, pixels);
            labels.assign(size_t(rows) * width, 0);
            algokit::parallelFor(rows, [&](int begin, int end) {
                std::vector<long long> local(confusion.size(), 0);
                float t3[9];
                sar::PolCov matrix;
                for (size_t p = size_t(begin) * width; p < size_t(end) * width; ++p)
                {
                    const float* f = pixels.data() + p * perPixel;
                    if (!std::all_of(f, f + perPixel, [](float v) { return std::isfinite(v); }))
                        continue;
                    toT3.convert(f, t3);
                    sar::matrixFromFloats(sar::PolMatrix::T3, t3, matrix);
                    const Matrix t = matrix.topLeftCorner<3, 3>();
                    int best = 1;
                    double bestDistance = std::numeric_limits<double>::infinity();
                    for (int c = 1; c <= classes; ++c)
                    {
                        const double d = sar::wishartDistance(centres[size_t(c)], t);
                        if (d < bestDistance)
                        {
                            bestDistance = d;
                            best = c;
                        }
                    }
                    labels[p] = static_cast<unsigned char>(best);
                    const int x = int(p % width) - training.x0, y = row0 + int(p / width) - training.y0;
                    if (x >= 0 && y >= 0 && x < training.width && y < training.height)
                        if (const int truth = training.labels[size_t(y) * training.width + x])
                            ++local[size_t(truth) * (classes + 1) + best];
                }
                std::lock_guard<std::mutex> guard(lock);
                for (size_t k = 0; k < local.size(); ++k)
                    confusion[k] += local[k];
            });
            algokit::writeRows(output.band(0), row0, rows, labels);
            progress(20.0 + 75.0 * (row0 + rows) / height);
        });
        output.commit();
        const double accuracy = writeConfusion(base + "_confusion.txt", names, confusion);
        setResult(algokit::GenericOutputs()
                      .add("WishartSupervisedClassification_images", base + ".tif|" + base + "_confusion.txt")
                      .add("WishartSupervisedClassification_training_accuracy", QString::number(100.0 * accuracy, 'f', 2))
                      .result());
        return true;
    }

private:
    // Counts with the ROI classes as rows and the assigned classes as columns, then producer's and user's
    // accuracies, overall accuracy and kappa; returns the overall accuracy.
    double writeConfusion(const QString& path, const QStringList& names, const std::vector<long long>& confusion)
    {
        const int n = names.size(), stride = n + 1;
        claimOutput(path);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
        QTextStream out(&file);
        out << "Confusion matrix of the training areas (rows: ROI class, columns: assigned class, pixels)\n";
        out << "ROI class";
        for (const QString& name : names)
            out << '\t' << name;
        out << "\tTotal\tProducer's accuracy %\n";
        long long total = 0, agreeing = 0;
        std::vector<long long> rowTotals(size_t(n) + 1, 0), columnTotals(size_t(n) + 1, 0);
        for (int r = 1; r <= n; ++r)
            for (int c = 1; c <= n; ++c)
            {
                const long long v = confusion[size_t(r) * stride + c];
                rowTotals[size_t(r)] += v;
                columnTotals[size_t(c)] += v;
                total += v;
                agreeing += r == c ? v : 0;
            }
        for (int r = 1; r <= n; ++r)
        {
            out << names[r - 1];
            for (int c = 1; c <= n; ++c)
                out << '\t' << confusion[size_t(r) * stride + c];
            const long long diagonal = confusion[size_t(r) * stride + r];
            out << '\t' << rowTotals[size_t(r)] << '\t'
                << QString::number(rowTotals[size_t(r)] ? 100.0 * diagonal / rowTotals[size_t(r)] : 0.0, 'f', 2) << '\n';
        }
        out << "User's accuracy %";
        double expected = 0.0;
        for (int c = 1; c <= n; ++c)
        {
            const long long diagonal = confusion[size_t(c) * stride + c];
            out << '\t' << QString::number(columnTotals[size_t(c)] ? 100.0 * diagonal / columnTotals[size_t(c)] : 0.0, 'f', 2);
            expected += double(rowTotals[size_t(c)]) * double(columnTotals[size_t(c)]);
        }
        const double overall = total ? double(agreeing) / double(total) : 0.0;
        const double chance = total ? expected / (double(total) * double(total)) : 0.0;
        out << "\nOverall accuracy %\t" << QString::number(100.0 * overall, 'f', 2) << "\nKappa\t"
            << QString::number(chance < 1.0 ? (overall - chance) / (1.0 - chance) : 1.0, 'f', 4) << '\n';
        out.flush();
        if (out.status() != QTextStream::Ok)
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
        return overall;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(WishartSupervised)
