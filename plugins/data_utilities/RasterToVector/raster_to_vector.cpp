// Plug-in "RasterToVector": polygons of equal value of one band (8-connected, nodata skipped) into a shapefile
// beside the raster, with the value and, for classification images, the class name.
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_inputs.h"
#include "raster_io.h"
#include "region_tracer.h"
#include "vector_layers.h"

#include <cpl_vsi.h>
#include <gdal_rat.h>

#include <QFileInfo>

#include <memory>

namespace
{

// Class names by pixel value: the band's category names, else the name column of its attribute table.
std::vector<QString> classNames(GDALRasterBand* band)
{
    std::vector<QString> names;
    if (char** categories = band->GetCategoryNames())
        for (int i = 0; categories[i]; ++i)
            names.push_back(QString::fromUtf8(categories[i]));
    GDALRasterAttributeTable* table = band->GetDefaultRAT();
    if (names.empty() && table)
    {
        int valueColumn = -1, nameColumn = -1;
        for (int c = 0; c < table->GetColumnCount(); ++c)
        {
            if (table->GetUsageOfCol(c) == GFU_MinMax || table->GetUsageOfCol(c) == GFU_Min)
                valueColumn = valueColumn < 0 ? c : valueColumn;
            if (table->GetTypeOfCol(c) == GFT_String && (nameColumn < 0 || table->GetUsageOfCol(c) == GFU_Name))
                nameColumn = c;
        }
        if (nameColumn >= 0)
            for (int row = 0; row < table->GetRowCount(); ++row)
            {
                const int value = valueColumn >= 0 ? table->GetValueAsInt(row, valueColumn) : row;
                if (value < 0 || value > 65535)
                    continue;
                if (size_t(value) >= names.size())
                    names.resize(size_t(value) + 1);
                names[size_t(value)] = QString::fromUtf8(table->GetValueAsString(row, nameColumn));
            }
    }
    return names;
}

// A folder of the in-memory file system, removed with everything in it when it goes.
struct MemoryFolder
{
    MemoryFolder() : path(QStringLiteral("/vsimem/RasterToVector_%1").arg(quintptr(this), 0, 16)) {}
    ~MemoryFolder() { VSIRmdirRecursive(path.toUtf8().constData()); }
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;
    QString path;
};

// The class name of a value: its category or table name, else "Class_<value + 1>".
QString className(const std::vector<QString>& names, double value)
{
    const long long index = (long long)(value);
    if (index >= 0 && size_t(index) < names.size() && !names[size_t(index)].isEmpty())
        return names[size_t(index)];
    return QStringLiteral("Class_%1").arg(index + 1);
}

class RasterToVector : public algokit::PluginBase
{
public:
    RasterToVector() : PluginBase(QStringLiteral("RasterToVector")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr input = datautil::openRasterItem(args, QStringLiteral("InputFile"), inputPath);
        const int bandNumber = args.integer(QStringLiteral("Band")).orDefault(1).range(1, input->GetRasterCount());
        GDALRasterBand* band = input->GetRasterBand(bandNumber);
        const GDALDataType type = band->GetRasterDataType();
        if (GDALDataTypeIsComplex(type))
            args.refuse(QStringLiteral("InputFile"), inputPath,
                        QStringLiteral("holds complex pixels, which have no polygons"));
        const QFileInfo info(inputPath);
        m_output = info.absolutePath() + QLatin1Char('/') + info.completeBaseName() + QStringLiteral(".shp");
        if (!datautil::vectorPathFits(m_output))
            args.refuse(QStringLiteral("InputFile"), inputPath,
                        QStringLiteral("lies in a path too long for a shapefile beside it"));

        const bool floating = GDALDataTypeIsFloating(type);
        const bool classImage = band->GetColorTable() || band->GetCategoryNames() || band->GetDefaultRAT();
        const std::vector<QString> names = classImage ? classNames(band) : std::vector<QString>();

        // Written in memory and copied beside the raster at the end: the shapefile writer seeks and writes a few
        // bytes per feature, which costs more on disk than tracing the polygons does.
        const MemoryFolder staging;
        const QString staged = staging.path + QLatin1Char('/') + info.completeBaseName() + QStringLiteral(".shp");
        GDALDatasetUniquePtr out = datautil::createVectorOutput(staged);
        const OGRSpatialReference* own = input->GetSpatialRef();
        OGRLayer* layer = out->CreateLayer(info.completeBaseName().toUtf8().constData(),
                                           const_cast<OGRSpatialReference*>(own), wkbPolygon, nullptr);
        if (!layer)
            throw algokit::AlgoError(
                QStringLiteral("Cannot create %1: %2").arg(m_output, QString::fromUtf8(CPLGetLastErrorMsg())));
        OGRFieldDefn valueField("value", floating || type == GDT_UInt32 ? OFTReal : OFTInteger);
        if (layer->CreateField(&valueField) != OGRERR_NONE)
            throw algokit::AlgoError(
                QStringLiteral("Cannot create %1: %2").arg(m_output, QString::fromUtf8(CPLGetLastErrorMsg())));
        if (classImage)
        {
            OGRFieldDefn nameField("class", OFTString);
            nameField.SetWidth(80);
            layer->CreateField(&nameField);
        }

        GDALRasterBand* mask = (band->GetMaskFlags() & GMF_ALL_VALID) ? nullptr : band->GetMaskBand();
        double transform[6] = {0, 1, 0, 0, 0, 1};
        input->GetGeoTransform(transform);
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        const int step = algokit::rowsPerBlock(input.get(), 9);
        datautil::RegionTracer tracer(width);
        std::vector<double> values;
        std::vector<uint8_t> valid;
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            algokit::readRows(band, row0, rows, values);
            if (mask)
                algokit::readRows(mask, row0, rows, valid);
            for (int r = 0; r < rows; ++r)
                tracer.addRow(values.data() + size_t(r) * size_t(width),
                              mask ? valid.data() + size_t(r) * size_t(width) : nullptr);
            // The edges live until the last row; stop (nothing written yet) before they take the machine's memory
            // or outgrow the 32-bit edge index.
            if (tracer.heldBytes() > size_t(CPLGetUsablePhysicalRAM() / 2) || tracer.heldBytes() > (size_t(60) << 30))
                throw algokit::AlgoError(QStringLiteral("RasterToVector: the polygons of %1 need more memory than "
                                                        "this machine has (%2 MB held at row %3 of %4)")
                                             .arg(inputPath)
                                             .arg(qulonglong(tracer.heldBytes() >> 20))
                                             .arg(row0 + rows)
                                             .arg(height));
            progress(70.0 * double(row0 + rows) / double(height));
        });

