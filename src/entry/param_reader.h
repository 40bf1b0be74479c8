// Reads an algorithm's parameters out of the JSON object by index and converts them by kind.
#pragma once

#include "AlgoFactory.h"
#include "run_log.h"

#include <QJsonObject>
#include <QString>
#include <deque>
#include <functional>

namespace Plugin
{
class Metadata;
}

namespace algofactory
{

// Extra lines some rows write while their parameters are read.
enum class RowTrace
{
    None,
    BandCompute,         // one log line per parameter
    MetaData,            // "Inputfile path in Algofactory: " ... printed
    MetaDataPaInv        // the same with "InputFilePath:" for the first two
};

template <typename T> struct ArgKind;
template <> struct ArgKind<const char*> { static constexpr const char* name = "text"; };
template <> struct ArgKind<int> { static constexpr const char* name = "int"; };
template <> struct ArgKind<long> { static constexpr const char* name = "long"; };
template <> struct ArgKind<float> { static constexpr const char* name = "float"; };
template <> struct ArgKind<double> { static constexpr const char* name = "double"; };

class ParamReader
{
public:
    // Reads parameter i of algoName from the JSON object under the key the descriptions give it.
    ParamReader(const QJsonObject& object, const Plugin::Metadata* metadata, const QString& algoName, RunLog* log,
                RowTrace trace);
    // Reads parameter i from a list of texts (the host's command line).
    explicit ParamReader(const QStringList& values);

    // The parameter's text: empty when the key or the value is missing.
    QString value(int index) const { return m_source(index); }

    // Text arguments stay alive as long as the reader.
    template <typename T> T get(int index);

private:
    void trace(int index, const QString& shown);

    std::function<QString(int)> m_source;
    RunLog* m_log = nullptr;
    RowTrace m_trace = RowTrace::None;
    std::deque<QByteArray> m_texts;
};

} // namespace algofactory
