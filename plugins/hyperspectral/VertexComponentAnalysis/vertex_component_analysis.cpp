// Plug-in "VertexComponentAnalysis": endmembers by vertex component analysis (Nascimento and Bioucas-Dias, 2005)
// over the bands not flagged bad, with a fixed seed so that runs repeat, then the abundance of each endmember in
// every pixel by fully constrained least squares (non-negative, summing to one). Writes the endmembers as an
// ENVI spectral library (OutputFile and its .hdr: wavelengths, names) and as CSV, and the abundances as a
// GeoTIFF beside them.
#include "fcls.h"
#include "hyperspectral/hys_common.h"
#include "rx_statistics.h"
#include "spectral_cube.h"
#include "vca.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace
{

using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

struct Endmember
{
    int x = 0, y = 0;
    QString name;
    std::vector<double> spectrum; // every band of the image
};

class VertexComponentAnalysis : public algokit::PluginBase
{
public:
    VertexComponentAnalysis() : PluginBase(QStringLiteral("VertexComponentAnalysis")) {}

protected:
    bool run() override
    {
        const GenericAlgoRecord record = hysa::withoutZeros(params<GenericAlgoRecord>(), {"EndmemberCount"});
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).value();
        algokit::DatasetPtr input = hysa::openCube(args, QStringLiteral("InputFile"), 2);
        const QString libraryPath = args.text(QStringLiteral("OutputFile")).required().writableOutput();
        const QString suffix = QFileInfo(libraryPath).suffix().toLower();
        // The other outputs are named after the library; a raster suffix would promise a format it is not.
        if (QStringList{"hdr", "csv", "tif", "tiff", "img"}.contains(suffix))
            args.refuse(QStringLiteral("OutputFile"), libraryPath,
                        QStringLiteral("must name the spectral library (.sli), not a .%1 file").arg(suffix));
        const hysa::SpectralAxis axis = hysa::readSpectralAxis(input.get());
        std::vector<int> used; // 1-based good bands
        for (int k = 0; k < axis.size(); ++k)
            if (axis.good[size_t(k)])
                used.push_back(k + 1);
        const int count = args.integer(QStringLiteral("EndmemberCount")).orDefault(3).range(2, 63);
        if (count > int(used.size()))
            args.refuse(
                QStringLiteral("EndmemberCount"), QString::number(count),
                QStringLiteral("must not exceed the %1 bands of the image that are not flagged bad").arg(used.size()));
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        algokit::checkWholeImageSize(input.get(), inputPath, size_t(count) * sizeof(float));

        // Pass 1: mean and correlation of the complete pixels.
        const hys::BlockReader reader(input.get(), used, HysPixelRect{0, 0, width, height});
        const int step = reader.blockRows();
        hysa::PassedBlocks passed(input.get(), used);
        const Eigen::Index p = Eigen::Index(used.size());
        std::vector<double> block;
        hysa::MomentAccumulator moments{int(p)};
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            size_t pitch = 0;
            reader.read(row0, rows, block, pitch);
            passed.doneAbove(row0 + rows);
            moments.add(Eigen::Map<const RowMajor>(block.data(), p, Eigen::Index(pitch)));
            progress(20.0 * (row0 + rows) / height);
        }
        if (moments.count() < count)
            args.refuse(QStringLiteral("EndmemberCount"), QString::number(count),
                        QStringLiteral("must not exceed the %1 pixels that have every band").arg(moments.count()));
        const Eigen::VectorXd mean = moments.mean();
        const hysa::VcaProjection projection =
            hysa::vcaProjection(mean, moments.covariance() + mean * mean.transpose(), count);

        // Pass 2: every pixel reduced to `count` coordinates, then the vertex search.
        Eigen::MatrixXf reduced(count, Eigen::Index(width) * height);
        passed.restart();
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            size_t pitch = 0;
            reader.read(row0, rows, block, pitch);
            passed.doneAbove(row0 + rows);
            reduced.middleCols(Eigen::Index(row0) * width, Eigen::Index(pitch)) =
                hysa::vcaReduce(projection, Eigen::Map<const RowMajor>(block.data(), p, Eigen::Index(pitch)));
            progress(20.0 + 20.0 * (row0 + rows) / height);
        }
        if (!projection.projective)
            hysa::appendBound(reduced);
        const std::vector<std::int64_t> vertices = hysa::vcaVertices(reduced, count);
        reduced.resize(0, 0);

        std::vector<Endmember> endmembers;
        Eigen::MatrixXd matrix(p, count); // endmembers over the good bands
        for (int i = 0; i < count; ++i)
        {
            if (vertices[size_t(i)] < 0)
                return fail(QStringLiteral("VertexComponentAnalysis: no pixel of %1 could serve as endmember %2.")
                                .arg(inputPath)
                                .arg(i + 1));
            Endmember endmember;
            endmember.x = int(vertices[size_t(i)] % width);
            endmember.y = int(vertices[size_t(i)] / width);
            endmember.name = QStringLiteral("Endmember %1 at x%2 y%3").arg(i + 1).arg(endmember.x).arg(endmember.y);
            endmember.spectrum.resize(size_t(axis.size()));
            if (input->RasterIO(GF_Read, endmember.x, endmember.y, 1, 1, endmember.spectrum.data(), 1, 1, GDT_Float64,
                                axis.size(), nullptr, 0, 0, sizeof(double), nullptr) != CE_None)
                return fail(QStringLiteral("Reading pixel x %1, y %2 failed: %3")
                                .arg(endmember.x)
                                .arg(endmember.y)
                                .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
            for (Eigen::Index k = 0; k < p; ++k)
                matrix(k, i) = endmember.spectrum[size_t(used[size_t(k)] - 1)];
            endmembers.push_back(std::move(endmember));
        }

        const QFileInfo info(libraryPath);
        const QString base = info.absolutePath() + "/" + info.completeBaseName();
        const QString headerPath = (suffix.isEmpty() ? libraryPath : base) + ".hdr";
        const QString csvPath = base + ".csv";
        const QString abundancePath = base + "_abundance.tif";
        writeLibrary(libraryPath, headerPath, inputPath, axis, endmembers);
        writeCsv(csvPath, axis, endmembers);
        passed.restart();
        writeAbundances(abundancePath, input.get(), reader, passed, step, matrix, endmembers);
        setResult(algokit::GenericOutputs()
                      .add(QStringLiteral("LibraryHeader"), headerPath)
                      .add(QStringLiteral("EndmemberCsv"), csvPath)
                      .add(QStringLiteral("AbundanceFile"), abundancePath)
                      .result());
        return true;
    }