        OGRFeatureDefn* definition = layer->GetLayerDefn();
        const bool integerValue = definition->GetFieldDefn(0)->GetType() == OFTInteger;
        size_t written = 0;
        auto write = [&](datautil::TracedRegion& region) {
            OGRFeature feature(definition);
            if (integerValue)
                feature.SetField(0, int(region.value));
            else
                feature.SetField(0, region.value);
            if (classImage)
                feature.SetField(1, className(names, region.value).toUtf8().constData());
            auto polygon = std::make_unique<OGRPolygon>();
            for (const auto& corners : region.rings)
            {
                auto ring = std::make_unique<OGRLinearRing>();
                ring->setNumPoints(int(corners.size()), FALSE);
                for (size_t i = 0; i < corners.size(); ++i)
                {
                    const double x = corners[i].x, y = corners[i].y;
                    ring->setPoint(int(i), transform[0] + x * transform[1] + y * transform[2],
                                   transform[3] + x * transform[4] + y * transform[5]);
                }
                polygon->addRingDirectly(ring.release());
            }
            feature.SetGeometryDirectly(polygon.release());
            if (layer->CreateFeature(&feature) != OGRERR_NONE)
                throw algokit::AlgoError(QStringLiteral("Writing the polygons of %1 failed: %2")
                                             .arg(m_output, QString::fromUtf8(CPLGetLastErrorMsg())));
            if (++written % 4096 == 0)
                progress(70.0 + 30.0 * double(written) / double(std::max<size_t>(1, tracer.regionCount())));
        };
        tracer.finish(write, [](int count, const std::function<void(int, int)>& work) {
            algokit::parallelFor(count, work);
        });
        out.reset();
        datautil::removeVectorFiles(m_output);
        for (const char* side : {"shp", "shx", "dbf", "prj", "cpg"})
        {
            const QString from = staging.path + QLatin1Char('/') + info.completeBaseName() + QLatin1Char('.') + side;
            const QString to = info.absolutePath() + QLatin1Char('/') + info.completeBaseName() + QLatin1Char('.') + side;
            VSIStatBufL stat;
            if (VSIStatL(from.toUtf8().constData(), &stat) != 0)
                continue;
            if (CPLCopyFile(to.toUtf8().constData(), from.toUtf8().constData()) != 0)
                throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(to));
        }
        setResult(algokit::GenericOutputs().add(QStringLiteral("OutputFile"), m_output).result());
        progress(100.0);
        return true;
    }

    void discardOutputs() override { datautil::removeVectorFiles(m_output); }

private:
    QString m_output;
};

} // namespace

ALGO_PLUGIN_FACTORY(RasterToVector)
