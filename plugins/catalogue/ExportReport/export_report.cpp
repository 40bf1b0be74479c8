// Plug-in "ExportReport": one self-contained HTML report of a set of images for a quality-inspection round -
// per image its thumbnail, its footprint on an overview map, its metadata and per-band quality measures;
// every picture is embedded as a base64 PNG.
#include "generic_params.h"
#include "image_index.h"
#include "made_folders.h"
#include "picture.h"
#include "plugin_base.h"
#include "quality_measures.h"

#include <QDateTime>
#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

namespace
{

// Quality measures are taken on a grid of at most this many pixels on the longer side.
constexpr int kMeasureSize = 2048;

QString escaped(const QString& text)
{
    return text.toHtmlEscaped();
}

QString pictureTag(const QImage& image, const QString& alt)
{
    return QStringLiteral("<img alt=\"%1\" src=\"data:image/png;base64,%2\">")
        .arg(escaped(alt), QString::fromLatin1(catalogue::pngBytes(image).toBase64()));
}

QString number(double v, int precision = 4)
{
    return QString::number(v, 'g', precision);
}

struct ImageSection
{
    QString html;
};

class ExportReport : public algokit::PluginBase
{
public:
    ExportReport() : PluginBase(QStringLiteral("ExportReport")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const algokit::TextParam inputs = args.text("InputFiles").required();
        const QString output = args.text("report_html").required();
        m_folders.noteBefore(QFileInfo(output).absolutePath());
        args.text("report_html").writableOutput();
        const QString title = args.text("Title").orDefault("Quality inspection report");

        QStringList unusable;
        const std::vector<catalogue::CatalogueItem> items = catalogue::scanInputs(inputs.list(), &unusable);
        if (!unusable.isEmpty())
            args.refuse("InputFiles", unusable.first(), "is neither a raster, a product nor a folder holding one");
        std::vector<catalogue::IndexEntry> entries = catalogue::describeItems(
            items, catalogue::FootprintOptions(), [this](int done, int total) { progress(30.0 * done / total); });
        // Every image must open with at least one band; one without georeferencing is still reported.
        for (size_t i = 0; i < items.size(); ++i)
        {
            if (items[i].imagePath.isEmpty())
            {
                if (!entries[i].footprint)
                    args.refuse("InputFiles", items[i].path, entries[i].error);
                continue;
            }
            GDALDataset* opened = nullptr;
            catalogue::rasterPathFor(items[i].imagePath, &opened);
            algokit::DatasetPtr dataset(opened);
            if (!dataset)
                args.refuse("InputFiles", items[i].imagePath, "is not a raster GDAL can open");
            if (dataset->GetRasterCount() < 1 || dataset->GetRasterXSize() < 1 || dataset->GetRasterYSize() < 1)
                args.refuse("InputFiles", items[i].imagePath, "has no raster band");
        }

        std::vector<const OGRGeometry*> footprints;
        for (const catalogue::IndexEntry& e : entries)
            footprints.push_back(e.footprint.get());

        QString body;
        QTextStream out(&body);
        for (size_t i = 0; i < items.size(); ++i)
        {
            out << imageSection(items[i], entries[i], footprints, int(i));
            progress(30.0 + 65.0 * double(i + 1) / double(items.size()));
        }

        QString html;
        QTextStream page(&html);
        page << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" << escaped(title)
             << "</title>\n<style>\n"
             << "body{font-family:sans-serif;margin:2em;color:#222}table{border-collapse:collapse;margin:.5em 0}"
             << "td,th{border:1px solid #ccc;padding:2px 8px;text-align:right}th{background:#eef}"
             << "td.k{text-align:left;font-weight:bold}section{border-top:2px solid #889;margin-top:2em}"
             << ".pics img{margin-right:1em;vertical-align:top;border:1px solid #ddd}"
             << ".bad{color:#b00}\n</style>\n</head>\n<body>\n<h1>" << escaped(title) << "</h1>\n"
             << "<p>" << items.size() << " image(s), made " << QDateTime::currentDateTimeUtc().toString(Qt::ISODate)
             << ".</p>\n<div class=\"pics\">"
             << pictureTag(catalogue::drawFootprintMap(footprints, -1, 640, 400),
                           QStringLiteral("Footprints of all images"))
             << "</div>\n"
             << body << "</body>\n</html>\n";

        QSaveFile file(output);
        if (!file.open(QIODevice::WriteOnly) || file.write(html.toUtf8()) < 0 || !file.commit())
            return fail(QStringLiteral("ExportReport: %1 cannot be written").arg(output));
        progress(100.0);
        setResult(algokit::GenericOutputs().add("ImageCount", QString::number(items.size())).result());
        return true;
    }

    void discardOutputs() override { m_folders.removeEmpty(); }

private:
    catalogue::MadeFolders m_folders;

