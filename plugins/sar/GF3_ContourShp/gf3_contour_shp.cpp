// Plug-in "GF3_ContourShp": the footprint of a GF-3 product as a polygon shapefile in WGS 84 with the product's
// attributes: the valid-data outline of its image through the RPC when one is beside it, else the meta.xml corners.
#include "generic_params.h"
#include "plugin_base.h"
#include "rpc_footprint.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <ogrsf_frmts.h>

#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <memory>

namespace
{

using boost::property_tree::ptree;

struct Footprint
{
    double latitude[4], longitude[4]; // top left, top right, bottom right, bottom left
    std::vector<std::pair<std::string, std::string>> attributes;
};

class Gf3ContourShp : public algokit::PluginBase
{
public:
    Gf3ContourShp() : PluginBase(QStringLiteral("GF3_ContourShp")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString meta = args.text("MetaXmlFile").required().existingFile();
        const QString output = args.text("OutputFile").required().writableOutput();
        if (QFileInfo(output).suffix().compare("shp", Qt::CaseInsensitive) != 0)
            args.refuse("OutputFile", output, QStringLiteral("must end in .shp"));
        Footprint footprint;
        try
        {
            footprint = read(meta);
        }
        catch (const std::exception& e)
        {
            args.refuse("MetaXmlFile", meta, QString::fromUtf8(e.what()));
        }
        QString productId;
        for (const auto& attribute : footprint.attributes)
            if (attribute.first == "ProductID")
                productId = QString::fromStdString(attribute.second);
        std::unique_ptr<OGRPolygon> outline;
        const gf3footprint::RpcImage rpcImage = gf3footprint::findRpcImage(meta, productId);
        if (!rpcImage.image.isEmpty())
        {
            try
            {
                outline = gf3footprint::validDataFootprint(rpcImage);
            }
            catch (const std::exception& e)
            {
                return fail(QStringLiteral("The footprint of %1 cannot be made from its RPC: %2")
                                .arg(rpcImage.image, QString::fromUtf8(e.what())));
            }
        }
        footprint.attributes.emplace_back("Outline", outline ? "valid data through RPC" : "meta.xml corners");

        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
        if (!driver)
            return fail(QStringLiteral("GDAL has no ESRI Shapefile driver"));
        const QFileInfo info(output);
        const QString base = info.absolutePath() + "/" + info.completeBaseName();
        QStringList files;
        for (const char* suffix : {".shp", ".shx", ".dbf", ".prj", ".cpg"})
        {
            files << base + suffix;
            claimOutput(base + suffix);
        }
        if (QFileInfo::exists(output))
            driver->Delete(output.toUtf8().constData());
        std::unique_ptr<GDALDataset> ds(driver->Create(output.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
        if (!ds)
            return fail(QStringLiteral("Cannot create %1: %2").arg(output, CPLGetLastErrorMsg()));
        OGRSpatialReference wgs84;
        wgs84.SetWellKnownGeogCS("WGS84");
        const char* options[] = {"ENCODING=UTF-8", nullptr};
        OGRLayer* layer = ds->CreateLayer(info.completeBaseName().toUtf8().constData(), &wgs84, wkbPolygon,
                                          const_cast<char**>(options));
        if (!layer)
            return fail(QStringLiteral("Cannot create the layer of %1").arg(output));
        for (const auto& attribute : footprint.attributes)
        {
            OGRFieldDefn field(attribute.first.c_str(), OFTString);
            field.SetWidth(254);
            if (layer->CreateField(&field) != OGRERR_NONE)
                return fail(QStringLiteral("Cannot add the field %1").arg(attribute.first.c_str()));
        }
        OGRFeature feature(layer->GetLayerDefn());
        for (const auto& attribute : footprint.attributes)
            feature.SetField(attribute.first.c_str(), attribute.second.c_str());
        OGRPolygon polygon;
        if (outline)
            polygon = *outline;
        else
        {
            OGRLinearRing ring;
            for (int i = 0; i <= 4; ++i)
                ring.addPoint(footprint.longitude[i % 4], footprint.latitude[i % 4]);
            polygon.addRing(&ring);
        }
        // Shapefile outer rings run clockwise; the order depends on the pass and look direction.
        if (!polygon.getExteriorRing()->isClockwise())
            polygon.getExteriorRing()->reverseWindingOrder();
        feature.SetGeometry(&polygon);
        if (layer->CreateFeature(&feature) != OGRERR_NONE)
            return fail(QStringLiteral("Cannot write the footprint to %1").arg(output));
        ds.reset();
        progress(100);
        QStringList written;
        for (const QString& file : files)
            if (QFileInfo::exists(file))
                written << file;
        setResult(algokit::GenericOutputs().add("GF3_ContourShp_images", written.join('|')).result());
        return true;
    }

private:
    static Footprint read(const QString& path)
    {
        ptree tree;
        try
        {
            boost::property_tree::read_xml(QFile::encodeName(path).toStdString(), tree);
        }
        catch (const boost::property_tree::xml_parser_error& e)
        {
            throw std::runtime_error("is not readable XML (" + e.message() + ")");
        }
        const auto product = tree.get_child_optional("product");
        if (!product)
            throw std::runtime_error("has no root element product");
        Footprint f;
        const char* corners[4] = {"topLeft", "topRight", "bottomRight", "bottomLeft"};
        for (int i = 0; i < 4; ++i)
        {
            const std::string at = std::string("imageinfo.corner.") + corners[i];
            const auto lat = product->get_optional<double>(at + ".latitude");
            const auto lon = product->get_optional<double>(at + ".longitude");
            if (!lat || !lon || !std::isfinite(*lat) || !std::isfinite(*lon) || std::abs(*lat) > 90 ||
                std::abs(*lon) > 360)
                throw std::runtime_error("has no usable " + at + " latitude and longitude");
            f.latitude[i] = *lat;
            f.longitude[i] = *lon;
        }
        auto text = [&](const char* key) { return product->get<std::string>(key, ""); };
        std::string polarisation;
        if (const auto info = product->get_child_optional("productinfo"))
            for (const auto& child : *info)
                if (child.first != "<xmlattr>" && child.first != "<xmlcomment>")
                    polarisation = child.second.data();
        f.attributes = {{"ProductID", text("productID")},
                        {"Satellite", text("satellite")},
                        {"Mode", text("sensor.imagingMode")},
                        {"Polar", polarisation},
                        {"Direction", text("Direction")},
                        {"StartTime", text("imageinfo.imagingTime.start")},
                        {"EndTime", text("imageinfo.imagingTime.end")},
                        {"Level", text("productinfo.productLevel")},
                        {"MetaXml", QFileInfo(path).fileName().toStdString()}};
        return f;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(Gf3ContourShp)
