// Plug-in "QualityAtmosCorr": checks a surface-reflectance image. Against a reference (a raster on the same grid,
// or a CSV of field spectra at map points): per-band bias, RMSE and R^2, with a scatter chart per band; without
// one: plausibility (shares of negative and above-one reflectance, dark water, the vegetation red edge).
// Option 0 writes a text report, 1 an HTML report with the charts beside it.
#include "generic_params.h"
#include "plugin_base.h"
#include "product_text.h"
#include "raster_io.h"

#include <qcustomplot.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>

#include <cmath>
#include <memory>
#include <vector>

namespace
{

constexpr size_t kScatterPoints = 5000;

// Sums for bias, RMSE and R^2 of one band, and a sample of the pairs for its chart.
struct Agreement
{
    double n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0, sdd = 0;
    QVector<double> sampleX, sampleY;

    void add(double x, double y)
    {
        n += 1;
        sx += x;
        sy += y;
        sxx += x * x;
        syy += y * y;
        sxy += x * y;
        sdd += (x - y) * (x - y);
    }
    double bias() const { return n > 0 ? (sx - sy) / n : NAN; }
    double rmse() const { return n > 0 ? std::sqrt(sdd / n) : NAN; }
    double r2() const
    {
        const double cov = sxy - sx * sy / n, vx = sxx - sx * sx / n, vy = syy - sy * sy / n;
        return n > 1 && vx > 0 && vy > 0 ? cov * cov / (vx * vy) : NAN;
    }
};

// Shares of implausible values of one band.
struct Plausibility
{
    double n = 0, negative = 0, aboveOne = 0, sum = 0;
};

struct ReportBand
{
    QString name;
    double wavelength = NAN;
    double scale = 1.0;
    double noData = NAN;
};

class QualityAtmosCorr : public algokit::PluginBase
{
public:
    QualityAtmosCorr() : PluginBase(QStringLiteral("QualityAtmosCorr")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text("InputFile").required().existingFile();
        algokit::DatasetPtr input = args.text("InputFile").openRaster();
        auto referenceParam = args.text("ReferenceFile");
        if (!referenceParam.isEmpty())
            referenceParam.existingFile();
        const QString reportPath = args.text("ReportFile").required().writableOutput();
        const int option = args.integer("Option").orDefault(0).oneOf({0, 1});
        if (option == 1 && !qobject_cast<QApplication*>(QCoreApplication::instance()))
            args.refuse(QStringLiteral("Option"), QStringLiteral("1"),
                        QStringLiteral("draws charts, which needs the host's application object"));

        m_width = input->GetRasterXSize();
        m_height = input->GetRasterYSize();
        m_bands = input->GetRasterCount();
        describeBands(input.get());

        const QString referencePath = referenceParam.value();
        std::vector<Agreement> agreement;
        std::vector<Plausibility> plausible(static_cast<size_t>(m_bands));
        QString referenceKind;
        if (!referencePath.isEmpty())
        {
            if (QFileInfo(referencePath).suffix().compare(QLatin1String("csv"), Qt::CaseInsensitive) == 0)
            {
                referenceKind = QStringLiteral("field spectra");
                agreement = compareWithPoints(args, input.get(), referencePath);
            }
            else
            {
                referenceKind = QStringLiteral("reference image");
                algokit::DatasetPtr reference = args.text("ReferenceFile").openRaster();
                if (reference->GetRasterXSize() != m_width || reference->GetRasterYSize() != m_height ||
                    reference->GetRasterCount() < m_bands)
                    args.refuse(QStringLiteral("ReferenceFile"), referencePath,
                                QStringLiteral("is not on the input's grid (%1 x %2, %3 band(s) at least)")
                                    .arg(m_width)
                                    .arg(m_height)
                                    .arg(m_bands));
                agreement = compareWithImage(input.get(), reference.get());
            }
        }
        const QString water = plausibility(input.get(), &plausible);

        claimOutput(reportPath);
        QStringList charts;
        if (option == 1)
            charts = drawCharts(reportPath, agreement, plausible);
        writeReport(reportPath, option == 1, inputPath, referencePath, referenceKind, agreement, plausible, water, charts);
        algokit::GenericOutputs outputs;
        if (!charts.isEmpty())
            outputs.add(QStringLiteral("ChartFiles"), charts.join(QLatin1Char('|')));
        setResult(outputs.result());
        return true;
    }

private:
    void describeBands(GDALDataset* input)
    {
        for (int b = 0; b < m_bands; ++b)
        {
            GDALRasterBand* band = input->GetRasterBand(b + 1);
            ReportBand info;
            info.name = QString::fromUtf8(band->GetDescription());
            if (info.name.isEmpty())
                info.name = QStringLiteral("Band %1").arg(b + 1);
            if (const char* w = band->GetMetadataItem("wavelength"))
            {
                info.wavelength = optical::parseNumber(w);
                if (info.wavelength > 100)
                    info.wavelength /= 1000.0;
            }
            if (const char* scale = band->GetMetadataItem("SCALE"))
                if (optical::parseNumber(scale) > 0)
                    info.scale = optical::parseNumber(scale);
            int has = 0;
            const double noData = band->GetNoDataValue(&has);
            info.noData = has ? noData : NAN;
            m_info.push_back(info);
        }
    }