    QString imageSection(const catalogue::CatalogueItem& item, const catalogue::IndexEntry& entry,
                         const std::vector<const OGRGeometry*>& footprints, int index)
    {
        QString html;
        QTextStream out(&html);
        out << "<section>\n<h2>" << escaped(QFileInfo(item.path).fileName()) << "</h2>\n";
        GDALDataset* opened = nullptr;
        catalogue::rasterPathFor(item.imagePath, &opened);
        algokit::DatasetPtr dataset(opened);

        if (dataset && dataset->GetRasterCount() < 1)
            dataset.reset();
        out << "<div class=\"pics\">";
        if (dataset)
            out << pictureTag(catalogue::renderThumbnail(dataset.get(), 320), QStringLiteral("Thumbnail"));
        if (entry.footprint)
            out << pictureTag(catalogue::drawFootprintMap(footprints, index, 320, 240), QStringLiteral("Footprint"));
        out << "</div>\n<table>\n";
        auto row = [&](const QString& key, const QString& value) {
            out << "<tr><td class=\"k\">" << escaped(key) << "</td><td style=\"text-align:left\">" << escaped(value)
                << "</td></tr>\n";
        };
        row(QStringLiteral("Path"), item.path);
        row(QStringLiteral("Satellite"), entry.info.satellite);
        row(QStringLiteral("Sensor"), entry.info.sensor);
        row(QStringLiteral("Acquired (UTC)"), entry.info.acquisition);
        row(QStringLiteral("Level"), entry.info.level);
        if (entry.info.cloudPercent >= 0.0)
            row(QStringLiteral("Cloud (%)"), number(entry.info.cloudPercent));
        row(QStringLiteral("Reference system"), entry.srs);
        if (entry.resolutionMetres > 0.0)
            row(QStringLiteral("Resolution (m)"), number(entry.resolutionMetres));
        if (entry.footprint)
        {
            OGREnvelope e;
            entry.footprint->getEnvelope(&e);
            row(QStringLiteral("Extent (WGS 84)"),
                QStringLiteral("%1, %2 - %3, %4")
                    .arg(number(e.MinX, 8), number(e.MinY, 8), number(e.MaxX, 8), number(e.MaxY, 8)));
            row(QStringLiteral("Footprint area (km2)"), number(catalogue::areaSquareMetres(*entry.footprint) / 1e6, 6));
        }
        else
            out << "<tr><td class=\"k bad\">Footprint</td><td class=\"bad\">" << escaped(entry.error) << "</td></tr>\n";
        if (dataset)
        {
            row(QStringLiteral("Size (pixels)"),
                QStringLiteral("%1 x %2, %3 band(s), %4")
                    .arg(dataset->GetRasterXSize())
                    .arg(dataset->GetRasterYSize())
                    .arg(dataset->GetRasterCount())
                    .arg(QString::fromLatin1(GDALGetDataTypeName(dataset->GetRasterBand(1)->GetRasterDataType()))));
        }
        out << "</table>\n";
        if (dataset)
            out << measuresTable(dataset.get());
        else
            out << "<p class=\"bad\">The image cannot be opened.</p>\n";
        out << "</section>\n";
        return html;
    }

    QString measuresTable(GDALDataset* dataset)
    {
        const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
        const double scale = std::max(1.0, double(std::max(width, height)) / kMeasureSize);
        const int w = std::max(1, int(std::lround(width / scale))), h = std::max(1, int(std::lround(height / scale)));
        QString html;
        QTextStream out(&html);
        out << "<table>\n<tr><th>Band</th><th>Name</th><th>Valid (%)</th><th>Min</th><th>Max</th><th>Mean</th>"
               "<th>Std dev</th><th>SNR</th><th>Entropy (bits)</th><th>Mean gradient</th></tr>\n";
        std::vector<double> values(size_t(w) * h);
        std::vector<unsigned char> valid(size_t(w) * h);
        for (int b = 1; b <= dataset->GetRasterCount(); ++b)
        {
            GDALRasterBand* band = dataset->GetRasterBand(b);
            const bool complex = GDALDataTypeIsComplex(band->GetRasterDataType());
            std::vector<double> raw(complex ? values.size() * 2 : 0);
            const CPLErr read =
                complex ? band->RasterIO(GF_Read, 0, 0, width, height, raw.data(), w, h, GDT_CFloat64, 0, 0)
                        : band->RasterIO(GF_Read, 0, 0, width, height, values.data(), w, h, GDT_Float64, 0, 0);
            if (read != CE_None)
                continue;
            if (complex)
                for (size_t i = 0; i < values.size(); ++i)
                    values[i] = std::hypot(raw[2 * i], raw[2 * i + 1]);
            // A mask that cannot be read counts every pixel.
            if (band->GetMaskFlags() == GMF_ALL_VALID ||
                band->GetMaskBand()->RasterIO(GF_Read, 0, 0, width, height, valid.data(), w, h, GDT_Byte, 0, 0) !=
                    CE_None)
                std::fill(valid.begin(), valid.end(), 1);
            const catalogue::BandMeasures m = catalogue::measureBand(values.data(), valid.data(), w, h);
            out << "<tr><td>" << b << "</td><td style=\"text-align:left\">"
                << escaped(QString::fromUtf8(band->GetDescription())) << "</td><td>" << number(100.0 * m.validShare)
                << "</td><td>" << number(m.minimum, 8) << "</td><td>" << number(m.maximum, 8) << "</td><td>"
                << number(m.mean, 8) << "</td><td>" << number(m.stdDev, 6) << "</td><td>" << number(m.snr)
                << "</td><td>" << number(m.entropyBits) << "</td><td>" << number(m.meanGradient, 6) << "</td></tr>\n";
        }
        out << "</table>\n";
        if (w != width || h != height)
            out << "<p>Measured on a " << w << " x " << h << " grid (nearest samples of the " << width << " x "
                << height << " image).</p>\n";
        return html;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ExportReport)
