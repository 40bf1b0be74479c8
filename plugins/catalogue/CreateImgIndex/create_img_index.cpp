// Plug-in "CreateImgIndex": a footprint index of images and products (one valid-data polygon per product in
// WGS 84 with its satellite, sensor, date and other attributes), written as GeoPackage, shapefile or GeoJSON.
#include "generic_params.h"
#include "image_index.h"
#include "made_folders.h"
#include "plugin_base.h"

#include <QFileInfo>

namespace
{

class CreateImgIndex : public algokit::PluginBase
{
public:
    CreateImgIndex() : PluginBase(QStringLiteral("CreateImgIndex")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const algokit::TextParam inputs = args.text("InputFiles").required();
        const QString output = args.text("OutputFile").required();
        if (catalogue::indexDriverForPath(output).isEmpty())
            args.refuse("OutputFile", output, "does not end in .gpkg, .shp, .geojson or .json");
        catalogue::FootprintOptions options;
        options.maskSize = args.integer("MaskSize").orDefault(256).range(16, 4096);

        QStringList unusable;
        const std::vector<catalogue::CatalogueItem> items = catalogue::scanInputs(inputs.list(), &unusable);
        if (!unusable.isEmpty())
            args.refuse("InputFiles", unusable.first(), "is neither a raster, a product nor a folder holding one");
        m_folders.noteBefore(QFileInfo(output).absolutePath());
        args.text("OutputFile").writableOutput();

        const std::vector<catalogue::IndexEntry> entries =
            catalogue::describeItems(items, options, [this](int done, int total) { progress(95.0 * done / total); });

        // A file named in the list must make a footprint; what a folder search finds is skipped instead.
        QStringList skipped;
        int indexed = 0;
        for (size_t i = 0; i < entries.size(); ++i)
        {
            if (entries[i].footprint)
            {
                ++indexed;
                continue;
            }
            if (items[i].explicitlyNamed)
                args.refuse("InputFiles", items[i].path, entries[i].error);
            skipped << items[i].path;
        }
        if (indexed == 0)
            args.refuse("InputFiles", inputs.value(), "holds no georeferenced raster or product");

        m_output = output;
        QString error;
        if (!catalogue::writeIndex(output, entries, &error))
            return fail(QStringLiteral("CreateImgIndex: %1").arg(error));
        progress(100.0);
        setResult(algokit::GenericOutputs()
                      .add("ImageCount", QString::number(indexed))
                      .add("SkippedFiles", skipped.join(QLatin1Char('|')))
                      .result());
        return true;
    }

    void discardOutputs() override
    {
        if (!m_output.isEmpty())
            catalogue::deleteIndex(m_output);
        m_folders.removeEmpty();
    }

private:
    QString m_output;
    catalogue::MadeFolders m_folders;
};

} // namespace

ALGO_PLUGIN_FACTORY(CreateImgIndex)
