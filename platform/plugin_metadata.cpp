// Plugin::Metadata: loads the algorithm descriptions and answers key-by-index questions.
#include "plugin_metadata.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <map>
#include <memory>
#include <mutex>

namespace Plugin
{

Metadata* Metadata::Instance(const QString& metadataPath)
{
    static std::mutex lock;
    static std::map<QString, std::unique_ptr<Metadata>> instances;
    const QString key = QDir::cleanPath(metadataPath);
    std::lock_guard<std::mutex> guard(lock);
    std::unique_ptr<Metadata>& slot = instances[key];
    if (!slot)
        slot.reset(new Metadata(key));
    return slot.get();
}

Metadata::Metadata(const QString& metadataPath) : m_path(metadataPath)
{
    const QDir dir(metadataPath);
    for (const QString& fileName : dir.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name))
    {
        QFile file(dir.filePath(fileName));
        if (!file.open(QIODevice::ReadOnly))
        {
            m_problems << fileName + ": cannot be read";
            continue;
        }
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
        AlgoDescription description;
        QString problem;
        if (error.error != QJsonParseError::NoError)
            problem = error.errorString();
        else if (!ParseAlgoDescription(document.object(), &description, &problem))
            ;
        if (!problem.isEmpty())
            m_problems << fileName + ": " + problem;
        else
            m_algorithms.push_back(description);
    }
}

bool ParseAlgoDescription(const QJsonObject& object, AlgoDescription* description, QString* problem)
{
    description->name = object.value("algorithm").toString();
    description->entry = object.value("entry").toString();
    description->route = object.value("route").toString();
    description->plugin = object.value("plugin").toString();
    description->summary = object.value("summary").toString();
    description->notes = object.value("notes").toString();
    if (description->name.isEmpty() || description->entry.isEmpty())
    {
        *problem = QStringLiteral("\"algorithm\" and \"entry\" are required");
        return false;
    }
    for (const QJsonValue& value : object.value("params").toArray())
    {
        const QJsonObject param = value.toObject();
        ParamDescription p;
        p.key = param.value("key").toString();
        p.kind = param.value("kind").toString();
        p.meaning = param.value("meaning").toString();
        p.example = param.value("example").toVariant().toString();
        p.required = param.value("required").toBool();
        static const QStringList kinds = {"text", "int", "long", "float", "double"};
        if (!kinds.contains(p.kind))
        {
            *problem = QStringLiteral("parameter %1 has unknown kind \"%2\"").arg(description->params.size()).arg(p.kind);
            return false;
        }
        description->params.push_back(p);
    }
    for (const QJsonValue& value : object.value("outputs").toArray())
        description->outputs << value.toString();
    return true;
}

QString Metadata::GetParamNameFromIndex(const QString& algoName, int index) const
{
    const AlgoDescription* description = Find(algoName);
    if (!description || index < 0 || index >= description->params.size())
        return QString();
    return description->params[index].key;
}

const AlgoDescription* Metadata::Find(const QString& algoName) const
{
    for (const AlgoDescription& description : m_algorithms)
        if (description.name == algoName)
            return &description;
    return nullptr;
}

const AlgoDescription* Metadata::FindByEntry(const QString& entryName) const
{
    for (const AlgoDescription& description : m_algorithms)
        if (description.entry == entryName && description.route != "json-text")
            return &description;
    return nullptr;
}

QStringList Metadata::AlgorithmNames() const
{
    QStringList names;
    for (const AlgoDescription& description : m_algorithms)
        names << description.name;
    return names;
}

QString GetParamValue(const QJsonObject& object, const QStringList& keyPath)
{
    QJsonValue value(object);
    for (const QString& key : keyPath)
    {
        if (!value.isObject())
            return QString();
        value = value.toObject().value(key);
    }
    switch (value.type())
    {
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Double:
        return QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Array:
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    case QJsonValue::Object:
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    default:
        return QString();
    }
}

} // namespace Plugin
