// Plug-in "RasterToVector": polygons of equal value of one band (8-connected, nodata skipped) into a shapefile
// beside the raster, with the value and, for classification images, the class name.
#include "gdal_progress.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_inputs.h"
#include "vector_layers.h"

#include <gdal_alg.h>
#include <gdal_rat.h>

#include <QFileInfo>

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

        GDALDatasetUniquePtr out = datautil::createVectorOutput(m_output);
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
        char** options = CSLSetNameValue(nullptr, "8CONNECTED", "8");
        algokit::GdalProgress bridge([this](double percent) { progress(percent); }, 0.0, classImage ? 90.0 : 100.0);
        CPLErrorReset();
        const CPLErr err = floating ? GDALFPolygonize(band, mask, OGRLayer::ToHandle(layer), 0, options,
                                                      algokit::GdalProgress::callback, &bridge)
                                    : GDALPolygonize(band, mask, OGRLayer::ToHandle(layer), 0, options,
                                                     algokit::GdalProgress::callback, &bridge);
        CSLDestroy(options);
        bridge.rethrowIfCancelled();
        if (err != CE_None)
            throw algokit::AlgoError(
                QStringLiteral("Polygonising %1 failed: %2").arg(inputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        if (classImage)
            nameClasses(layer, names);
        out.reset();
        setResult(algokit::GenericOutputs().add(QStringLiteral("OutputFile"), m_output).result());
        progress(100.0);
        return true;
    }

    void discardOutputs() override { datautil::removeVectorFiles(m_output); }

private:
    void nameClasses(OGRLayer* layer, const std::vector<QString>& names)
    {
        layer->ResetReading();
        const GIntBig count = layer->GetFeatureCount();
        GIntBig done = 0;
        for (auto& feature : *layer)
        {
            const int value = feature->GetFieldAsInteger(0);
            const QString name = value >= 0 && size_t(value) < names.size() && !names[size_t(value)].isEmpty()
                                     ? names[size_t(value)]
                                     : QStringLiteral("Class_%1").arg(value + 1);
            feature->SetField(1, name.toUtf8().constData());
            if (layer->SetFeature(feature.get()) != OGRERR_NONE)
                throw algokit::AlgoError(QStringLiteral("Naming the classes in %1 failed: %2")
                                             .arg(m_output, QString::fromUtf8(CPLGetLastErrorMsg())));
            if (++done % 4096 == 0)
                progress(90.0 + 10.0 * double(done) / double(std::max<GIntBig>(1, count)));
        }
    }

    QString m_output;
};

} // namespace

ALGO_PLUGIN_FACTORY(RasterToVector)
