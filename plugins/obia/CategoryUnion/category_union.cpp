// Merges classes of a classification image (or the class field of a vector layer) by a rule such as
// "1,2->1;3,4,5->2": merged classes get rebuilt names and colours, classes the rule does not name are kept.
#include "class_map.h"
#include "classification_io.h"
#include "generic_params.h"
#include "records/generic_record.h"
#include "union_rule.h"

#include <ogrsf_frmts.h>

#include <QFileInfo>
#include <map>
#include <set>

using namespace algokit;

namespace
{

class CategoryUnion : public PluginBase
{
public:
    CategoryUnion() : PluginBase(QStringLiteral("CategoryUnion")) {}

protected:
    bool run() override;

private:
    bool mergeRaster(const GenericParams& args, GDALDataset* input, const obia::UnionRule& rule, const QString& outputPath);
    bool mergeVector(const GenericParams& args, GDALDataset* input, const obia::UnionRule& rule, const QString& outputPath);
};

long long mapped(const obia::UnionRule& rule, long long value)
{
    const auto found = rule.target.find(value);
    return found == rule.target.end() ? value : found->second;
}

bool CategoryUnion::mergeRaster(const GenericParams& args, GDALDataset* input, const obia::UnionRule& rule, const QString& outputPath)
{
    GDALRasterBand* band = input->GetRasterBand(1);
    const GDALDataType type = band->GetRasterDataType();
    if (type != GDT_Byte && type != GDT_UInt16)
        args.refuse(QStringLiteral("InputFile"), QString::fromUtf8(input->GetDescription()),
                    QStringLiteral("is not a classification image (band 1 is %1, not Byte or UInt16)").arg(GDALGetDataTypeName(type)));
    const QString driver = obia::rasterDriverFor(args, QStringLiteral("OutputFile"), outputPath);
    ClassTable table = readClassTable(input);
    // A GeoTIFF colour table always has 256 entries: the classes are those named, or up to the largest value.
    double range[2] = {0, 0};
    if (band->ComputeRasterMinMax(FALSE, range) != CE_None)
        range[1] = 0;
    const int classCount = std::max(CSLCount(band->GetCategoryNames()), int(range[1]) + 1);
    for (const auto& [from, to] : rule.target)
        if (to < 0 || to > 65534 || from < 0)
            args.refuse(QStringLiteral("UnionRule"), args.text("UnionRule").value(),
                        QStringLiteral("names class %1, outside 0 to 65534").arg(to < 0 || to > 65534 ? to : from));
    // Members of each new class: the old classes that land on it.
    std::map<long long, std::vector<int>> members;
    for (int c = 0; c < classCount; ++c)
        members[mapped(rule, c)].push_back(c);
    for (const auto& [from, to] : rule.target)
        members[to];
    const int newCount = int(members.rbegin()->first) + 1;
    const std::vector<Rgb> fallback = distinctColours(newCount);
    std::vector<Rgb> colours(size_t(newCount), Rgb{0, 0, 0});
    QStringList names = defaultClassNames(newCount);
    auto oldName = [&](int c) { return c < table.names.size() ? table.names[c] : QStringLiteral("Class_%1").arg(c + 1); };
    for (const auto& [value, old] : members)
    {
        if (old.empty())
        {
            colours[size_t(value)] = fallback[size_t(value)];
            continue;
        }
        // The merged class keeps the colour of its own old class when it had one, else of its lowest member.
        const bool ownClass = std::find(old.begin(), old.end(), int(value)) != old.end();
        const int colourFrom = ownClass ? int(value) : old.front();
        colours[size_t(value)] = size_t(colourFrom) < table.colours.size() ? table.colours[size_t(colourFrom)] : fallback[size_t(value)];
        QStringList parts;
        for (int c : old)
            parts << oldName(c);
        names[int(value)] = parts.join(QStringLiteral(" + "));
    }
    OutputRaster output = createClassRaster(outputPath, input, colours, names, driver, classDataType(size_t(newCount)));
    int hasNoData = 0;
    const double noData = band->GetNoDataValue(&hasNoData);
    if (hasNoData)
        output.band(0)->SetNoDataValue(noData);
    output.band(0)->SetDescription(band->GetDescription());
    // Every value of the input type has its new value; no-data and values the rule does not name stay.
    std::vector<unsigned short> lookup(65536);
    for (int v = 0; v < 65536; ++v)
        lookup[size_t(v)] = (hasNoData && v == int(noData)) ? (unsigned short)v : (unsigned short)mapped(rule, v);
    const int height = input->GetRasterYSize();
    std::vector<unsigned short> rows;
    forEachRowBlock(height, rowsPerBlock(input, 2), [&](int row0, int count) {
        readRows(band, row0, count, rows);
        for (unsigned short& v : rows)
            v = lookup[v];
        writeRows(output.band(0), row0, count, rows);
        progress(100.0 * (row0 + count) / height);
    });
    output.commit();
    return true;
}

QString vectorDriverFor(const GenericParams& args, const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("shp"))
        return QStringLiteral("ESRI Shapefile");
    if (suffix == QLatin1String("gpkg"))
        return QStringLiteral("GPKG");
    if (suffix == QLatin1String("geojson") || suffix == QLatin1String("json"))
        return QStringLiteral("GeoJSON");
    args.refuse(QStringLiteral("OutputFile"), path, QStringLiteral("must end in .shp, .gpkg, .geojson or .json for a vector input"));
}

