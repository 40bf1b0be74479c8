// Plug-in "QualityInspection": a quality report of a product - nodata and saturated shares, entropy, average
// gradient, noise and bad lines per band, the cloud share where the bands are known - and, against a reference
// image, the geometric offset between them (phase correlation) and their radiometric differences. Text, or HTML
// with a thumbnail and charts.
#include "band_stack.h"
#include "cloud_share.h"
#include "generic_params.h"
#include "line_inspection.h"
#include "plugin_base.h"
#include "quality_measures.h"
#include "raster_inputs.h"

#include <opencv2/imgproc.hpp>

#include <cpl_vsi.h>
#include <gdal_utils.h>

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>

namespace
{

struct BandReport
{
    datautil::BandQuality quality;
    int badLines = 0;
    int badColumns = 0;
};

struct Comparison
{
    double meanDifference = 0, rmse = 0, correlation = 0, pixels = 0;
};

struct Offset
{
    double dx = 0, dy = 0, response = 0;
    bool measured = false;
};

bool saturationOf(GDALDataType type, double* value)
{
    switch (type)
    {
    case GDT_Byte:
        *value = 255.0;
        return true;
    case GDT_UInt16:
        *value = 65535.0;
        return true;
    case GDT_Int16:
        *value = 32767.0;
        return true;
    default:
        return false;
    }
}

QString fixed(double v, int digits = 4)
{
    return std::isnan(v) ? QStringLiteral("n/a") : QString::number(v, 'f', digits);
}

class QualityInspection : public algokit::PluginBase
{
public:
    QualityInspection() : PluginBase(QStringLiteral("QualityInspection")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr input = datautil::openRasterItem(args, QStringLiteral("InputFile"), inputPath);
        const QString referencePath = args.text(QStringLiteral("ReferenceFile")).value().trimmed();
        algokit::DatasetPtr reference;
        if (!referencePath.isEmpty())
            reference = datautil::openRasterItem(args, QStringLiteral("ReferenceFile"), referencePath);
        const QString report = args.text(QStringLiteral("ReportFile")).writableOutput();
        datautil::refuseOverwritingInput(args, QStringLiteral("ReportFile"), report, {inputPath, referencePath});
        const int option = args.integer(QStringLiteral("Option")).orDefault(0).oneOf({0, 1});
        const datautil::RasterGrid grid = datautil::gridOf(input.get());
        if (reference)
            checkReference(args, referencePath, grid, reference.get());

        const bool withReference = reference != nullptr;
        const double measured = withReference ? 50.0 : 75.0, clouded = withReference ? 60.0 : 90.0;
        std::vector<BandReport> bands = measureBands(input.get(), measured);
        const datautil::CloudShare cloud = datautil::estimateCloudShare(
            input.get(), [&](double done) { progress(measured + (clouded - measured) * done); });
        std::vector<Comparison> comparisons;
        Offset offset;
        std::unique_ptr<datautil::BandStack> onGrid;
        if (withReference)
        {
            // The reference resampled onto the input's grid: what is left between them is their misregistration.
            onGrid = std::make_unique<datautil::BandStack>(grid, GDT_Float64);
            for (int b = 1; b <= reference->GetRasterCount(); ++b)
                onGrid->add({reference.get(), b, datautil::isClassImage(reference.get())});
            comparisons = compare(input.get(), onGrid->dataset());
            offset = measureOffset(input.get(), onGrid->dataset());
        }
        progress(95.0);

        claimOutput(report);
        QFile file(report);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(report));
        QTextStream out(&file);
        if (option == 0)
            writeText(out, inputPath, input.get(), bands, cloud, referencePath, comparisons, offset, grid);
        else
            writeHtml(out, inputPath, input.get(), bands, cloud, referencePath, comparisons, offset, grid);
        out.flush();
        if (file.error() != QFile::NoError)
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(report));
        progress(100.0);
        return true;
    }

