// Plug-in "FilterImg": the images of a list, of folders or of a footprint index that intersect an extent,
// come from one of the named satellites and were acquired in a date range; the matches as one [OUTPUT] line.
#include "filter_rules.h"
#include "generic_params.h"
#include "image_index.h"
#include "plugin_base.h"

#include <QFileInfo>

namespace
{

bool looksLikeIndex(const QString& path)
{
    static const QStringList suffixes = {"gpkg", "shp", "geojson", "json", "sqlite", "fgb", "kml", "gml"};
    return QFileInfo(path).isFile() && suffixes.contains(QFileInfo(path).suffix().toLower());
}

class FilterImg : public algokit::PluginBase
{
public:
    FilterImg() : PluginBase(QStringLiteral("FilterImg")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QStringList inputs = args.text("InputFiles").required().list();
        const QString extentText = args.text("Extent");
        QString error;
        const catalogue::GeometryPtr extent = catalogue::parseExtent(extentText, &error);
        if (!error.isEmpty())
            args.refuse("Extent", extentText, error);
        const QStringList satellites = args.text("Satellite").list(QLatin1Char(','));
        const QString dateText = args.text("DateRange");
        catalogue::DateRange dates;
        if (!catalogue::parseDateRange(dateText, &dates))
            args.refuse("DateRange", dateText, "is not two dates from|to (either may be empty) in order");

        // Candidates: rows of the indexes, items of the rasters and folders; all checked before any footprint.
        struct Candidate
        {
            QString path;
            catalogue::ProductInfo info;
            catalogue::GeometryPtr footprint;
            int item = -1; // index into `items` when the footprint is still to be computed
        };
        std::vector<Candidate> candidates;
        std::vector<catalogue::CatalogueItem> items;
        for (const QString& input : inputs)
        {
            if (looksLikeIndex(input))
            {
                catalogue::IndexContent content;
                if (!catalogue::readIndex(input, content, &error))
                    args.refuse("InputFiles", input, error);
                for (catalogue::IndexRow& row : content.rows)
                    candidates.push_back({row.path, row.info, std::move(row.footprint), -1});
                continue;
            }
            QStringList unusable;
            for (catalogue::CatalogueItem& item : catalogue::scanInputs({input}, &unusable))
            {
                candidates.push_back({item.path, item.info, nullptr, int(items.size())});
                items.push_back(std::move(item));
            }
            if (!unusable.isEmpty())
                args.refuse("InputFiles", input, "is neither a raster, a product, a folder holding one nor an index");
        }
        progress(10.0);

        std::vector<Candidate*> kept;
        for (Candidate& c : candidates)
            if (catalogue::satelliteMatches(c.info.satellite, satellites) && dates.contains(c.info.acquisition))
                kept.push_back(&c);

        if (extent)
        {
            std::vector<catalogue::CatalogueItem> pending;
            std::vector<Candidate*> owners;
            for (Candidate* c : kept)
                if (c->item >= 0)
                {
                    pending.push_back(items[c->item]);
                    owners.push_back(c);
                }
            std::vector<catalogue::IndexEntry> entries =
                catalogue::describeItems(pending, catalogue::FootprintOptions(),
                                         [this](int done, int total) { progress(10.0 + 85.0 * done / total); });
            for (size_t i = 0; i < entries.size(); ++i)
                owners[i]->footprint = std::move(entries[i].footprint);
        }

        QStringList matches;
        for (Candidate* c : kept)
            if (!extent || (c->footprint && c->footprint->Intersects(extent.get())))
                matches << c->path;
        progress(100.0);
        setResult(algokit::GenericOutputs()
                      .add("FilteredFiles", matches.join(QLatin1Char('|')))
                      .add("MatchCount", QString::number(matches.size()))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(FilterImg)
