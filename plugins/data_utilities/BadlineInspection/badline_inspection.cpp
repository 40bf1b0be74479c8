// Plug-in "BadlineInspection": bad lines and columns of every band (zero, saturated, constant, duplicated, or a
// mean far from its neighbours'), listed in a report (text, or JSON by suffix) with a mask raster beside it.
#include "generic_params.h"
#include "line_inspection.h"
#include "plugin_base.h"
#include "raster_inputs.h"
#include "raster_io.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <limits>

namespace
{

struct BandFindings
{
    std::vector<datautil::FlawedLine> lines;
    std::vector<datautil::FlawedLine> columns;
};

// The value of a saturated pixel of an integer type; floating types have none.
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
    case GDT_UInt32:
        *value = 4294967295.0;
        return true;
    case GDT_Int32:
        *value = 2147483647.0;
        return true;
    default:
        return false;
    }
}

class BadlineInspection : public algokit::PluginBase
{
public:
    BadlineInspection() : PluginBase(QStringLiteral("BadlineInspection")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr input = datautil::openRasterItem(args, QStringLiteral("InputFile"), inputPath);
        const QString report = args.text(QStringLiteral("ReportFile")).writableOutput();
        datautil::refuseOverwritingInput(args, QStringLiteral("ReportFile"), report, {inputPath});
        const int threshold = args.integer(QStringLiteral("Threshold")).orDefault(5).atLeast(1);
        const QFileInfo info(report);
        const QString mask = info.path() + QLatin1Char('/') + info.completeBaseName() + QStringLiteral("_mask.tif");
        datautil::refuseOverwritingInput(args, QStringLiteral("ReportFile"), mask, {inputPath});

        const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = input->GetRasterCount();
        const int step = algokit::rowsPerBlock(input.get(), sizeof(double));
        std::vector<BandFindings> findings(static_cast<size_t>(bands));
        std::vector<double> buffer;
        for (int b = 0; b < bands; ++b)
        {
            GDALRasterBand* band = input->GetRasterBand(b + 1);
            int hasNoData = 0;
            const double noData = band->GetNoDataValue(&hasNoData);
            double saturation = 0.0;
            const bool saturates = saturationOf(band->GetRasterDataType(), &saturation);
            datautil::LineAccumulator accumulator(width, height, hasNoData != 0, noData, saturates, saturation);
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                algokit::readRows(band, row0, rows, buffer);
                accumulator.add(buffer.data(), row0, rows);
                progress(80.0 * (b + double(row0 + rows) / height) / bands);
            });
            findings[size_t(b)].lines = datautil::findFlawedLines(accumulator.rows(), threshold);
            findings[size_t(b)].columns = datautil::findFlawedLines(accumulator.columns(), threshold);
        }

        claimOutput(report);
        claimOutput(mask);
        writeReport(report, inputPath, threshold, findings);
        writeMask(input.get(), mask, findings);
        setResult(algokit::GenericOutputs().add(QStringLiteral("MaskFile"), mask).result());
        progress(100.0);
        return true;
    }

private:
    void writeReport(const QString& path, const QString& input, int threshold,
                     const std::vector<BandFindings>& findings)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
        if (QFileInfo(path).suffix().toLower() == QLatin1String("json"))
        {
            QJsonArray items;
            for (size_t b = 0; b < findings.size(); ++b)
                for (const auto* list : {&findings[b].lines, &findings[b].columns})
                    for (const datautil::FlawedLine& line : *list)
                        items.append(QJsonObject{{"band", int(b + 1)},
                                                 {list == &findings[b].lines ? "line" : "column", line.index + 1},
                                                 {"kind", datautil::flawName(line.flaw)},
                                                 {"value", line.value}});
            const QJsonObject root{{"image", input}, {"threshold", threshold}, {"badLines", items}};
            file.write(QJsonDocument(root).toJson());
            return;
        }
        QTextStream out(&file);
        out << "Bad lines of " << input << "\n";
        out << "Threshold: " << threshold << " robust deviations from the median of the neighbouring lines\n";
        out << "Lines and columns are counted from 1.\n";
        out << "band\tline/column\tindex\tkind\tvalue\n";
        for (size_t b = 0; b < findings.size(); ++b)
            for (const auto* list : {&findings[b].lines, &findings[b].columns})
                for (const datautil::FlawedLine& line : *list)
                    out << (b + 1) << '\t' << (list == &findings[b].lines ? "line" : "column") << '\t'
                        << (line.index + 1) << '\t' << datautil::flawName(line.flaw) << '\t'
                        << QString::number(line.value, 'g', 10) << '\n';
        out.flush();
        if (file.error() != QFile::NoError)
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    }

    // One band per input band: 1 on a bad line or column, 0 elsewhere.
    void writeMask(GDALDataset* input, const QString& path, const std::vector<BandFindings>& findings)
    {
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        algokit::OutputRaster mask(path, QStringLiteral("GTiff"), width, height, int(findings.size()), GDT_Byte,
                                   {"TILED=YES", "COMPRESS=DEFLATE"});
        mask.copyGeoreferencing(input);
        const int step = algokit::rowsPerBlock(input, 1);
        std::vector<unsigned char> rows;
        for (size_t b = 0; b < findings.size(); ++b)
        {
            std::vector<char> badRow(size_t(height), 0), badColumn(size_t(width), 0);
            for (const auto& line : findings[b].lines)
                badRow[size_t(line.index)] = 1;
            for (const auto& column : findings[b].columns)
                badColumn[size_t(column.index)] = 1;
            mask.band(int(b))->SetDescription(CPLSPrintf("bad lines of band %d", int(b + 1)));
            algokit::forEachRowBlock(height, step, [&](int row0, int count) {
                rows.assign(size_t(width) * size_t(count), 0);
                for (int r = 0; r < count; ++r)
                    for (int x = 0; x < width; ++x)
                        rows[size_t(r) * size_t(width) + size_t(x)] = badRow[size_t(row0 + r)] || badColumn[size_t(x)];
                algokit::writeRows(mask.band(int(b)), row0, count, rows);
                progress(80.0 + 20.0 * (double(b) + double(row0 + count) / height) / double(findings.size()));
            });
        }
        mask.commit();
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BadlineInspection)
