// Segments as samples.
#include "segment_samples.h"

#include "classification_io.h"
#include "raster_io.h"

#include <gdal_alg.h>
#include <ogrsf_frmts.h>

#include <QFile>
#include <QTextStream>
#include <cmath>
#include <set>
#include <stdexcept>

namespace obia
{

namespace
{

const QStringList kWords = {"count", "area", "perimeter", "compactness", "shape_index", "mean", "std", "min", "max", "brightness"};

} // namespace

bool featureColumns(const QString& text, int bands, QStringList* columns, QString* bad)
{
    QStringList words;
    for (const QString& item : text.split(QLatin1Char('|'), Qt::SkipEmptyParts))
        if (!item.trimmed().isEmpty())
            words << item.trimmed().toLower();
    if (words.isEmpty())
        words = QStringList{"mean", "std", "brightness"};
    columns->clear();
    for (const QString& word : words)
    {
        if (!kWords.contains(word))
        {
            *bad = word;
            return false;
        }
        if (word == "mean" || word == "std" || word == "min" || word == "max")
            for (int b = 1; b <= bands; ++b)
                *columns << QStringLiteral("%1_%2").arg(word).arg(b);
        else
            *columns << word;
    }
    return true;
}

void appendFeatureRow(const SegmentFeatures& f, unsigned s, const QStringList& columns, std::vector<float>& row)
{
    for (const QString& column : columns)
    {
        const int underscore = column.lastIndexOf(QLatin1Char('_'));
        const QString word = column.left(underscore);
        const int band = column.mid(underscore + 1).toInt() - 1;
        double v = 0.0;
        if (column == "count")
            v = f.count(s);
        else if (column == "area")
            v = f.area(s);
        else if (column == "perimeter")
            v = f.perimeter(s);
        else if (column == "compactness")
            v = f.compactness(s);
        else if (column == "shape_index")
            v = f.shapeIndex(s);
        else if (column == "brightness")
            v = f.brightness(s);
        else if (word == "mean")
            v = f.mean(s, band);
        else if (word == "std")
            v = f.standardDeviation(s, band);
        else if (word == "min")
            v = f.minimum(s, band);
        else if (word == "max")
            v = f.maximum(s, band);
        row.push_back(float(v));
    }
}

SegmentFeatures measureSegments(GDALDataset* labels, GDALDataset* image, const std::function<void(double)>& report)
{
    const int width = labels->GetRasterXSize(), height = labels->GetRasterYSize(), bands = image->GetRasterCount();
    double transform[6] = {0, 1, 0, 0, 0, 1};
    labels->GetGeoTransform(transform);
    SegmentFeatures features(bands, std::hypot(transform[1], transform[4]), std::hypot(transform[2], transform[5]));
    std::vector<int> bands0(static_cast<size_t>(bands));
    for (int b = 0; b < bands; ++b)
        bands0[size_t(b)] = b;
    std::vector<uint32_t> rows, previous;
    std::vector<float> pixels;
    algokit::forEachRowBlock(height, algokit::rowsPerBlock(image, size_t(4) * (bands + 1)), [&](int row0, int count) {
        algokit::readRows(labels->GetRasterBand(1), row0, count, rows);
        algokit::readPixels(image, bands0, row0, count, pixels);
        features.addRows(rows.data(), pixels.data(), width, count, previous);
        previous.assign(rows.end() - width, rows.end());
        report(double(row0 + count) / height);
    });
    if (!previous.empty())
        features.finish(previous.data(), width);
    return features;
}

std::map<unsigned, int> labelSegments(GDALDataset* labels, const SegmentFeatures& features, OGRLayer* samples, int classField,
                                      ClassScheme* scheme, const std::function<void(double)>& report)
{
    // Class codes, and a copy of the samples in memory carrying them as integers for the rasteriser.
    const OGRFieldType type = samples->GetLayerDefn()->GetFieldDefn(classField)->GetType();
    const bool named = type == OFTString;
    std::set<QString> names;
    std::set<int> codes;
    samples->ResetReading();
    for (auto& feature : *samples)
    {
        if (!feature->IsFieldSetAndNotNull(classField) || !feature->GetGeometryRef())
            continue;
        if (named)
            names.insert(QString::fromUtf8(feature->GetFieldAsString(classField)));
        else
            codes.insert(feature->GetFieldAsInteger(classField));
    }
    scheme->codes.clear();
    scheme->names.clear();
    if (named)
    {
        int code = 0;
        for (const QString& name : names)
        {
            scheme->codes.push_back(++code);
            scheme->names << name;
        }
    }
    else
        for (int code : codes)
        {
            scheme->codes.push_back(code);
            scheme->names << QStringLiteral("Class_%1").arg(code);
        }
    const std::vector<algokit::Rgb> colours = algokit::distinctColours(int(scheme->codes.size()));
    scheme->colours.assign(colours.begin(), colours.end());

    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("Memory");
    algokit::DatasetPtr scratch(memory->Create("", 0, 0, 0, GDT_Unknown, nullptr));
    OGRLayer* coded = scratch->CreateLayer("samples", samples->GetSpatialRef(), wkbUnknown, nullptr);
    // Each sample burns its own number, so that a segment can be matched with a sample by their overlap.
    OGRFieldDefn field("code", OFTInteger);
    coded->CreateField(&field);
    std::vector<int> classOfSample(1, 0);
    samples->ResetReading();
    for (auto& feature : *samples)
    {
        if (!feature->IsFieldSetAndNotNull(classField) || !feature->GetGeometryRef())
            continue;
        const int code = named ? scheme->codes[size_t(std::distance(names.begin(), names.find(QString::fromUtf8(feature->GetFieldAsString(classField)))))]
                               : feature->GetFieldAsInteger(classField);
        classOfSample.push_back(code);
        OGRFeature copy(coded->GetLayerDefn());
        copy.SetGeometry(feature->GetGeometryRef());
        copy.SetField(0, int(classOfSample.size()) - 1);
        if (coded->CreateFeature(&copy) != OGRERR_NONE)
            throw std::runtime_error("a sample cannot be copied");
    }

    // Rasterised block by block onto the segment grid; per segment, sample pixels per class.
    const int width = labels->GetRasterXSize(), height = labels->GetRasterYSize();
    double transform[6] = {0, 1, 0, 0, 0, 1};
    labels->GetGeoTransform(transform);
    char* wkt = nullptr;
    if (labels->GetSpatialRef())
        labels->GetSpatialRef()->exportToWkt(&wkt);
    std::map<unsigned, std::map<int, double>> overlap;
    std::vector<double> sampleSize(classOfSample.size(), 0.0);
    std::vector<int> burnt;
    std::vector<uint32_t> rows;
    const int step = std::max(1, int((4u << 20) / std::max(1, width)));
    algokit::forEachRowBlock(height, step, [&](int row0, int count) {
        burnt.assign(size_t(width) * count, 0);
        double blockTransform[6] = {transform[0] + row0 * transform[2], transform[1], transform[2],
                                    transform[3] + row0 * transform[5], transform[4], transform[5]};
        OGRLayerH layers[1] = {OGRLayer::ToHandle(coded)};
        const char* options[] = {"ATTRIBUTE=code", nullptr};
        if (GDALRasterizeLayersBuf(burnt.data(), width, count, GDT_Int32, 0, 0, 1, layers, wkt, blockTransform, nullptr, nullptr, 0.0,
                                   const_cast<char**>(options), nullptr, nullptr) != CE_None)
            throw std::runtime_error(CPLGetLastErrorMsg());
        algokit::readRows(labels->GetRasterBand(1), row0, count, rows);
        for (size_t i = 0; i < rows.size(); ++i)
        {
            const int sample = burnt[i];
            if (sample <= 0 || size_t(sample) >= sampleSize.size())
                continue;
            sampleSize[size_t(sample)] += 1.0;
            if (rows[i])
                overlap[rows[i]][sample] += 1.0;
        }
        report(double(row0 + count) / height);
    });
    CPLFree(wkt);
    // A sample labels a segment when it covers at least half of the segment or the segment holds at least half of
    // it (a point: the segment it falls in); of several, the largest overlap wins.
    std::map<unsigned, int> classOf;
    for (const auto& [segment, bySample] : overlap)
    {
        if (segment > features.largestLabel())
            continue;
        double most = 0.0;
        for (const auto& [sample, n] : bySample)
            if ((n >= 0.5 * features.count(segment) || n >= 0.5 * sampleSize[size_t(sample)]) && n > most)
            {
                most = n;
                classOf[segment] = classOfSample[size_t(sample)];
            }
    }
    return classOf;
}

void writeSampleCsv(const QString& path, const SampleTable& table)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        throw std::runtime_error("the file cannot be written");
    QTextStream out(&file);
    out << "segment,class,class_name";
    for (const QString& column : table.columns)
        out << ',' << column;
    out << '\n';
    const int columns = table.columns.size();
    for (int r = 0; r < table.rows(); ++r)
    {
        const int c = table.classIndex[size_t(r)];
        QString name = table.scheme.names.value(c);
        name.replace(QLatin1Char('"'), QStringLiteral("\"\""));
        out << table.segments[size_t(r)] << ',' << table.scheme.codes[size_t(c)] << ",\"" << name << '"';
        for (int k = 0; k < columns; ++k)
            out << ',' << QString::number(double(table.values[size_t(r) * columns + k]), 'g', 9);
        out << '\n';
    }
    if (out.status() != QTextStream::Ok)
        throw std::runtime_error("writing failed");
}

