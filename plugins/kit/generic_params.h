// Typed, validated access to the arguments of a generic entry: each plug-in states the rule of a
// parameter in one line, and a refusal is one message naming the algorithm, the key and the value.
#pragma once

#include "raster_io.h"
#include "records/generic_record.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <initializer_list>
#include <vector>

namespace algokit
{

class GenericParams;

// One numeric argument. Rules run in the order they are written and throw AlgoError at the first one
// broken, e.g. `int w = args.integer("WindowSize").orDefault(5).atLeast(3).odd();`.
template <typename T> class NumberParam
{
public:
    NumberParam(const GenericParams& owner, QString key);

    // The value used when the key is absent or its text is empty.
    NumberParam& orDefault(T value);
    NumberParam& atLeast(T low);
    NumberParam& above(T low);
    NumberParam& atMost(T high);
    NumberParam& below(T high);
    NumberParam& range(T low, T high); // both ends included
    NumberParam& odd();
    NumberParam& oneOf(std::initializer_list<T> allowed);

    T value() const;
    operator T() const { return value(); }
    // True when the key was given (a default does not count).
    bool given() const { return m_given; }

private:
    [[noreturn]] void refuse(const QString& rule) const;
    const GenericParams& m_owner;
    QString m_key;
    QString m_text; // as given, for messages
    T m_value{};
    bool m_given = false;
    bool m_set = false;
};

// One text argument (paths, words, lists).
class TextParam
{
public:
    TextParam(const GenericParams& owner, QString key);

    TextParam& orDefault(const QString& value);
    // Refuses an absent or empty text.
    TextParam& required();
    // The text must be one of the words (compared without case); index() gives its position.
    TextParam& oneOf(const QStringList& words);
    // The path must name an existing file (or folder, for existingPath); GDAL virtual paths (/vsi...)
    // are asked of GDAL.
    TextParam& existingFile();
    TextParam& existingFolder();
    TextParam& existingPath();
    // The folder that will hold this output path must exist or be creatable.
    TextParam& writableOutput();

    QString value() const { return m_value; }
    operator QString() const { return m_value; }
    bool isEmpty() const { return m_value.trimmed().isEmpty(); }
    // Position of the value in the oneOf() word list.
    int index() const { return m_index; }
    // The text split at '|' (or `separator`), blank items dropped.
    QStringList list(QChar separator = QLatin1Char('|')) const;
    // The items as integers or doubles; refuses an item that is not one.
    std::vector<int> intList(QChar separator = QLatin1Char('|')) const;
    std::vector<double> doubleList(QChar separator = QLatin1Char('|')) const;
    // Opens the path as a raster (after the rules above); refuses with the key and path when GDAL cannot.
    DatasetPtr openRaster(bool update = false) const;

private:
    [[noreturn]] void refuse(const QString& rule) const;
    const GenericParams& m_owner;
    QString m_key;
    QString m_value;
    int m_index = -1;
};

class GenericParams
{
public:
    // algoName: the name that starts every message (the plug-in's name).
    GenericParams(const GenericAlgoRecord& record, QString algoName);

    NumberParam<int> integer(const QString& key) const { return NumberParam<int>(*this, key); }
    NumberParam<double> real(const QString& key) const { return NumberParam<double>(*this, key); }
    TextParam text(const QString& key) const { return TextParam(*this, key); }

    bool has(const QString& key) const;
    QVariant raw(const QString& key) const;
    const QString& algoName() const { return m_algoName; }
    const GenericAlgoRecord& record() const { return m_record; }

    // "<algo>: the parameter <key> (<value>) <rule>!"
    [[noreturn]] void refuse(const QString& key, const QString& value, const QString& rule) const;

private:
    const GenericAlgoRecord& m_record;
    QString m_algoName;
};

// Whether a path names something that exists, asking GDAL for its virtual file systems.
bool pathExists(const QString& path, bool wantFolder = false, bool wantFile = false);

// Builds the result record that makes the entry print one [OUTPUT] line per pair, in order.
class GenericOutputs
{
public:
    GenericOutputs& add(const QString& key, const QString& value);
    const GenericAlgoResult& result() const { return m_result; }

private:
    GenericAlgoResult m_result;
};

extern template class NumberParam<int>;
extern template class NumberParam<double>;

} // namespace algokit
