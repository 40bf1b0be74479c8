// Plug-in "ModifyMetaData": sets one element (a "/"-separated path) of a product metadata XML to a value, creating
// it when absent, and refreshes the elements the raster gives.
#include "metadata_document.h"
#include "plugin_base.h"
#include "raster_inputs.h"

#include <QFile>
#include <QFileInfo>

namespace
{

class ModifyMetaData : public algokit::PluginBase
{
public:
    ModifyMetaData() : PluginBase(QStringLiteral("ModifyMetaData")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString rasterPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr raster = datautil::openRasterItem(args, QStringLiteral("InputFile"), rasterPath);
        const QString xmlPath = args.text(QStringLiteral("InputXmlFile")).required();
        QFile file(xmlPath);
        if (!QFileInfo(xmlPath).isFile() || !file.open(QIODevice::ReadOnly))
            args.refuse(QStringLiteral("InputXmlFile"), xmlPath, QStringLiteral("is not a readable file"));
        QDomDocument document;
        QString error;
        int line = 0;
        if (file.size() > (qint64(64) << 20) || !document.setContent(&file, &error, &line))
            args.refuse(QStringLiteral("InputXmlFile"), xmlPath,
                        QStringLiteral("is not well-formed XML (line %1: %2)").arg(line).arg(error));
        file.close();

        const QString pathText = args.text(QStringLiteral("OtherKey")).required();
        const QStringList path = pathText.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        if (path.isEmpty())
            args.refuse(QStringLiteral("OtherKey"), pathText, QStringLiteral("names no element"));
        for (const QString& part : path)
            if (!datautil::isElementName(part))
                args.refuse(QStringLiteral("OtherKey"), pathText,
                            QStringLiteral("holds %1, which cannot be an element name").arg(part));
        if (path.size() == 1 && path[0] == document.documentElement().tagName())
            args.refuse(QStringLiteral("OtherKey"), pathText, QStringLiteral("names the root element"));
        const QString value = args.text(QStringLiteral("OtherValue")).value();

        // Raster-derived elements first, so that an element set inside them is not refreshed away.
        QDomElement root = document.documentElement();
        QDomElement fresh = datautil::imageInfoElement(document, raster.get(), rasterPath,
                                                       [this](double percent) { progress(0.95 * percent); });
        const QDomElement old = root.firstChildElement(QLatin1String(datautil::kImageInfo));
        if (old.isNull())
            root.appendChild(fresh);
        else
            root.replaceChild(fresh, old);
        QDomElement modified = root.firstChildElement(QStringLiteral("ModificationTime"));
        if (modified.isNull())
            modified = datautil::appendText(document, root, QStringLiteral("ModificationTime"), QString());
        while (modified.hasChildNodes())
            modified.removeChild(modified.firstChild());
        modified.appendChild(document.createTextNode(datautil::utcNow()));

        QDomElement target = datautil::elementAt(document, path);
        while (target.hasChildNodes())
            target.removeChild(target.firstChild());
        target.appendChild(document.createTextNode(value));

        // Written in place through a temporary file: a failure leaves the original as it was.
        datautil::saveDocument(document, xmlPath);
        setResult(algokit::GenericOutputs().add(QStringLiteral("OutputXmlFile"), xmlPath).result());
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ModifyMetaData)