SampleTable readSampleCsv(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        throw std::runtime_error("cannot be read");
    SampleTable table;
    const QStringList header = QString::fromUtf8(file.readLine()).trimmed().split(QLatin1Char(','));
    if (header.size() < 4 || header[0] != "segment" || header[1] != "class" || header[2] != "class_name")
        throw std::runtime_error("does not start with the line segment,class,class_name,<features>");
    table.columns = header.mid(3);
    std::map<int, QString> names;
    std::vector<int> codes;
    int line = 1;
    while (!file.atEnd())
    {
        ++line;
        const QString text = QString::fromUtf8(file.readLine()).trimmed();
        if (text.isEmpty())
            continue;
        // The name is quoted and may hold commas: split around it.
        const int open = text.indexOf(QLatin1Char('"')), close = text.lastIndexOf(QLatin1Char('"'));
        if (open < 0 || close <= open)
            throw std::runtime_error(QStringLiteral("line %1 has no quoted class name").arg(line).toStdString());
        const QStringList head = text.left(open).split(QLatin1Char(','));
        const QStringList values = text.mid(close + 1).split(QLatin1Char(','), Qt::SkipEmptyParts);
        bool okSegment = false, okCode = false;
        if (head.size() != 3 || values.size() != table.columns.size())
            throw std::runtime_error(QStringLiteral("line %1 does not have %2 values").arg(line).arg(table.columns.size() + 3).toStdString());
        const unsigned segment = head[0].toUInt(&okSegment);
        const int code = head[1].toInt(&okCode);
        if (!okSegment || !okCode)
            throw std::runtime_error(QStringLiteral("line %1 has a segment or class that is not a whole number").arg(line).toStdString());
        names[code] = text.mid(open + 1, close - open - 1).replace(QStringLiteral("\"\""), QStringLiteral("\""));
        for (const QString& value : values)
        {
            bool ok = false;
            const float v = value.toFloat(&ok);
            if (!ok || !std::isfinite(v))
                throw std::runtime_error(QStringLiteral("line %1 has a value that is not a number").arg(line).toStdString());
            table.values.push_back(v);
        }
        table.segments.push_back(segment);
        codes.push_back(code);
    }
    for (const auto& [code, name] : names)
    {
        table.scheme.codes.push_back(code);
        table.scheme.names << name;
    }
    const std::vector<algokit::Rgb> colours = algokit::distinctColours(int(table.scheme.codes.size()));
    table.scheme.colours.assign(colours.begin(), colours.end());
    for (int code : codes)
        table.classIndex.push_back(table.scheme.indexOf(code));
    return table;
}

} // namespace obia