    bool valid(int band, double value) const
    {
        return !std::isnan(value) && value != m_info[size_t(band)].noData;
    }
    double reflectance(int band, double value) const { return value / m_info[size_t(band)].scale; }

    std::vector<Agreement> compareWithImage(GDALDataset* input, GDALDataset* reference)
    {
        std::vector<Agreement> result(static_cast<size_t>(m_bands));
        const size_t pixels = size_t(m_width) * size_t(m_height);
        const size_t stride = std::max<size_t>(1, pixels / kScatterPoints);
        const int step = algokit::rowsPerBlock(input, 16);
        std::vector<double> x, y;
        algokit::forEachRowBlock(m_height, step, [&](int row0, int rows) {
            for (int b = 0; b < m_bands; ++b)
            {
                algokit::readRows(input->GetRasterBand(b + 1), row0, rows, x);
                algokit::readRows(reference->GetRasterBand(b + 1), row0, rows, y);
                int has = 0;
                const double refNoData = reference->GetRasterBand(b + 1)->GetNoDataValue(&has);
                Agreement& a = result[size_t(b)];
                const size_t first = size_t(row0) * size_t(m_width);
                for (size_t i = 0; i < x.size(); ++i)
                {
                    if (!valid(b, x[i]) || std::isnan(y[i]) || (has && y[i] == refNoData))
                        continue;
                    const double rx = reflectance(b, x[i]), ry = y[i];
                    a.add(rx, ry);
                    if ((first + i) % stride == 0)
                    {
                        a.sampleX << ry;
                        a.sampleY << rx;
                    }
                }
            }
            progress(50.0 * (row0 + rows) / m_height);
        });
        return result;
    }

