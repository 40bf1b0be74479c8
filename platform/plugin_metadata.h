// Plugin::Metadata: the algorithm descriptions under Model/abd, one JSON file per algorithm.
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

namespace Plugin
{

struct ParamDescription
{
    QString key;     // JSON key of the parameter
    QString kind;    // text, int, long, float or double
    QString meaning;
    QString example; // example value as text
    bool required = false;
};

struct AlgoDescription
{
    QString name;    // algorithm name as the host passes it
    QString entry;   // exported entry it leads to
    QString route;   // "json" (dispatch table), "json-text" (entry parses the JSON) or "direct"
    QString plugin;  // plug-in library name, if any
    QString summary;
    QVector<ParamDescription> params; // in index order
    QStringList outputs;              // [OUTPUT] keys the entry prints
    QString notes;
};

class Metadata
{
public:
    // The description set of one folder, loaded once and shared; thread-safe.
    static Metadata* Instance(const QString& metadataPath);

    // JSON key of parameter `index` of an algorithm; empty when unknown.
    QString GetParamNameFromIndex(const QString& algoName, int index) const;

    const AlgoDescription* Find(const QString& algoName) const;
    const AlgoDescription* FindByEntry(const QString& entryName) const;
    QStringList AlgorithmNames() const;
    const QString& Path() const { return m_path; }
    // Files that could not be read, with the reason; empty when all loaded.
    const QStringList& Problems() const { return m_problems; }

private:
    explicit Metadata(const QString& metadataPath);
    QString m_path;
    QVector<AlgoDescription> m_algorithms;
    QStringList m_problems;
};

// Value under a key path as text: strings as they are, numbers in shortest round-trip form,
// booleans as "true"/"false", arrays and objects as compact JSON; empty when absent.
QString GetParamValue(const QJsonObject& object, const QStringList& keyPath);

// Parses one description file's JSON; false with a reason when malformed.
bool ParseAlgoDescription(const QJsonObject& object, AlgoDescription* description, QString* problem);

} // namespace Plugin
