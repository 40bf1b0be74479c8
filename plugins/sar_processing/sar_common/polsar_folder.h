// Folders of polarimetric matrices: config.txt and one raw little-endian Float32 file per element (complex
// pairs for S2), with ENVI headers beside them; read and written in row blocks, pixel-interleaved.
#pragma once

#include "polsar_matrix.h"

#include <QString>
#include <QStringList>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace sar
{

struct FileCloser
{
    void operator()(std::FILE* file) const
    {
        if (file)
            std::fclose(file);
    }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

class PolFolderReader
{
public:
    // Throws AlgoError with inspectPolFolder's reason.
    explicit PolFolderReader(const QString& dir);
    PolMatrix kind() const { return m_kind; }
    const PolConfig& config() const { return m_config; }
    int width() const { return m_config.cols; }
    int height() const { return m_config.rows; }
    // Rows [row0, row0 + rows): floatsPerPixel(kind) floats per pixel, pixel after pixel.
    void readRows(int row0, int rows, std::vector<float>& pixels);

private:
    PolMatrix m_kind = PolMatrix::T3;
    PolConfig m_config;
    std::vector<FilePtr> m_files;
    std::vector<float> m_row;
};

class PolFolderWriter
{
public:
    // Creates the folder and the element files; claim(path) is told of every file made, so that a failed run
    // removes them.
    PolFolderWriter(const QString& dir, PolMatrix kind, const PolConfig& config,
                    const std::function<void(const QString&)>& claim);
    // Appends rows (pixel-interleaved floats of this kind).
    void writeRows(int rows, const std::vector<float>& pixels);
    // Closes the element files and writes the headers and config.txt.
    void finish();
    // The element files, in order.
    const QStringList& files() const { return m_paths; }

private:
    QString m_dir;
    PolMatrix m_kind;
    PolConfig m_config;
    std::function<void(const QString&)> m_claim;
    std::vector<FilePtr> m_files;
    QStringList m_paths;
    std::vector<float> m_row;
};

} // namespace sar