    // CSV rows "x,y,value1,value2,...": map coordinates of the input's reference system and one reflectance per
    // band; a first line that is not numbers is a header.
    std::vector<Agreement> compareWithPoints(const algokit::GenericParams& args, GDALDataset* input, const QString& path)
    {
        double gt[6];
        if (input->GetGeoTransform(gt) != CE_None || gt[2] != 0 || gt[4] != 0)
            args.refuse(QStringLiteral("InputFile"), QString::fromUtf8(input->GetDescription()),
                        QStringLiteral("has no north-up georeferencing to place the field spectra"));
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            args.refuse(QStringLiteral("ReferenceFile"), path, QStringLiteral("cannot be read"));
        std::vector<Agreement> result(static_cast<size_t>(m_bands));
        int line = 0, used = 0;
        while (!file.atEnd() && line < 1000000)
        {
            const QString text = QString::fromUtf8(file.readLine()).trimmed();
            ++line;
            if (text.isEmpty() || text.startsWith(QLatin1Char('#')))
                continue;
            const QStringList fields = text.split(QRegularExpression(QStringLiteral("[,;\\t ]+")), Qt::SkipEmptyParts);
            std::vector<double> numbers;
            for (const QString& field : fields)
                numbers.push_back(optical::parseNumber(field.toStdString()));
            const bool allNumbers = std::none_of(numbers.begin(), numbers.end(), [](double v) { return std::isnan(v); });
            if (!allNumbers && used == 0 && line == 1)
                continue; // header
            if (!allNumbers || numbers.size() != size_t(m_bands) + 2)
                args.refuse(QStringLiteral("ReferenceFile"), path,
                            QStringLiteral("has a line %1 that is not \"x,y\" and %2 reflectance(s)").arg(line).arg(m_bands));
            const int col = int(std::floor((numbers[0] - gt[0]) / gt[1]));
            const int row = int(std::floor((numbers[1] - gt[3]) / gt[5]));
            if (col < 0 || row < 0 || col >= m_width || row >= m_height)
                continue;
            ++used;
            for (int b = 0; b < m_bands; ++b)
            {
                double value = NAN;
                if (input->GetRasterBand(b + 1)->RasterIO(GF_Read, col, row, 1, 1, &value, 1, 1, GDT_Float64, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("QualityAtmosCorr: reading %1 failed").arg(input->GetDescription()));
                if (!valid(b, value))
                    continue;
                Agreement& a = result[size_t(b)];
                a.add(reflectance(b, value), numbers[size_t(b) + 2]);
                a.sampleX << numbers[size_t(b) + 2];
                a.sampleY << reflectance(b, value);
            }
        }
        if (used == 0)
            args.refuse(QStringLiteral("ReferenceFile"), path, QStringLiteral("has no point inside the input image"));
        progress(50.0);
        return result;
    }

    int bandNear(double wavelength, double tolerance) const
    {
        int best = -1;
        for (int b = 0; b < m_bands; ++b)
        {
            const double w = m_info[size_t(b)].wavelength;
            if (!std::isnan(w) && std::fabs(w - wavelength) < tolerance &&
                (best < 0 || std::fabs(w - wavelength) < std::fabs(m_info[size_t(best)].wavelength - wavelength)))
                best = b;
        }
        return best;
    }

    // Per-band shares of negative and above-one values; with red and NIR known (wavelength metadata), water
    // (NIR < 0.05 and below red) must stay dark but not negative, and vegetation (NDVI > 0.5) must show the red edge.
    QString plausibility(GDALDataset* input, std::vector<Plausibility>* shares)
    {
        const int red = bandNear(0.655, 0.05), nir = bandNear(0.86, 0.08), green = bandNear(0.56, 0.04);
        double water = 0, waterNegative = 0, waterBright = 0, vegetation = 0, vegetationEdge = 0, ratioSum = 0;
        const int step = algokit::rowsPerBlock(input, 8 * size_t(m_bands));
        std::vector<std::vector<double>> values(static_cast<size_t>(m_bands));
        algokit::forEachRowBlock(m_height, step, [&](int row0, int rows) {
            for (int b = 0; b < m_bands; ++b)
            {
                algokit::readRows(input->GetRasterBand(b + 1), row0, rows, values[size_t(b)]);
                Plausibility& p = (*shares)[size_t(b)];
                for (double v : values[size_t(b)])
                {
                    if (!valid(b, v))
                        continue;
                    const double r = reflectance(b, v);
                    p.n += 1;
                    p.sum += r;
                    p.negative += r < 0;
                    p.aboveOne += r > 1;
                }
            }
            if (red >= 0 && nir >= 0)
            {
                for (size_t i = 0; i < values[size_t(red)].size(); ++i)
                {
                    const double rv = values[size_t(red)][i], nv = values[size_t(nir)][i];
                    if (!valid(red, rv) || !valid(nir, nv))
                        continue;
                    const double r = reflectance(red, rv), n = reflectance(nir, nv);
                    if (n < 0.05 && n < r)
                    {
                        water += 1;
                        const double g = green >= 0 && valid(green, values[size_t(green)][i])
                                             ? reflectance(green, values[size_t(green)][i])
                                             : r;
                        waterNegative += (r < 0 || n < 0 || g < 0);
                        waterBright += g > 0.15;
                    }
                    if (r > 0 && n > 0 && (n - r) / (n + r) > 0.5)
                    {
                        vegetation += 1;
                        vegetationEdge += n > 2.0 * r;
                        ratioSum += std::min(n / r, 100.0);
                    }
                }
            }
            progress(50.0 + 40.0 * (row0 + rows) / m_height);
        });
        if (red < 0 || nir < 0)
            return QStringLiteral("red and NIR bands not identified (no wavelength metadata): water and red-edge "
                                  "checks skipped");
        QString text;
        QTextStream out(&text);
        out.setRealNumberNotation(QTextStream::FixedNotation);
        out.setRealNumberPrecision(2);
        out << "dark water pixels (NIR < 0.05, below red): " << qint64(water);
        if (water > 0)
            out << ", negative in green/red/NIR: " << 100.0 * waterNegative / water << " %, green above 0.15: "
                << 100.0 * waterBright / water << " %";
        out << "\nvegetation pixels (NDVI > 0.5): " << qint64(vegetation);
        if (vegetation > 0)
            out << ", NIR above twice red: " << 100.0 * vegetationEdge / vegetation << " %, mean NIR/red: "
                << ratioSum / vegetation;
        return text;
    }

    QStringList drawCharts(const QString& reportPath, const std::vector<Agreement>& agreement,
                           const std::vector<Plausibility>& plausible)
    {
        QStringList files;
        const QFileInfo report(reportPath);
        const QString stem = report.absoluteDir().filePath(report.completeBaseName());
        for (size_t b = 0; b < agreement.size(); ++b)
        {
            const Agreement& a = agreement[b];
            QCustomPlot plot;
            plot.resize(480, 480);
            QCPGraph* points = plot.addGraph();
            points->setLineStyle(QCPGraph::lsNone);
            points->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssDisc, 3));
            points->setData(a.sampleX, a.sampleY, true);
            double high = 0.05;
            for (double v : a.sampleX + a.sampleY)
                high = std::max(high, v);
            QCPGraph* line = plot.addGraph();
            line->setData(QVector<double>{0, high}, QVector<double>{0, high});
            line->setPen(QPen(Qt::red));
            plot.xAxis->setLabel(QStringLiteral("reference reflectance"));
            plot.yAxis->setLabel(QStringLiteral("corrected reflectance"));
            plot.xAxis->setRange(std::min(0.0, a.bias()), high);
            plot.yAxis->setRange(std::min(0.0, a.bias()), high);
            plot.plotLayout()->insertRow(0);
            plot.plotLayout()->addElement(0, 0, new QCPTextElement(&plot, m_info[b].name));
            const QString file = QStringLiteral("%1_band%2.png").arg(stem).arg(b + 1);
            claimOutput(file);
            if (!plot.savePng(file, 480, 480))
                throw algokit::AlgoError(QStringLiteral("QualityAtmosCorr: writing %1 failed").arg(file));
            files << file;
        }
        // The mean spectrum, against wavelength where known.
        QCustomPlot plot;
        plot.resize(640, 400);
        QVector<double> x, y;
        for (size_t b = 0; b < plausible.size(); ++b)
        {
            x << (std::isnan(m_info[b].wavelength) ? double(b + 1) : m_info[b].wavelength);
            y << (plausible[b].n > 0 ? plausible[b].sum / plausible[b].n : 0.0);
        }
        QCPGraph* mean = plot.addGraph();
        mean->setData(x, y);
        mean->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssCircle, 6));
        plot.xAxis->setLabel(std::isnan(m_info.front().wavelength) ? QStringLiteral("band") : QStringLiteral("wavelength (um)"));
        plot.yAxis->setLabel(QStringLiteral("mean reflectance"));
        plot.rescaleAxes();
        const QString file = stem + QStringLiteral("_spectrum.png");
        claimOutput(file);
        if (!plot.savePng(file, 640, 400))
            throw algokit::AlgoError(QStringLiteral("QualityAtmosCorr: writing %1 failed").arg(file));
        files << file;
        return files;
    }

    void writeReport(const QString& path, bool html, const QString& inputPath, const QString& referencePath,
                     const QString& referenceKind, const std::vector<Agreement>& agreement,
                     const std::vector<Plausibility>& plausible, const QString& water, const QStringList& charts)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
            throw algokit::AlgoError(QStringLiteral("QualityAtmosCorr: cannot write %1").arg(path));
        QTextStream out(&file);
        out.setRealNumberNotation(QTextStream::FixedNotation);
        out.setRealNumberPrecision(4);
        const QString rowStart = html ? QStringLiteral("<tr><td>") : QString();
        const QString cell = html ? QStringLiteral("</td><td>") : QStringLiteral("\t");
        const QString rowEnd = html ? QStringLiteral("</td></tr>\n") : QStringLiteral("\n");
        if (html)
            out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Atmospheric correction quality</title>"
                   "</head><body>\n<h1>Atmospheric correction quality</h1>\n<p>Image: "
                << inputPath.toHtmlEscaped() << "</p>\n";
        else
            out << "Atmospheric correction quality\nImage: " << inputPath << "\n";
        if (!agreement.empty())
        {
            out << (html ? "<h2>Against the " : "\nAgainst the ") << referenceKind << ": "
                << (html ? referencePath.toHtmlEscaped() : referencePath) << (html ? "</h2>\n<table border=\"1\">\n" : "\n");
            out << rowStart << "band" << cell << "pairs" << cell << "bias" << cell << "RMSE" << cell << "R2" << rowEnd;
            for (size_t b = 0; b < agreement.size(); ++b)
                out << rowStart << (html ? m_info[b].name.toHtmlEscaped() : m_info[b].name) << cell
                    << qint64(agreement[b].n) << cell << printable(agreement[b].bias()) << cell
                    << printable(agreement[b].rmse()) << cell << printable(agreement[b].r2()) << rowEnd;
            if (html)
                out << "</table>\n";
        }
        out << (html ? "<h2>Plausibility</h2>\n<table border=\"1\">\n" : "\nPlausibility\n");
        out << rowStart << "band" << cell << "pixels" << cell << "mean" << cell << "negative %" << cell << "above one %"
            << rowEnd;
        for (size_t b = 0; b < plausible.size(); ++b)
        {
            const Plausibility& p = plausible[b];
            out << rowStart << (html ? m_info[b].name.toHtmlEscaped() : m_info[b].name) << cell << qint64(p.n) << cell
                << (p.n > 0 ? p.sum / p.n : NAN) << cell << (p.n > 0 ? 100.0 * p.negative / p.n : NAN) << cell
                << (p.n > 0 ? 100.0 * p.aboveOne / p.n : NAN) << rowEnd;
        }
        if (html)
        {
            out << "</table>\n<p>" << water.toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>")) << "</p>\n";
            for (const QString& chart : charts)
                out << "<p><img src=\"" << QFileInfo(chart).fileName().toHtmlEscaped() << "\"></p>\n";
            out << "</body></html>\n";
        }
        else
            out << water << "\n";
        out.flush();
        if (file.error() != QFileDevice::NoError)
            throw algokit::AlgoError(QStringLiteral("QualityAtmosCorr: cannot write %1").arg(path));
        progress(100.0);
    }

    // Rounding noise of the sums printed as 0, not -0.0000.
    static double printable(double value) { return std::fabs(value) < 5e-5 ? 0.0 : value; }

    int m_width = 0, m_height = 0, m_bands = 0;
    std::vector<ReportBand> m_info;
};

} // namespace

ALGO_PLUGIN_FACTORY(QualityAtmosCorr)
