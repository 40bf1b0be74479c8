// The statistics file of the PCA and MNF transforms.
#include "statistics_file.h"

#include <QFile>
#include <QStringList>
#include <QTextStream>
#include <cmath>

namespace transform
{

namespace
{

const char* const kHeader = "AlgoFactory transform statistics 1";

void writeRow(QTextStream& out, const std::vector<double>& row)
{
    for (size_t i = 0; i < row.size(); ++i)
        out << (i ? " " : "") << QString::number(row[i], 'g', 17);
    out << "\n";
}

void writeMatrix(QTextStream& out, const char* name, const Matrix& matrix)
{
    out << name << "\n";
    for (const auto& row : matrix)
        writeRow(out, row);
}

class Reader
{
public:
    Reader(const QString& path, QStringList lines) : m_path(path), m_lines(std::move(lines)) {}

    QString line()
    {
        if (m_next >= m_lines.size())
            corrupt();
        return m_lines[m_next++].trimmed();
    }
    QString value(const char* key)
    {
        const QString text = line();
        if (!text.startsWith(QLatin1String(key) + QLatin1Char(' ')))
            corrupt();
        return text.mid(int(strlen(key)) + 1).trimmed();
    }
    std::vector<double> numbers(const QString& text, int count)
    {
        const QStringList items = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (items.size() != count)
            corrupt();
        std::vector<double> row;
        for (const QString& item : items)
        {
            bool ok = false;
            const double v = item.toDouble(&ok);
            if (!ok || !std::isfinite(v))
                corrupt();
            row.push_back(v);
        }
        return row;
    }
    Matrix matrix(const char* name, int n)
    {
        if (line() != QLatin1String(name))
            corrupt();
        Matrix m;
        for (int i = 0; i < n; ++i)
            m.push_back(numbers(line(), n));
        return m;
    }
    [[noreturn]] void corrupt() const
    {
        throw algokit::AlgoError(QStringLiteral("The statistics file %1 is corrupt").arg(m_path));
    }

private:
    QString m_path;
    QStringList m_lines;
    int m_next = 0;
};

} // namespace

void writeStatistics(const QString& path, const TransformStatistics& s)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        throw algokit::AlgoError(QStringLiteral("Cannot write the statistics file %1").arg(path));
    QTextStream out(&file);
    out << kHeader << "\n" << "kind " << s.kind << "\n" << "bands " << s.bands << "\n" << "sourcetype " << s.sourceType << "\n";
    out << "mean ";
    writeRow(out, s.mean);
    writeMatrix(out, "covariance", s.covariance);
    if (s.kind == QLatin1String("MNF"))
        writeMatrix(out, "noisecovariance", s.noiseCovariance);
    out << "eigenvalues ";
    writeRow(out, s.eigenvalues);
    writeMatrix(out, "forward", s.forward);
    writeMatrix(out, "inverse", s.inverse);
    out.flush();
    if (file.error() != QFileDevice::NoError)
        throw algokit::AlgoError(QStringLiteral("Cannot write the statistics file %1").arg(path));
}

TransformStatistics readStatistics(const QString& path, const QString& expectedKind)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        throw algokit::AlgoError(QStringLiteral("Cannot open the statistics file %1").arg(path));
    if (file.size() > (64 << 20))
        throw algokit::AlgoError(QStringLiteral("The statistics file %1 is corrupt").arg(path));
    Reader reader(path, QString::fromUtf8(file.readAll()).split(QLatin1Char('\n')));
    if (reader.line() != QLatin1String(kHeader))
        reader.corrupt();
    TransformStatistics s;
    s.kind = reader.value("kind");
    if (s.kind != expectedKind)
        throw algokit::AlgoError(QStringLiteral("The statistics file %1 belongs to a %2 transform, not %3")
                                     .arg(path, s.kind, expectedKind));
    bool ok = false;
    s.bands = reader.value("bands").toInt(&ok);
    if (!ok || s.bands < 1 || s.bands > 4096)
        reader.corrupt();
    s.sourceType = reader.value("sourcetype");
    s.mean = reader.numbers(reader.value("mean"), s.bands);
    s.covariance = reader.matrix("covariance", s.bands);
    if (s.kind == QLatin1String("MNF"))
        s.noiseCovariance = reader.matrix("noisecovariance", s.bands);
    s.eigenvalues = reader.numbers(reader.value("eigenvalues"), s.bands);
    s.forward = reader.matrix("forward", s.bands);
    s.inverse = reader.matrix("inverse", s.bands);
    return s;
}

} // namespace transform
