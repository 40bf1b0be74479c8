// Plug-in "CreateMetaDataSynthesis": metadata of a product made from several sources (a mosaic, a fusion): the
// raster's own elements, the given fields, and the lineage (each source's identity from its metadata XML).
#include "metadata_document.h"
#include "plugin_base.h"
#include "raster_inputs.h"

#include <QJsonDocument>

namespace
{

class CreateMetaDataSynthesis : public algokit::PluginBase
{
public:
    CreateMetaDataSynthesis() : PluginBase(QStringLiteral("CreateMetaDataSynthesis")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString rasterPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr raster = datautil::openRasterItem(args, QStringLiteral("InputFile"), rasterPath);
        const QStringList sourcePaths = args.text(QStringLiteral("InputXmlFile")).list();
        if (sourcePaths.isEmpty())
            args.refuse(QStringLiteral("InputXmlFile"), args.text(QStringLiteral("InputXmlFile")).value(),
                        QStringLiteral("names no file"));
        std::vector<datautil::SourceMetadata> sources;
        for (const QString& path : sourcePaths)
            sources.push_back(datautil::readSourceFile(args, QStringLiteral("InputXmlFile"), path));
        const QString output = args.text(QStringLiteral("OutputXmlFile")).writableOutput();
        datautil::refuseOverwritingInput(args, QStringLiteral("OutputXmlFile"), output,
                                         QStringList(sourcePaths) << rasterPath);
        const QString otherInfo = args.text(QStringLiteral("OtherInfo")).value().trimmed();
        const bool otherIsJson = otherInfo.startsWith(QLatin1Char('{'));
        const QJsonObject otherObject =
            otherIsJson ? datautil::jsonObjectArgument(args, QStringLiteral("OtherInfo")) : QJsonObject();

        QDomDocument document;
        document.appendChild(document.createProcessingInstruction(
            QStringLiteral("xml"), QStringLiteral("version=\"1.0\" encoding=\"UTF-8\"")));
        QDomElement root = document.createElement(QLatin1String(datautil::kMetadataRoot));
        document.appendChild(root);
        QDomElement product = document.createElement(QStringLiteral("ProductInfo"));
        datautil::appendText(document, product, QStringLiteral("ProductType"),
                             args.text(QStringLiteral("ProductType")).value());
        // Satellite and sensor default to those of the sources, each named once.
        for (const char* field : {"Satellite", "Sensor"})
        {
            QString given = args.text(QLatin1String(field)).value().trimmed();
            if (given.isEmpty())
            {
                QStringList seen;
                for (const auto& source : sources)
                    if (!source.value(QLatin1String(field)).isEmpty() &&
                        !seen.contains(source.value(QLatin1String(field))))
                        seen << source.value(QLatin1String(field));
                given = seen.join(QLatin1Char(','));
            }
            datautil::appendText(document, product, QLatin1String(field), given);
        }
        const QString produced = args.text(QStringLiteral("ProduceTime")).value().trimmed();
        datautil::appendText(document, product, QStringLiteral("ProduceTime"),
                             produced.isEmpty() ? datautil::utcNow() : produced);
        datautil::appendText(document, product, QStringLiteral("Producer"),
                             args.text(QStringLiteral("Producer")).value());
        root.appendChild(product);

        QDomElement lineage = document.createElement(QStringLiteral("Lineage"));
        lineage.setAttribute(QStringLiteral("count"), int(sources.size()));
        for (size_t i = 0; i < sources.size(); ++i)
        {
            QDomElement source =
                datautil::sourceElement(document, QStringLiteral("Source"), sources[i], sourcePaths[int(i)]);
            source.setAttribute(QStringLiteral("index"), int(i + 1));
            lineage.appendChild(source);
        }
        QDomElement other = document.createElement(QStringLiteral("OtherInfo"));
        if (otherIsJson)
        {
            const QString badKey = datautil::appendJson(document, other, otherObject);
            if (!badKey.isEmpty())
                args.refuse(QStringLiteral("OtherInfo"), otherInfo,
                            QStringLiteral("holds the key %1, which cannot be an element name").arg(badKey));
        }
        else if (!otherInfo.isEmpty())
            other.appendChild(document.createTextNode(otherInfo));

        root.appendChild(datautil::imageInfoElement(document, raster.get(), rasterPath,
                                                    [this](double percent) { progress(0.95 * percent); }));
        root.appendChild(lineage);
        if (other.hasChildNodes())
            root.appendChild(other);
        datautil::appendText(document, root, QStringLiteral("ProductionTime"), datautil::utcNow());

        claimOutput(output);
        datautil::saveDocument(document, output);
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(CreateMetaDataSynthesis)
