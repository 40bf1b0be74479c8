// Plug-in "PolSAR_PolSignatures": co- and cross-polarised signatures of the mean covariance of a pixel region
// (x0|x1|y0|y1, ends included; anything else: the whole image) of a quad-pol folder, written as text grids,
// Float32 rasters (rows: ellipticity -45..45, columns: orientation -90..90 degrees) and PNG surface charts.
#include "generic_params.h"
#include "polarimetric_signature.h"
#include "polsar_folder.h"
#include "signature_chart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace
{

class PolSARPolSignatures : public algokit::PluginBase
{
public:
    PolSARPolSignatures() : PluginBase(QStringLiteral("PolSAR_PolSignatures")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString outputDir = args.text("OutputDir").required();
        algokit::TextParam region = args.text("Region");
        sar::PolFolderReader reader(inputDir);
        if (sar::matrixSide(reader.kind()) == 2)
            args.refuse("InputDir", inputDir, QStringLiteral("holds C2 matrices: signatures need quad-pol data"));
        int x0 = 0, x1 = reader.width() - 1, y0 = 0, y1 = reader.height() - 1;
        const QStringList parts = region.value().split('|');
        bool numbers = parts.size() == 4;
        int bounds[4] = {0, 0, 0, 0};
        for (int i = 0; numbers && i < 4; ++i)
            bounds[i] = parts[i].trimmed().toInt(&numbers);
        if (numbers)
        {
            x0 = bounds[0], x1 = bounds[1], y0 = bounds[2], y1 = bounds[3];
            if (x0 < 0 || y0 < 0 || x1 < x0 || y1 < y0 || x1 >= reader.width() || y1 >= reader.height())
                args.refuse("Region", region.value(), QStringLiteral("is not inside the %1 x %2 image").arg(reader.width()).arg(reader.height()));
        }

        // Mean lexicographic covariance of the region's finite matrices.
        const sar::MatrixConverter toC3(reader.kind(), sar::PolMatrix::C3);
        const int perPixel = sar::floatsPerPixel(reader.kind());
        std::vector<float> pixels;
        Eigen::Matrix3cd sum = Eigen::Matrix3cd::Zero();
        long long count = 0;
        const int blockRows = std::max(1, int((16u << 20) / (size_t(reader.width()) * 4 * perPixel)));
        algokit::forEachRowBlock(y1 - y0 + 1, blockRows, [&](int offset, int rows) {
            reader.readRows(y0 + offset, rows, pixels);
            float c3[9];
            sar::PolCov matrix;
            for (int r = 0; r < rows; ++r)
                for (int x = x0; x <= x1; ++x)
                {
                    const float* f = pixels.data() + (size_t(r) * reader.width() + x) * perPixel;
                    if (!std::all_of(f, f + perPixel, [](float v) { return std::isfinite(v); }))
                        continue;
                    toC3.convert(f, c3);
                    sar::matrixFromFloats(sar::PolMatrix::C3, c3, matrix);
                    sum += matrix.topLeftCorner<3, 3>();
                    ++count;
                }
            progress(80.0 * (offset + rows) / (y1 - y0 + 1));
        });
        if (count == 0)
            args.refuse("Region", region.value(), QStringLiteral("holds no pixel with a finite matrix"));
        const sar::PolarimetricSignatures signatures = sar::polarimetricSignatures(sum / double(count));

        QDir().mkpath(outputDir);
        const QString base = QDir(outputDir).filePath(QDir(QFileInfo(inputDir).absoluteFilePath()).dirName());
        QStringList written;
        for (int kind = 0; kind < 2; ++kind)
        {
            const std::vector<double>& grid = kind == 0 ? signatures.copolar : signatures.crosspolar;
            const QString stem = base + (kind == 0 ? "_copol" : "_crosspol");
            writeText(stem + ".txt", grid, signatures, kind == 0 ? "co-polarised" : "cross-polarised");
            writeRaster(stem + ".tif", grid, signatures, kind == 0 ? "co-polarised signature" : "cross-polarised signature");
            writeChart(stem + ".png", grid, signatures,
                       kind == 0 ? QStringLiteral("Co-polarised signature") : QStringLiteral("Cross-polarised signature"));
            written << stem + ".txt" << stem + ".tif" << stem + ".png";
            progress(80.0 + 10.0 * (kind + 1));
        }
        setResult(algokit::GenericOutputs()
                      .add("PolSAR_PolSignatures_images", written.join('|'))
                      .add("PolSAR_PolSignatures_pixels", QString::number(count))
                      .result());
        return true;
    }

private:
    void writeText(const QString& path, const std::vector<double>& grid, const sar::PolarimetricSignatures& s,
                   const char* what)
    {
        claimOutput(path);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
        QTextStream out(&file);
        out << "# " << what << " signature, normalised power; rows: ellipticity (degrees), columns: orientation (degrees)\n";
        out << "ellipticity\\orientation";
        for (int c = 0; c < s.orientations; ++c)
            out << '\t' << c - 90;
        out << '\n';
        for (int r = 0; r < s.ellipticities; ++r)
        {
            out << r - 45;
            for (int c = 0; c < s.orientations; ++c)
                out << '\t' << QString::number(grid[size_t(r) * s.orientations + c], 'f', 6);
            out << '\n';
        }
        if (out.status() != QTextStream::Ok || !file.flush())
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    }

    void writeRaster(const QString& path, const std::vector<double>& grid, const sar::PolarimetricSignatures& s,
                     const char* description)
    {
        claimOutput(path);
        algokit::OutputRaster raster(path, QStringLiteral("GTiff"), s.orientations, s.ellipticities, 1, GDT_Float32,
                                     {"COMPRESS=NONE"});
        raster.band(0)->SetDescription(description);
        raster.get()->SetMetadataItem("COLUMNS", "orientation -90..90 degrees, 1 degree apart");
        raster.get()->SetMetadataItem("ROWS", "ellipticity -45..45 degrees, 1 degree apart");
        std::vector<float> values(grid.begin(), grid.end());
        algokit::writeRows(raster.band(0), 0, s.ellipticities, values);
        raster.commit();
    }

    void writeChart(const QString& path, const std::vector<double>& grid, const sar::PolarimetricSignatures& s,
                    const QString& title)
    {
        claimOutput(path);
        if (!signatureSurfaceChart(grid, s.orientations, s.ellipticities, title).save(path, "PNG"))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARPolSignatures)