private:
    void writeText(const QString& path, const QByteArray& text)
    {
        claimOutput(path);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text) != text.size() || !file.flush())
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    }

    static QString listOf(const QStringList& items)
    {
        return QLatin1Char('{') + items.join(QLatin1String(", ")) + QLatin1Char('}');
    }

    void writeLibrary(const QString& path, const QString& headerPath, const QString& inputPath,
                      const hysa::SpectralAxis& axis, const std::vector<Endmember>& endmembers)
    {
        QByteArray data;
        for (const Endmember& endmember : endmembers)
            for (double value : endmember.spectrum)
            {
                const float sample = float(value);
                data.append(reinterpret_cast<const char*>(&sample), sizeof(float));
            }
        writeText(path, data);
        QStringList names, wavelengths, bbl, fwhm;
        for (const Endmember& endmember : endmembers)
            names << endmember.name;
        for (int k = 0; k < axis.size(); ++k)
        {
            wavelengths << QString::number(axis.wavelengths[size_t(k)], 'g', 10);
            bbl << (axis.good[size_t(k)] ? "1" : "0");
            if (!axis.fwhm.empty())
                fwhm << QString::number(axis.fwhm[size_t(k)], 'g', 10);
        }
        QString header;
        QTextStream out(&header);
        out << "ENVI\n"
            << "description = {Endmembers found by vertex component analysis in " << QFileInfo(inputPath).fileName()
            << "}\n"
            << "samples = " << axis.size() << "\n"
            << "lines = " << endmembers.size() << "\n"
            << "bands = 1\n"
            << "header offset = 0\n"
            << "file type = ENVI Spectral Library\n"
            << "data type = 4\n"
            << "interleave = bsq\n"
            << "byte order = " << (QSysInfo::ByteOrder == QSysInfo::LittleEndian ? 0 : 1) << "\n";
        if (!axis.units.isEmpty())
            out << "wavelength units = " << axis.units << "\n";
        out << "spectra names = " << listOf(names) << "\n"
            << "wavelength = " << listOf(wavelengths) << "\n";
        if (!fwhm.isEmpty())
            out << "fwhm = " << listOf(fwhm) << "\n";
        out << "bbl = " << listOf(bbl) << "\n";
        out.flush();
        writeText(headerPath, header.toUtf8());
    }

    void writeCsv(const QString& path, const hysa::SpectralAxis& axis, const std::vector<Endmember>& endmembers)
    {
        QString text;
        QTextStream out(&text);
        out << "band," << (axis.fromMetadata ? "wavelength" : "band_number");
        for (const Endmember& endmember : endmembers)
            out << "," << endmember.name;
        out << "\n";
        for (int k = 0; k < axis.size(); ++k)
        {
            out << k + 1 << "," << QString::number(axis.wavelengths[size_t(k)], 'g', 10);
            for (const Endmember& endmember : endmembers)
                out << "," << QString::number(endmember.spectrum[size_t(k)], 'g', 9);
            out << "\n";
        }
        out.flush();
        writeText(path, text.toUtf8());
    }

    // Pass 3: the abundances of every pixel.
    void writeAbundances(const QString& path, GDALDataset* input, const hys::BlockReader& reader,
                         hysa::PassedBlocks& passed, int step, const Eigen::MatrixXd& matrix,
                         const std::vector<Endmember>& endmembers)
    {
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        const int count = int(endmembers.size());
        algokit::OutputRaster output(path, QStringLiteral("GTiff"), width, height, count, GDT_Float32,
                                     {"INTERLEAVE=BAND", "BIGTIFF=IF_SAFER"});
        claimOutput(path);
        output.copyGeoreferencing(input);
        for (int i = 0; i < count; ++i)
        {
            output.band(i)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
            output.band(i)->SetDescription(endmembers[size_t(i)].name.toUtf8().constData());
        }
        const hysa::FclsSolver solver(matrix);
        std::vector<double> block;
        std::vector<float> abundances;
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            size_t pitch = 0;
            reader.read(row0, rows, block, pitch);
            passed.doneAbove(row0 + rows);
            const Eigen::Map<const RowMajor> x(block.data(), matrix.rows(), Eigen::Index(pitch));
            abundances.assign(pitch * size_t(count), std::numeric_limits<float>::quiet_NaN());
            algokit::parallelFor(int(pitch), [&](int begin, int end) {
                hysa::FclsSolver::Workspace workspace;
                const Eigen::MatrixXd projections = matrix.transpose() * x.middleCols(begin, end - begin);
                for (int j = begin; j < end; ++j)
                {
                    if (projections.col(j - begin).hasNaN())
                        continue;
                    const Eigen::VectorXd a = solver.solve(projections.col(j - begin), workspace);
                    for (int i = 0; i < count; ++i)
                        abundances[size_t(i) * pitch + size_t(j)] = float(a(i));
                }
            });
            hysa::writeCubeRows(output.get(), row0, rows, abundances.data());
            progress(40.0 + 60.0 * (row0 + rows) / height);
        }
        output.commit();
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(VertexComponentAnalysis)