private:
    void checkReference(const algokit::GenericParams& args, const QString& path, const datautil::RasterGrid& grid,
                        GDALDataset* reference)
    {
        const datautil::RasterGrid own = datautil::gridOf(reference);
        if (!grid.georeferenced || !own.georeferenced)
        {
            if (grid.georeferenced != own.georeferenced || own.width != grid.width || own.height != grid.height)
                args.refuse(
                    QStringLiteral("ReferenceFile"), path,
                    QStringLiteral("cannot be placed on the input's grid (no georeferencing, or another size)"));
            return;
        }
        double extent[4];
        const double* gt = grid.geoTransform;
        const double x0 = gt[0], x1 = gt[0] + grid.width * gt[1];
        const double y0 = std::min(gt[3], gt[3] + grid.height * gt[5]),
                     y1 = std::max(gt[3], gt[3] + grid.height * gt[5]);
        if (!datautil::extentIn(reference, grid.wkt, extent) || extent[2] <= x0 || extent[0] >= x1 || extent[3] <= y0 ||
            extent[1] >= y1)
            args.refuse(QStringLiteral("ReferenceFile"), path, QStringLiteral("does not overlap the input"));
    }

    std::vector<BandReport> measureBands(GDALDataset* input, double share)
    {
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), count = input->GetRasterCount();
        const int step = algokit::rowsPerBlock(input, sizeof(double));
        std::vector<BandReport> reports(static_cast<size_t>(count));
        std::vector<double> buffer;
        for (int b = 0; b < count; ++b)
        {
            GDALRasterBand* band = input->GetRasterBand(b + 1);
            int hasNoData = 0;
            const double noData = band->GetNoDataValue(&hasNoData);
            double saturation = 0;
            const bool saturates = saturationOf(band->GetRasterDataType(), &saturation);
            double range[2] = {0.0, 256.0};
            if (band->GetRasterDataType() != GDT_Byte)
            {
                CPLPushErrorHandler(CPLQuietErrorHandler);
                if (band->ComputeRasterMinMax(FALSE, range) != CE_None)
                    range[0] = range[1] = 0.0; // nothing but nodata
                CPLPopErrorHandler();
                range[1] += (range[1] - range[0]) * 1e-9; // the maximum falls in the top level
            }
            datautil::QualityAccumulator quality(width, hasNoData != 0, noData, saturates, saturation, range[0],
                                                 range[1]);
            datautil::LineAccumulator lines(width, height, hasNoData != 0, noData, saturates, saturation);
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                algokit::readRows(band, row0, rows, buffer);
                quality.add(buffer.data(), rows);
                lines.add(buffer.data(), row0, rows);
                progress(share * (b + double(row0 + rows) / height) / count);
            });
            reports[size_t(b)].quality = quality.result();
            reports[size_t(b)].badLines = int(datautil::findFlawedLines(lines.rows(), 5.0).size());
            reports[size_t(b)].badColumns = int(datautil::findFlawedLines(lines.columns(), 5.0).size());
        }
        return reports;
    }

    std::vector<Comparison> compare(GDALDataset* input, GDALDataset* reference)
    {
        const int height = input->GetRasterYSize();
        const int count = std::min(input->GetRasterCount(), reference->GetRasterCount());
        const int step = algokit::rowsPerBlock(input, sizeof(double));
        std::vector<Comparison> result(static_cast<size_t>(count));
        std::vector<double> a, r;
        for (int b = 0; b < count; ++b)
        {
            GDALRasterBand* ours = input->GetRasterBand(b + 1);
            GDALRasterBand* theirs = reference->GetRasterBand(b + 1);
            int hasA = 0, hasR = 0;
            const double noA = ours->GetNoDataValue(&hasA), noR = theirs->GetNoDataValue(&hasR);
            double n = 0, sa = 0, sr = 0, saa = 0, srr = 0, sar = 0;
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                algokit::readRows(ours, row0, rows, a);
                algokit::readRows(theirs, row0, rows, r);
                for (size_t i = 0; i < a.size(); ++i)
                {
                    const double x = a[i], y = r[i];
                    if (std::isnan(x) || std::isnan(y) || (hasA && x == noA) || (hasR && y == noR))
                        continue;
                    n += 1, sa += x, sr += y, saa += x * x, srr += y * y, sar += x * y;
                }
                progress(60.0 + 30.0 * (b + double(row0 + rows) / height) / count);
            });
            Comparison& c = result[size_t(b)];
            c.pixels = n;
            if (n > 0)
            {
                c.meanDifference = (sa - sr) / n;
                c.rmse = std::sqrt(std::max(0.0, (saa - 2 * sar + srr) / n));
                const double va = saa / n - (sa / n) * (sa / n), vr = srr / n - (sr / n) * (sr / n);
                c.correlation = va > 0 && vr > 0 ? (sar / n - (sa / n) * (sr / n)) / std::sqrt(va * vr) : std::nan("");
            }
        }
        return result;
    }

    // Phase correlation of band 1 of both over the central window (at most 1024 x 1024, a power of two for the FFT).
    Offset measureOffset(GDALDataset* input, GDALDataset* reference)
    {
        Offset offset;
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        int size = 1024;
        while (size > std::min(width, height))
            size /= 2;
        if (size < 32)
            return offset;
        const int x0 = (width - size) / 2, y0 = (height - size) / 2;
        cv::Mat a(size, size, CV_64F), r(size, size, CV_64F);
        if (input->GetRasterBand(1)->RasterIO(GF_Read, x0, y0, size, size, a.data, size, size, GDT_Float64, 0, 0) !=
                CE_None ||
            reference->GetRasterBand(1)->RasterIO(GF_Read, x0, y0, size, size, r.data, size, size, GDT_Float64, 0, 0) !=
                CE_None)
            return offset;
        for (cv::Mat* m : {&a, &r})
            for (auto it = m->begin<double>(); it != m->end<double>(); ++it)
                if (!std::isfinite(*it))
                    *it = 0.0;
        cv::Mat window;
        cv::createHanningWindow(window, a.size(), CV_64F);
        // The shift that brings the reference onto the input.
        const cv::Point2d shift = cv::phaseCorrelate(r, a, window, &offset.response);
        offset.dx = shift.x;
        offset.dy = shift.y;
        offset.measured = true;
        return offset;
    }

    // "Cloud share: 12.34 % of the valid pixels (<tests>)" or "Cloud share: not estimated (<why>)".
    static QString cloudLine(const datautil::CloudShare& cloud)
    {
        if (!cloud.estimated)
            return QStringLiteral("Cloud share: not estimated (%1)").arg(cloud.notEstimated);
        return QStringLiteral("Cloud share: %1 % of the valid pixels (%2)").arg(fixed(cloud.percent, 2), cloud.method);
    }

    static QString header(GDALDataset* input)
    {
        return QStringLiteral("%1 x %2 pixels, %3 bands, %4")
            .arg(input->GetRasterXSize())
            .arg(input->GetRasterYSize())
            .arg(input->GetRasterCount())
            .arg(QString::fromUtf8(GDALGetDataTypeName(input->GetRasterBand(1)->GetRasterDataType())));
    }

    void writeText(QTextStream& out, const QString& path, GDALDataset* input, const std::vector<BandReport>& bands,
                   const datautil::CloudShare& cloud,
                   const QString& referencePath, const std::vector<Comparison>& comparisons, const Offset& offset,
                   const datautil::RasterGrid& grid)
    {
        out << "Quality report of " << path << "\n";
        out << "Image: " << header(input) << "\n";
        out << "band\tnodata %\tsaturated %\tentropy (bits)\taverage gradient\tnoise\tbad lines\tbad columns\n";
        for (size_t b = 0; b < bands.size(); ++b)
        {
            const datautil::BandQuality& q = bands[b].quality;
            out << (b + 1) << '\t' << fixed(100 * q.nodataShare, 3) << '\t' << fixed(100 * q.saturatedShare, 3) << '\t'
                << fixed(q.entropy) << '\t' << fixed(q.averageGradient) << '\t' << fixed(q.noise) << '\t'
                << bands[b].badLines << '\t' << bands[b].badColumns << '\n';
        }
        out << cloudLine(cloud) << "\n";
        if (referencePath.isEmpty())
            return;
        out << "Reference: " << referencePath << "\n";
        if (offset.measured)
            out << "Offset (pixels): " << fixed(offset.dx, 3) << ' ' << fixed(offset.dy, 3)
                << " (map units: " << fixed(offset.dx * grid.geoTransform[1], 3) << ' '
                << fixed(offset.dy * grid.geoTransform[5], 3) << "), peak " << fixed(offset.response, 3) << "\n";
        else
            out << "Offset (pixels): n/a\n";
        out << "band\tmean difference\tRMSE\tcorrelation\tpixels compared\n";
        for (size_t b = 0; b < comparisons.size(); ++b)
            out << (b + 1) << '\t' << fixed(comparisons[b].meanDifference) << '\t' << fixed(comparisons[b].rmse) << '\t'
                << fixed(comparisons[b].correlation) << '\t' << qint64(comparisons[b].pixels) << '\n';
    }

    // A small PNG of the image (bands 1-3 or 1, stretched between minimum and maximum), base64 for an <img>.
    static QByteArray thumbnail(GDALDataset* input)
    {
        CPLStringList argv;
        for (const char* a : {"-of", "PNG", "-ot", "Byte", "-outsize", "256", "0", "-scale", "-a_nodata", "none"})
            argv.AddString(a);
        for (int b = 1; b <= (input->GetRasterCount() >= 3 ? 3 : 1); ++b)
        {
            argv.AddString("-b");
            argv.AddString(CPLSPrintf("%d", b));
        }
        const char* name = "/vsimem/quality_inspection_thumbnail.png";
        GDALTranslateOptions* options = GDALTranslateOptionsNew(argv.List(), nullptr);
        CPLPushErrorHandler(CPLQuietErrorHandler);
        GDALDatasetH png = options ? GDALTranslate(name, GDALDataset::ToHandle(input), options, nullptr) : nullptr;
        CPLPopErrorHandler();
        if (options)
            GDALTranslateOptionsFree(options);
        QByteArray bytes;
        if (png)
        {
            GDALClose(png);
            vsi_l_offset length = 0;
            GByte* data = VSIGetMemFileBuffer(name, &length, FALSE);
            bytes = QByteArray(reinterpret_cast<const char*>(data), int(length)).toBase64();
        }
        VSIUnlink(name);
        VSIUnlink((QByteArray(name) + ".aux.xml").constData());
        return bytes;
    }

    // A bar chart of one measure per band, as inline SVG.
    static QString barChart(const QString& title, const std::vector<double>& values)
    {
        const int barWidth = 24, height = 120;
        double top = 0;
        for (double v : values)
            if (std::isfinite(v))
                top = std::max(top, v);
        QString svg = QStringLiteral("<figure><figcaption>%1</figcaption><svg width=\"%2\" height=\"%3\">")
                          .arg(title.toHtmlEscaped())
                          .arg(int(values.size()) * (barWidth + 4) + 4)
                          .arg(height + 16);
        for (size_t i = 0; i < values.size(); ++i)
        {
            const double v = std::isfinite(values[i]) ? values[i] : 0.0;
            const int h = top > 0 ? int(std::lround(height * v / top)) : 0;
            const int x = 4 + int(i) * (barWidth + 4);
            svg += QStringLiteral("<rect x=\"%1\" y=\"%2\" width=\"%3\" height=\"%4\" fill=\"#4a7ab5\"><title>band %5: "
                                  "%6</title></rect>"
                                  "<text x=\"%7\" y=\"%8\" font-size=\"10\" text-anchor=\"middle\">%5</text>")
                       .arg(x)
                       .arg(height - h)
                       .arg(barWidth)
                       .arg(h)
                       .arg(i + 1)
                       .arg(fixed(values[i]))
                       .arg(x + barWidth / 2)
                       .arg(height + 12);
        }
        return svg + QStringLiteral("</svg></figure>\n");
    }

    void writeHtml(QTextStream& out, const QString& path, GDALDataset* input, const std::vector<BandReport>& bands,
                   const datautil::CloudShare& cloud,
                   const QString& referencePath, const std::vector<Comparison>& comparisons, const Offset& offset,
                   const datautil::RasterGrid& grid)
    {
        out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Quality report</title>"
               "<style>body{font-family:sans-serif}td,th{padding:2px "
               "8px;text-align:right}figure{display:inline-block}</style>"
               "</head><body>\n";
        out << "<h1>Quality report</h1>\n<p>" << path.toHtmlEscaped() << "<br>" << header(input) << "</p>\n";
        const QByteArray png = thumbnail(input);
        if (!png.isEmpty())
            out << "<p><img alt=\"thumbnail\" src=\"data:image/png;base64," << png << "\"></p>\n";
        out << "<table><tr><th>band</th><th>nodata %</th><th>saturated %</th><th>entropy (bits)</th>"
               "<th>average gradient</th><th>noise</th><th>bad lines</th><th>bad columns</th></tr>\n";
        std::vector<double> entropy, gradient, noise;
        for (size_t b = 0; b < bands.size(); ++b)
        {
            const datautil::BandQuality& q = bands[b].quality;
            out << "<tr><td>" << (b + 1) << "</td><td>" << fixed(100 * q.nodataShare, 3) << "</td><td>"
                << fixed(100 * q.saturatedShare, 3) << "</td><td>" << fixed(q.entropy) << "</td><td>"
                << fixed(q.averageGradient) << "</td><td>" << fixed(q.noise) << "</td><td>" << bands[b].badLines
                << "</td><td>" << bands[b].badColumns << "</td></tr>\n";
            entropy.push_back(q.entropy);
            gradient.push_back(q.averageGradient);
            noise.push_back(q.noise);
        }
        out << "</table>\n"
            << barChart("Entropy (bits)", entropy) << barChart("Average gradient", gradient)
            << barChart("Noise", noise);
        out << "<p>" << cloudLine(cloud).toHtmlEscaped() << "</p>\n";
        if (!referencePath.isEmpty())
        {
            out << "<h2>Against " << referencePath.toHtmlEscaped() << "</h2>\n<p>Offset (pixels): ";
            if (offset.measured)
                out << fixed(offset.dx, 3) << ", " << fixed(offset.dy, 3)
                    << " (map units: " << fixed(offset.dx * grid.geoTransform[1], 3) << ", "
                    << fixed(offset.dy * grid.geoTransform[5], 3) << "), peak " << fixed(offset.response, 3);
            else
                out << "n/a";
            out << "</p>\n<table><tr><th>band</th><th>mean difference</th><th>RMSE</th><th>correlation</th>"
                   "<th>pixels compared</th></tr>\n";
            for (size_t b = 0; b < comparisons.size(); ++b)
                out << "<tr><td>" << (b + 1) << "</td><td>" << fixed(comparisons[b].meanDifference) << "</td><td>"
                    << fixed(comparisons[b].rmse) << "</td><td>" << fixed(comparisons[b].correlation) << "</td><td>"
                    << qint64(comparisons[b].pixels) << "</td></tr>\n";
            out << "</table>\n";
        }
        out << "</body></html>\n";
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(QualityInspection)
