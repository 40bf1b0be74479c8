// The T3 coherency-matrix folder: config.txt (Nrow, Ncol, ...) and nine raw little-endian Float32 grids.
#pragma once

#include <QString>
#include <QStringList>

namespace algofactory::polsar
{

// The nine element files of a T3 folder, in the order the decomposition plug-in reads them.
QStringList t3ElementFiles();

struct T3Folder
{
    int rows = 0;
    int cols = 0;
};

// Reads Nrow and Ncol from dir/config.txt; false when the file is missing or either is not a positive number.
bool readT3Config(const QString& dir, T3Folder& folder);

// The first element file missing from dir or shorter than rows x cols Float32 values; empty when all are there.
QString missingT3Element(const QString& dir, const T3Folder& folder);

} // namespace algofactory::polsar