bool CategoryUnion::mergeVector(const GenericParams& args, GDALDataset* input, const obia::UnionRule& rule, const QString& outputPath)
{
    const QString field = args.text("ClassField").required();
    OGRLayer* source = input->GetLayer(0);
    const int fieldIndex = source->GetLayerDefn()->GetFieldIndex(field.toUtf8().constData());
    if (fieldIndex < 0)
        args.refuse(QStringLiteral("ClassField"), field, QStringLiteral("is not a field of InputFile"));
    const OGRFieldType fieldType = source->GetLayerDefn()->GetFieldDefn(fieldIndex)->GetType();
    if (fieldType != OFTInteger && fieldType != OFTInteger64 && fieldType != OFTString && fieldType != OFTReal)
        args.refuse(QStringLiteral("ClassField"), field, QStringLiteral("is not a number or text field"));
    const QString driverName = vectorDriverFor(args, outputPath);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName.toUtf8().constData());
    if (!driver)
        throw AlgoError(QStringLiteral("CategoryUnion: no vector driver %1.").arg(driverName));
    const QByteArray name = outputPath.toUtf8();
    if (QFileInfo::exists(outputPath))
        deleteRasterFiles(outputPath);
    claimOutput(outputPath);
    DatasetPtr output(driver->Create(name.constData(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!output)
        throw AlgoError(QStringLiteral("CategoryUnion: cannot create %1: %2").arg(outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    OGRLayer* target = output->CreateLayer(source->GetName(), source->GetSpatialRef(), source->GetGeomType(), nullptr);
    if (!target)
        throw AlgoError(QStringLiteral("CategoryUnion: cannot create a layer in %1.").arg(outputPath));
    OGRFeatureDefn* definition = source->GetLayerDefn();
    for (int i = 0; i < definition->GetFieldCount(); ++i)
        target->CreateField(definition->GetFieldDefn(i));
    const GIntBig total = std::max<GIntBig>(1, source->GetFeatureCount());
    GIntBig done = 0;
    output->StartTransaction();
    source->ResetReading();
    for (auto& feature : *source)
    {
        OGRFeature copy(target->GetLayerDefn());
        copy.SetFrom(feature.get(), TRUE);
        if (feature->IsFieldSetAndNotNull(fieldIndex))
        {
            bool whole = true;
            long long value = 0;
            if (fieldType == OFTString)
                value = QString::fromUtf8(feature->GetFieldAsString(fieldIndex)).trimmed().toLongLong(&whole);
            else if (fieldType == OFTReal)
            {
                const double real = feature->GetFieldAsDouble(fieldIndex);
                whole = real == std::floor(real);
                value = (long long)real;
            }
            else
                value = feature->GetFieldAsInteger64(fieldIndex);
            if (whole && rule.target.count(value))
            {
                if (fieldType == OFTString)
                    copy.SetField(fieldIndex, QString::number(rule.target.at(value)).toUtf8().constData());
                else
                    copy.SetField(fieldIndex, GIntBig(rule.target.at(value)));
            }
        }
        if (target->CreateFeature(&copy) != OGRERR_NONE)
            throw AlgoError(QStringLiteral("CategoryUnion: writing a feature to %1 failed: %2").arg(outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        if (++done % 1000 == 0)
            progress(100.0 * double(done) / double(total));
    }
    if (output->CommitTransaction() != OGRERR_NONE && output->TestCapability(ODsCTransactions))
        throw AlgoError(QStringLiteral("CategoryUnion: writing %1 failed.").arg(outputPath));
    output.reset();
    return true;
}

bool CategoryUnion::run()
{
    const auto& record = params<GenericAlgoRecord>();
    GenericParams args(record, GetName());
    const QString inputPath = args.text("InputFile").existingFile();
    TextParam ruleText = args.text("UnionRule");
    ruleText.required();
    const obia::UnionRule rule = obia::parseUnionRule(ruleText.value());
    if (!rule.error.isEmpty())
        args.refuse(QStringLiteral("UnionRule"), ruleText.value(), rule.error);
    const QString outputPath = args.text("OutputFile").writableOutput();
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("InputFile"), inputPath);
    CPLPushErrorHandler(CPLQuietErrorHandler);
    DatasetPtr input(GDALDataset::Open(inputPath.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_VECTOR | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    if (input && input->GetRasterCount() > 0)
    {
        checkRasterSize(input.get(), inputPath);
        return mergeRaster(args, input.get(), rule, outputPath);
    }
    if (input && input->GetLayerCount() > 0)
        return mergeVector(args, input.get(), rule, outputPath);
    args.refuse(QStringLiteral("InputFile"), inputPath, QStringLiteral("is neither a classification image nor a vector layer"));
}

} // namespace

ALGO_PLUGIN_FACTORY(CategoryUnion)
