// Plug-in "CreateMetaData": a product metadata XML for a raster: what the raster says, what the source product's
// metadata XML says, and extra elements from a JSON object.
#include "metadata_document.h"
#include "plugin_base.h"
#include "raster_inputs.h"

#include <QFileInfo>

namespace
{

class CreateMetaData : public algokit::PluginBase
{
public:
    CreateMetaData() : PluginBase(QStringLiteral("CreateMetaData")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString rasterPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr raster = datautil::openRasterItem(args, QStringLiteral("InputFile"), rasterPath);
        const QString sourcePath = args.text(QStringLiteral("InputXmlFile")).required();
        const datautil::SourceMetadata source =
            datautil::readSourceFile(args, QStringLiteral("InputXmlFile"), sourcePath);
        // The third argument is the output path; empty: <raster name>_metadata.xml beside the raster.
        QString output = args.text(QStringLiteral("OtherKey")).value().trimmed();
        if (output.isEmpty())
        {
            const QFileInfo info(rasterPath);
            output = info.absolutePath() + QLatin1Char('/') + info.completeBaseName() + QStringLiteral("_metadata.xml");
        }
        else
            args.text(QStringLiteral("OtherKey")).writableOutput();
        datautil::refuseOverwritingInput(args, QStringLiteral("OtherKey"), output, {rasterPath, sourcePath});
        const QJsonObject extra = datautil::jsonObjectArgument(args, QStringLiteral("OtherValue"));

        QDomDocument document;
        document.appendChild(document.createProcessingInstruction(
            QStringLiteral("xml"), QStringLiteral("version=\"1.0\" encoding=\"UTF-8\"")));
        QDomElement root = document.createElement(QLatin1String(datautil::kMetadataRoot));
        document.appendChild(root);
        root.appendChild(datautil::sourceElement(document, QStringLiteral("ProductInfo"), source, sourcePath));
        const QString badKey = datautil::appendJson(document, root, extra);
        if (!badKey.isEmpty())
            args.refuse(QStringLiteral("OtherValue"), args.text(QStringLiteral("OtherValue")).value(),
                        QStringLiteral("holds the key %1, which cannot be an element name").arg(badKey));
        root.insertAfter(datautil::imageInfoElement(document, raster.get(), rasterPath,
                                                    [this](double percent) { progress(0.95 * percent); }),
                         root.firstChildElement(QStringLiteral("ProductInfo")));
        datautil::appendText(document, root, QStringLiteral("ProductionTime"), datautil::utcNow());

        claimOutput(output);
        datautil::saveDocument(document, output);
        setResult(algokit::GenericOutputs().add(QStringLiteral("OutputXmlFile"), output).result());
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(CreateMetaData)
