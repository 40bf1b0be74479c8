// Steps shared by the segment classification plug-ins.
#include "segment_workflow.h"

#include "class_map.h"
#include "classification_io.h"
#include "gdal_progress.h"

#include <gdal_alg.h>
#include <ogrsf_frmts.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <random>

namespace obia
{

namespace
{

// The segments of the label raster as polygons (field 0: the label) in a scratch layer.
struct SegmentPolygons
{
    algokit::DatasetPtr scratch;
    OGRLayer* layer = nullptr;
};

SegmentPolygons polygoniseSegments(const SegmentInputs& inputs, const std::function<void(double)>& report)
{
    SegmentPolygons out;
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("Memory");
    out.scratch.reset(memory->Create("", 0, 0, 0, GDT_Unknown, nullptr));
    OGRSpatialReference* srs = inputs.labels->GetSpatialRef() ? inputs.labels->GetSpatialRef()->Clone() : nullptr;
    out.layer = out.scratch->CreateLayer("segments", srs, wkbPolygon, nullptr);
    if (srs)
        srs->Release();
    OGRFieldDefn segmentField("segment", OFTInteger64);
    out.layer->CreateField(&segmentField);
    GDALRasterBand* labelBand = inputs.labels->GetRasterBand(1);
    algokit::GdalProgress bridge([&](double percent) { report(0.01 * percent); });
    if (GDALPolygonize(labelBand, labelBand->GetMaskBand(), out.layer, 0, nullptr, algokit::GdalProgress::callback, &bridge) != CE_None)
    {
        bridge.rethrowIfCancelled();
        throw algokit::AlgoError(QStringLiteral("Polygonising %1 failed: %2").arg(inputs.labelPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    }
    return out;
}

// A new vector file by suffix (.shp, .geojson/.json, else GeoPackage) with one polygon layer in the segments'
// reference system.
algokit::DatasetPtr createSegmentLayer(const QString& path, const SegmentInputs& inputs, const char* layerName)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    const char* driverName = suffix == "shp" ? "ESRI Shapefile" : suffix == "geojson" || suffix == "json" ? "GeoJSON" : "GPKG";
    if (QFileInfo::exists(path))
        algokit::deleteRasterFiles(path);
    algokit::DatasetPtr output(GetGDALDriverManager()->GetDriverByName(driverName)->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
    OGRSpatialReference* srs = inputs.labels->GetSpatialRef() ? inputs.labels->GetSpatialRef()->Clone() : nullptr;
    OGRLayer* layer = output ? output->CreateLayer(layerName, srs, wkbPolygon, nullptr) : nullptr;
    if (srs)
        srs->Release();
    if (!layer)
        throw algokit::AlgoError(QStringLiteral("Cannot create %1: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
    return output;
}

} // namespace

SegmentInputs openSegmentInputs(const algokit::GenericParams& args)
{
    SegmentInputs inputs;
    inputs.imagePath = args.text("InputFile").existingFile();
    inputs.labelPath = args.text("SegmentFile").existingFile();
    inputs.image = args.text("InputFile").openRaster();
    inputs.labels = args.text("SegmentFile").openRaster();
    const GDALDataType type = inputs.labels->GetRasterBand(1)->GetRasterDataType();
    if (inputs.labels->GetRasterCount() != 1 || GDALDataTypeIsFloating(type) || GDALDataTypeIsComplex(type))
        args.refuse(QStringLiteral("SegmentFile"), inputs.labelPath, QStringLiteral("is not a segment label raster (one integer band)"));
    if (inputs.labels->GetRasterXSize() != inputs.image->GetRasterXSize() || inputs.labels->GetRasterYSize() != inputs.image->GetRasterYSize())
        args.refuse(QStringLiteral("SegmentFile"), inputs.labelPath,
                    QStringLiteral("is not the size of InputFile (%1 x %2 pixels)").arg(inputs.image->GetRasterXSize()).arg(inputs.image->GetRasterYSize()));
    return inputs;
}

QStringList featureColumnsOf(const algokit::GenericParams& args, int bands)
{
    QStringList columns;
    QString bad;
    if (!featureColumns(args.text("Features").value(), bands, &columns, &bad))
        args.refuse(QStringLiteral("Features"), args.text("Features").value(),
                    QStringLiteral("names %1, not one of count, area, perimeter, compactness, shape_index, mean, std, min, max, brightness").arg(bad));
    return columns;
}

QString classifierOf(const algokit::GenericParams& args)
{
    return args.text("Classifier").orDefault(QStringLiteral("RF")).oneOf(SegmentClassifier::kinds()).value();
}

QMap<QString, double> optionsOf(const algokit::GenericParams& args, const QString& kind)
{
    QMap<QString, double> options = SegmentClassifier::defaultOptions(kind);
    const QString text = args.text("Options").value();
    for (const QString& item : text.split(QRegularExpression(QStringLiteral("[;,]")), Qt::SkipEmptyParts))
    {
        if (item.trimmed().isEmpty())
            continue;
        const QStringList pair = item.split(QLatin1Char('='));
        bool ok = pair.size() == 2;
        const QString key = pair.value(0).trimmed().toLower();
        const double value = pair.value(1).trimmed().toDouble(&ok);
        if (!ok || !options.contains(key) || value < 0)
            args.refuse(QStringLiteral("Options"), text,
                        QStringLiteral("is not a list of key=value with keys %1 for %2 (values not negative)")
                            .arg(options.isEmpty() ? QStringLiteral("(none)") : QStringList(options.keys()).join(QStringLiteral(", ")), kind));
        options[key] = value;
    }
    return options;
}

void applyProject(const algokit::GenericParams& args, const QString& key, ClassScheme* scheme)
{
    const QString path = args.text(key).value().trimmed();
    if (path.isEmpty())
        return;
    QFile file(path);
    const QJsonDocument document = file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()) : QJsonDocument();
    const QJsonArray classes = document.object().value(QStringLiteral("classes")).toArray();
    if (classes.isEmpty())
        args.refuse(key, path, QStringLiteral("is not a classification project with classes"));
    for (const QJsonValue& value : classes)
    {
        const QJsonObject entry = value.toObject();
        const int index = scheme->indexOf(entry.value(QStringLiteral("code")).toInt(-1));
        if (index < 0)
            continue;
        scheme->names[index] = entry.value(QStringLiteral("name")).toString(scheme->names[index]);
        const QJsonArray colour = entry.value(QStringLiteral("colour")).toArray();
        if (colour.size() == 3)
            scheme->colours[size_t(index)] = {colour[0].toInt(), colour[1].toInt(), colour[2].toInt()};
    }
}

SampleTable samplesOf(const algokit::GenericParams& args, const SegmentInputs& inputs, const QStringList& columns,
                      const SegmentFeatures* measured, const SampleRules& rules, const std::function<void(double)>& report)
{
    const QString path = args.text("SampleFile").existingFile();
    if (QFileInfo(path).suffix().toLower() == QLatin1String("csv"))
    {
        SampleTable table;
        try
        {
            table = readSampleCsv(path);
        }
        catch (const std::runtime_error& error)
        {
            args.refuse(QStringLiteral("SampleFile"), path, QString::fromUtf8(error.what()));
        }
        if (table.columns != columns)
            args.refuse(QStringLiteral("SampleFile"), path,
                        QStringLiteral("holds the features %1, not %2").arg(table.columns.join(QLatin1Char('|')), columns.join(QLatin1Char('|'))));
        report(1.0);
        return table;
    }
    CPLPushErrorHandler(CPLQuietErrorHandler);
    algokit::DatasetPtr vector(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    if (!vector || vector->GetLayerCount() < 1)
        args.refuse(QStringLiteral("SampleFile"), path, QStringLiteral("is neither a sample table (.csv) nor a vector layer"));
    OGRLayer* layer = vector->GetLayer(0);
    const QString field = args.text("ClassField").required();
    const int fieldIndex = layer->GetLayerDefn()->GetFieldIndex(field.toUtf8().constData());
    if (fieldIndex < 0)
        args.refuse(QStringLiteral("ClassField"), field, QStringLiteral("is not a field of SampleFile"));
    SegmentFeatures own(0, 1, 1);
    if (!measured)
    {
        own = measureSegments(inputs.labels.get(), inputs.image.get(), [&](double done) { report(0.5 * done); });
        measured = &own;
    }
    SampleTable table;
    table.columns = columns;
    std::map<unsigned, int> classOf;
    try
    {
        classOf = labelSegments(inputs.labels.get(), *measured, layer, fieldIndex, &table.scheme, [&](double done) { report(0.5 + 0.5 * done); });
    }
    catch (const std::runtime_error& error)
    {
        throw algokit::AlgoError(QStringLiteral("%1: the samples cannot be placed on the segments: %2").arg(args.algoName(), QString::fromUtf8(error.what())));
    }
    // Per class, the segments within the area bounds, drawn in a fixed random order up to the cap.
    std::vector<std::vector<unsigned>> members(table.scheme.codes.size());
    for (const auto& [segment, code] : classOf)
    {
        const double area = measured->area(segment);
        if (area < rules.minArea || (rules.maxArea > 0.0 && area > rules.maxArea))
            continue;
        members[size_t(table.scheme.indexOf(code))].push_back(segment);
    }
    std::mt19937 random(17);
    for (size_t c = 0; c < members.size(); ++c)
    {
        std::vector<unsigned>& list = members[c];
        if (rules.perClass > 0 && list.size() > size_t(rules.perClass))
        {
            std::shuffle(list.begin(), list.end(), random);
            list.resize(size_t(rules.perClass));
            std::sort(list.begin(), list.end());
        }
        for (unsigned segment : list)
        {
            table.segments.push_back(segment);
            table.classIndex.push_back(int(c));
            appendFeatureRow(*measured, segment, columns, table.values);
        }
    }
    if (table.rows() == 0)
        args.refuse(QStringLiteral("SampleFile"), path, QStringLiteral("labels no segment (none covered at least half by a sample, or all outside MinArea and MaxArea)"));
    return table;
}

ClassificationPaths classificationPaths(const algokit::GenericParams& args)
{
    const QString output = args.text("OutputFile").writableOutput();
    const QFileInfo info(output);
    const QString suffix = info.suffix().toLower();
    const QString stem = info.path() + QLatin1Char('/') + info.completeBaseName();
    ClassificationPaths paths;
    if (suffix == "shp" || suffix == "gpkg" || suffix == "geojson" || suffix == "json")
        paths = {stem + QStringLiteral("_classes.tif"), output};
    else
    {
        rasterDriverFor(args, QStringLiteral("OutputFile"), output);
        paths = {output, stem + QStringLiteral("_segments.gpkg")};
    }
    for (const QString& path : {paths.image, paths.polygons})
    {
        refuseSameFile(args, QStringLiteral("OutputFile"), path, QStringLiteral("InputFile"), args.text("InputFile").value());
        refuseSameFile(args, QStringLiteral("OutputFile"), path, QStringLiteral("SegmentFile"), args.text("SegmentFile").value());
    }
    return paths;
}

std::vector<int> predictSegments(const SegmentFeatures& features, const SegmentClassifier& classifier, const ClassScheme& scheme)
{
    std::vector<int> codes(size_t(features.largestLabel()) + 1, 0);
    std::vector<unsigned> segments;
    std::vector<float> rows;
    for (unsigned s = 1; s <= features.largestLabel(); ++s)
        if (features.count(s) > 0)
        {
            segments.push_back(s);
            appendFeatureRow(features, s, classifier.columns(), rows);
        }
    const std::vector<int> predicted = classifier.predict(rows);
    for (size_t i = 0; i < segments.size(); ++i)
        if (predicted[i] >= 0 && size_t(predicted[i]) < scheme.codes.size())
            codes[segments[i]] = scheme.codes[size_t(predicted[i])];
    return codes;
}

void checkModelFeatures(const algokit::GenericParams& args, const SegmentClassifier& classifier, int bands)
{
    const QString modelPath = args.text("ModelFile").value();
    for (const QString& column : classifier.columns())
    {
        const int underscore = column.lastIndexOf(QLatin1Char('_'));
        bool numbered = false;
        const int band = underscore > 0 ? column.mid(underscore + 1).toInt(&numbered) : 0;
        if (numbered && band > bands)
            args.refuse(QStringLiteral("ModelFile"), modelPath,
                        QStringLiteral("was trained on the feature %1, which InputFile (%2 bands) cannot give").arg(column).arg(bands));
    }
    if (!args.text("Features").isEmpty())
    {
        const QStringList wanted = featureColumnsOf(args, bands);
        if (wanted != classifier.columns())
            args.refuse(QStringLiteral("Features"), args.text("Features").value(),
                        QStringLiteral("differs from the features of ModelFile (%1)").arg(classifier.columns().join(QLatin1Char('|'))));
    }
}

void writeClassification(const SegmentInputs& inputs, const std::vector<int>& codeOfSegment, const ClassScheme& scheme,
                         const QString& imagePath, const QString& polygonPath, const QString& classField,
                         const std::function<void(double)>& report)
{
    int largest = 0;
    for (int code : scheme.codes)
        largest = std::max(largest, code);
    std::vector<algokit::Rgb> colours(size_t(largest) + 1, algokit::Rgb{0, 0, 0});
    QStringList names = algokit::defaultClassNames(largest + 1);
    names[0] = QStringLiteral("Unclassified");
    for (size_t i = 0; i < scheme.codes.size(); ++i)
    {
        colours[size_t(scheme.codes[i])] = scheme.colours[i];
        names[scheme.codes[i]] = scheme.names.value(int(i));
    }
    algokit::OutputRaster image = algokit::createClassRaster(imagePath, inputs.labels.get(), colours, names, QString(),
                                                             algokit::classDataType(size_t(largest) + 1));
    image.band(0)->SetDescription("class");
    const int height = inputs.labels->GetRasterYSize();
    std::vector<uint32_t> labels;
    std::vector<unsigned short> classes;
    algokit::forEachRowBlock(height, algokit::rowsPerBlock(inputs.labels.get(), 8), [&](int row0, int count) {
        algokit::readRows(inputs.labels->GetRasterBand(1), row0, count, labels);
        classes.resize(labels.size());
        for (size_t i = 0; i < labels.size(); ++i)
            classes[i] = labels[i] < codeOfSegment.size() ? (unsigned short)std::max(0, codeOfSegment[labels[i]]) : 0;
        algokit::writeRows(image.band(0), row0, count, classes);
        report(0.4 * (row0 + count) / height);
    });
    // Polygons of the segments with their class.
    SegmentPolygons segments = polygoniseSegments(inputs, [&](double done) { report(0.4 + 0.3 * done); });
    algokit::DatasetPtr output = createSegmentLayer(polygonPath, inputs, "segments");
    OGRLayer* layer = output->GetLayer(0);
    OGRFieldDefn segmentField("segment", OFTInteger64);
    OGRFieldDefn classDefinition(classField.toUtf8().constData(), OFTInteger);
    OGRFieldDefn nameDefinition("class_name", OFTString);
    if (layer->CreateField(&segmentField) != OGRERR_NONE || layer->CreateField(&classDefinition) != OGRERR_NONE ||
        layer->CreateField(&nameDefinition) != OGRERR_NONE)
        throw algokit::AlgoError(QStringLiteral("Cannot create the segment layer in %1.").arg(polygonPath));
    output->StartTransaction();
    for (auto& polygon : *segments.layer)
    {
        const GIntBig id = polygon->GetFieldAsInteger64(0);
        const int code = id > 0 && size_t(id) < codeOfSegment.size() ? codeOfSegment[size_t(id)] : 0;
        OGRFeature out(layer->GetLayerDefn());
        out.SetGeometry(polygon->GetGeometryRef());
        out.SetField(0, id);
        out.SetField(1, code);
        const int index = scheme.indexOf(code);
        out.SetField(2, index >= 0 ? scheme.names.value(index).toUtf8().constData() : "Unclassified");
        if (layer->CreateFeature(&out) != OGRERR_NONE)
            throw algokit::AlgoError(QStringLiteral("Writing %1 failed: %2").arg(polygonPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    }
    output->CommitTransaction();
    output.reset();
    image.commit();
    report(1.0);
}

void writeSampleLayer(const SegmentInputs& inputs, const SampleTable& table, const QString& path,
                      const std::function<void(double)>& report)
{
    std::map<unsigned, int> rowOf;
    for (int row = 0; row < table.rows(); ++row)
        rowOf[table.segments[size_t(row)]] = row;
    SegmentPolygons segments = polygoniseSegments(inputs, [&](double done) { report(0.5 * done); });
    algokit::DatasetPtr output = createSegmentLayer(path, inputs, "samples");
    OGRLayer* layer = output->GetLayer(0);
    bool created = true;
    OGRFieldDefn segmentField("segment", OFTInteger64);
    OGRFieldDefn classField("class", OFTInteger);
    OGRFieldDefn nameField("class_name", OFTString);
    created = layer->CreateField(&segmentField) == OGRERR_NONE && layer->CreateField(&classField) == OGRERR_NONE &&
              layer->CreateField(&nameField) == OGRERR_NONE;
    for (const QString& column : table.columns)
    {
        OGRFieldDefn field(column.toUtf8().constData(), OFTReal);
        created = created && layer->CreateField(&field) == OGRERR_NONE;
    }
    if (!created)
        throw algokit::AlgoError(QStringLiteral("Cannot create the sample layer in %1.").arg(path));
    const size_t width = size_t(table.columns.size());
    output->StartTransaction();
    for (auto& polygon : *segments.layer)
    {
        const auto found = rowOf.find(unsigned(polygon->GetFieldAsInteger64(0)));
        if (found == rowOf.end())
            continue;
        const int row = found->second;
        const int index = table.classIndex[size_t(row)];
        OGRFeature out(layer->GetLayerDefn());
        out.SetGeometry(polygon->GetGeometryRef());
        out.SetField(0, GIntBig(found->first));
        out.SetField(1, table.scheme.codes[size_t(index)]);
        out.SetField(2, table.scheme.names.value(index).toUtf8().constData());
        for (size_t c = 0; c < width; ++c)
            out.SetField(int(3 + c), double(table.values[size_t(row) * width + c]));
        if (layer->CreateFeature(&out) != OGRERR_NONE)
            throw algokit::AlgoError(QStringLiteral("Writing %1 failed: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
    }
    output->CommitTransaction();
    output.reset();
    report(1.0);
}

} // namespace obia
