// Typed, validated access to the arguments of a generic entry.
#include "generic_params.h"

#include <cpl_vsi.h>

#include <QDir>
#include <QFileInfo>
#include <cmath>
#include <limits>

namespace algokit
{

namespace
{

QString shown(const QVariant& value)
{
    if (value.type() == QVariant::Double || static_cast<QMetaType::Type>(value.type()) == QMetaType::Float)
        return QString::number(value.toDouble(), 'g', 12);
    return value.toString();
}

bool isVirtualPath(const QString& path)
{
    return path.startsWith(QLatin1String("/vsi"));
}

// Parses a number given as a number or as text; false when it is not one.
bool toDouble(const QVariant& value, double* out)
{
    bool ok = false;
    if (value.type() == QVariant::String)
    {
        const QString text = value.toString().trimmed();
        if (text.compare(QLatin1String("nan"), Qt::CaseInsensitive) == 0)
        {
            *out = std::numeric_limits<double>::quiet_NaN();
            return true;
        }
        *out = text.toDouble(&ok);
        return ok;
    }
    if (value.type() == QVariant::Bool)
    {
        *out = value.toBool() ? 1.0 : 0.0;
        return true;
    }
    *out = value.toDouble(&ok);
    return ok;
}

} // namespace

bool pathExists(const QString& path, bool wantFolder, bool wantFile)
{
    if (path.isEmpty())
        return false;
    if (isVirtualPath(path))
    {
        VSIStatBufL stat;
        if (VSIStatExL(path.toUtf8().constData(), &stat, VSI_STAT_EXISTS_FLAG | VSI_STAT_NATURE_FLAG) != 0)
            return false;
        if (wantFolder)
            return VSI_ISDIR(stat.st_mode);
        if (wantFile)
            return !VSI_ISDIR(stat.st_mode);
        return true;
    }
    const QFileInfo info(path);
    if (!info.exists())
        return false;
    if (wantFolder)
        return info.isDir();
    if (wantFile)
        return info.isFile();
    return true;
}

// --- GenericParams ---------------------------------------------------------------------------

GenericParams::GenericParams(const GenericAlgoRecord& record, QString algoName)
    : m_record(record), m_algoName(std::move(algoName))
{
}

bool GenericParams::has(const QString& key) const
{
    return m_record.args.contains(key);
}

QVariant GenericParams::raw(const QString& key) const
{
    return m_record.args.value(key);
}

void GenericParams::refuse(const QString& key, const QString& value, const QString& rule) const
{
    throw AlgoError(QStringLiteral("%1: the parameter %2 (%3) %4!").arg(m_algoName, key, value, rule));
}

// --- NumberParam -------------------------------------------------------------------------------

template <typename T>
NumberParam<T>::NumberParam(const GenericParams& owner, QString key) : m_owner(owner), m_key(std::move(key))
{
    const QVariant raw = owner.raw(m_key);
    if (!raw.isValid() || (raw.type() == QVariant::String && raw.toString().trimmed().isEmpty()))
        return;
    m_text = shown(raw);
    m_given = true;
    double number = 0.0;
    if (!toDouble(raw, &number))
        refuse(QStringLiteral("is not a number"));
    if constexpr (std::is_integral<T>::value)
    {
        if (!std::isfinite(number) || number != std::floor(number))
            refuse(QStringLiteral("is not a whole number"));
        if (number < double(std::numeric_limits<T>::min()) || number > double(std::numeric_limits<T>::max()))
            refuse(QStringLiteral("is out of range"));
    }
    m_value = static_cast<T>(number);
    m_set = true;
}

template <typename T> void NumberParam<T>::refuse(const QString& rule) const
{
    m_owner.refuse(m_key, m_given ? m_text : QString::number(m_value), rule);
}

template <typename T> NumberParam<T>& NumberParam<T>::orDefault(T value)
{
    if (!m_set)
    {
        m_value = value;
        m_set = true;
    }
    return *this;
}

template <typename T> T NumberParam<T>::value() const
{
    if (!m_set)
        m_owner.refuse(m_key, QString(), QStringLiteral("is missing"));
    return m_value;
}

template <typename T> NumberParam<T>& NumberParam<T>::atLeast(T low)
{
    if (!(value() >= low))
        refuse(QStringLiteral("must be at least %1").arg(low));
    return *this;
}

template <typename T> NumberParam<T>& NumberParam<T>::above(T low)
{
    if (!(value() > low))
        refuse(QStringLiteral("must be greater than %1").arg(low));
    return *this;
}

template <typename T> NumberParam<T>& NumberParam<T>::atMost(T high)
{
    if (!(value() <= high))
        refuse(QStringLiteral("must be at most %1").arg(high));
    return *this;
}

template <typename T> NumberParam<T>& NumberParam<T>::below(T high)
{
    if (!(value() < high))
        refuse(QStringLiteral("must be less than %1").arg(high));
    return *this;
}

template <typename T> NumberParam<T>& NumberParam<T>::range(T low, T high)
{
    if (!(value() >= low && value() <= high))
        refuse(QStringLiteral("must be between %1 and %2").arg(low).arg(high));
    return *this;
}

template <typename T> NumberParam<T>& NumberParam<T>::odd()
{
    const double v = double(value());
    if (std::fmod(std::fabs(v), 2.0) != 1.0)
        refuse(QStringLiteral("must be odd"));
    return *this;
}

template <typename T> NumberParam<T>& NumberParam<T>::oneOf(std::initializer_list<T> allowed)
{
    QStringList names;
    for (T item : allowed)
    {
        if (item == value())
            return *this;
        names << QString::number(item);
    }
    refuse(QStringLiteral("must be one of %1").arg(names.join(QStringLiteral(", "))));
}

template class NumberParam<int>;
template class NumberParam<double>;

// --- TextParam ---------------------------------------------------------------------------------

TextParam::TextParam(const GenericParams& owner, QString key) : m_owner(owner), m_key(std::move(key))
{
    const QVariant raw = owner.raw(m_key);
    if (raw.isValid())
        m_value = shown(raw);
}

void TextParam::refuse(const QString& rule) const
{
    m_owner.refuse(m_key, m_value, rule);
}

TextParam& TextParam::orDefault(const QString& value)
{
    if (isEmpty())
        m_value = value;
    return *this;
}

TextParam& TextParam::required()
{
    if (isEmpty())
        refuse(QStringLiteral("is empty"));
    return *this;
}

TextParam& TextParam::oneOf(const QStringList& words)
{
    const QString wanted = m_value.trimmed();
    for (int i = 0; i < words.size(); ++i)
        if (words[i].compare(wanted, Qt::CaseInsensitive) == 0)
        {
            m_index = i;
            m_value = words[i];
            return *this;
        }
    refuse(QStringLiteral("must be one of %1").arg(words.join(QStringLiteral(", "))));
}

TextParam& TextParam::existingFile()
{
    required();
    if (!pathExists(m_value, false, true))
        refuse(QStringLiteral("is not an existing file"));
    return *this;
}

TextParam& TextParam::existingFolder()
{
    required();
    if (!pathExists(m_value, true, false))
        refuse(QStringLiteral("is not an existing folder"));
    return *this;
}

TextParam& TextParam::existingPath()
{
    required();
    if (!pathExists(m_value))
        refuse(QStringLiteral("does not exist"));
    return *this;
}

TextParam& TextParam::writableOutput()
{
    required();
    if (isVirtualPath(m_value))
        return *this;
    const QFileInfo info(m_value);
    if (info.isDir())
        refuse(QStringLiteral("is a folder, not a file"));
    if (!QDir().mkpath(info.absolutePath()))
        refuse(QStringLiteral("is in a folder that cannot be created"));
    return *this;
}

QStringList TextParam::list(QChar separator) const
{
    QStringList items;
    for (const QString& item : m_value.split(separator))
        if (!item.trimmed().isEmpty())
            items << item.trimmed();
    return items;
}

std::vector<int> TextParam::intList(QChar separator) const
{
    std::vector<int> values;
    for (const QString& item : list(separator))
    {
        bool ok = false;
        const int value = item.toInt(&ok);
        if (!ok)
            refuse(QStringLiteral("holds %1, which is not a whole number").arg(item));
        values.push_back(value);
    }
    return values;
}

std::vector<double> TextParam::doubleList(QChar separator) const
{
    std::vector<double> values;
    for (const QString& item : list(separator))
    {
        bool ok = false;
        const double value = item.toDouble(&ok);
        if (!ok)
            refuse(QStringLiteral("holds %1, which is not a number").arg(item));
        values.push_back(value);
    }
    return values;
}

DatasetPtr TextParam::openRaster(bool update) const
{
    if (isEmpty())
        refuse(QStringLiteral("is empty"));
    DatasetPtr dataset;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    try
    {
        dataset = algokit::openRaster(m_value, update);
    }
    catch (const AlgoError& error)
    {
        CPLPopErrorHandler();
        if (!error.message().startsWith(QLatin1String("Cannot open raster")))
            throw; // too large for the size caps: that message says more
        if (!pathExists(m_value))
            refuse(QStringLiteral("does not exist"));
        refuse(QStringLiteral("cannot be opened as a raster"));
    }
    CPLPopErrorHandler();
    if (dataset->GetRasterCount() < 1)
        refuse(QStringLiteral("has no raster band"));
    return dataset;
}

// --- GenericOutputs ----------------------------------------------------------------------------

GenericOutputs& GenericOutputs::add(const QString& key, const QString& value)
{
    m_result.outputKeys << key;
    m_result.outputValues << value;
    return *this;
}

} // namespace algokit
