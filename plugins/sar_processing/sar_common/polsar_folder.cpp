// Reading and writing folders of polarimetric matrices.
#include "polsar_folder.h"

#include "plugin_base.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace sar
{

namespace
{

int floatsPerSample(PolMatrix kind)
{
    return kind == PolMatrix::S2 ? 2 : 1;
}

FilePtr openFile(const QString& path, const char* mode)
{
    return FilePtr(std::fopen(QFile::encodeName(path).constData(), mode));
}

} // namespace

PolFolderReader::PolFolderReader(const QString& dir)
{
    const std::string problem = inspectPolFolder(QFile::encodeName(dir).toStdString(), &m_kind, &m_config);
    if (!problem.empty())
        throw algokit::AlgoError(QStringLiteral("%1 %2").arg(dir, QString::fromStdString(problem)));
    for (const std::string& name : elementFiles(m_kind))
    {
        m_files.push_back(openFile(QDir(dir).filePath(QString::fromStdString(name)), "rb"));
        if (!m_files.back())
            throw algokit::AlgoError(QStringLiteral("Cannot open %1 in %2").arg(QString::fromStdString(name), dir));
    }
}

void PolFolderReader::readRows(int row0, int rows, std::vector<float>& pixels)
{
    const int perSample = floatsPerSample(m_kind), perPixel = floatsPerPixel(m_kind);
    const size_t count = size_t(rows) * m_config.cols * perSample;
    pixels.resize(size_t(rows) * m_config.cols * perPixel);
    m_row.resize(count);
    for (size_t f = 0; f < m_files.size(); ++f)
    {
        std::FILE* file = m_files[f].get();
        const long long offset = (long long)row0 * m_config.cols * perSample * 4;
        if (fseeko(file, off_t(offset), SEEK_SET) != 0 || std::fread(m_row.data(), 4, count, file) != count)
            throw algokit::AlgoError(QStringLiteral("Cannot read rows %1-%2 of %3").arg(row0).arg(row0 + rows - 1)
                                         .arg(QString::fromStdString(elementFiles(m_kind)[f])));
        for (size_t p = 0; p < size_t(rows) * m_config.cols; ++p)
            for (int s = 0; s < perSample; ++s)
                pixels[p * perPixel + f * perSample + s] = m_row[p * perSample + s];
    }
}

PolFolderWriter::PolFolderWriter(const QString& dir, PolMatrix kind, const PolConfig& config,
                                 const std::function<void(const QString&)>& claim)
    : m_dir(dir), m_kind(kind), m_config(config), m_claim(claim)
{
    if (!QDir().mkpath(dir))
        throw algokit::AlgoError(QStringLiteral("Cannot create the folder %1").arg(dir));
    for (const std::string& name : elementFiles(kind))
    {
        const QString path = QDir(dir).filePath(QString::fromStdString(name));
        m_claim(path);
        m_paths << path;
        m_files.push_back(openFile(path, "wb"));
        if (!m_files.back())
            throw algokit::AlgoError(QStringLiteral("Cannot create %1").arg(path));
    }
}

void PolFolderWriter::writeRows(int rows, const std::vector<float>& pixels)
{
    const int perSample = floatsPerSample(m_kind), perPixel = floatsPerPixel(m_kind);
    const size_t samples = size_t(rows) * m_config.cols;
    m_row.resize(samples * perSample);
    for (size_t f = 0; f < m_files.size(); ++f)
    {
        for (size_t p = 0; p < samples; ++p)
            for (int s = 0; s < perSample; ++s)
                m_row[p * perSample + s] = pixels[p * perPixel + f * perSample + s];
        if (std::fwrite(m_row.data(), 4, m_row.size(), m_files[f].get()) != m_row.size())
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(m_paths[int(f)]));
    }
}

void PolFolderWriter::finish()
{
    for (size_t f = 0; f < m_files.size(); ++f)
        if (std::fclose(m_files[f].release()) != 0)
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(m_paths[int(f)]));
    // ENVI headers, so that GIS tools open each element; data type 4 is Float32, 6 complex Float32.
    for (const QString& path : m_paths)
    {
        const QString header = path + ".hdr";
        m_claim(header);
        QFile file(header);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(header));
        QTextStream out(&file);
        out << "ENVI\ndescription = {\n" << QFileInfo(path).fileName() << "}\nsamples = " << m_config.cols
            << "\nlines   = " << m_config.rows << "\nbands   = 1\nheader offset = 0\nfile type = ENVI Standard\n"
            << "data type = " << (m_kind == PolMatrix::S2 ? 6 : 4) << "\ninterleave = bsq\nbyte order = 0\n"
            << "band names = {\n" << QFileInfo(path).fileName() << " }\n";
    }
    const QString configPath = QDir(m_dir).filePath("config.txt");
    m_claim(configPath);
    QFile config(configPath);
    if (!config.open(QIODevice::WriteOnly | QIODevice::Text) ||
        config.write(QByteArray::fromStdString(formatPolConfig(m_config))) < 0)
        throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(configPath));
}

} // namespace sar
