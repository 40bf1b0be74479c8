// Parameter records of the raster utility plug-ins (format, bit depth, resampling, pyramids,
// no-data, projection, masks), fields in the order the entries fill them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <QStringList>
#include <vector>

#pragma GCC visibility push(default)

// Format conversion ("UtilityFormTran").
struct stFormatTransInfo
{
    QStringList inputFiles;   // left empty by the entry
    QString workDir;          // left empty by the entry
    QStringList bandNames;    // left empty by the entry
    QStringList outputFiles;  // left empty by the entry
    QString inputFile;
    QString outputFile;
    std::vector<int> bands;   // empty: all bands
    int option = 0;           // stored as given; not interpreted by the conversion
    int noDataFlag = -1;
    QString format;           // GDAL driver name from the output suffix
};

#pragma GCC visibility pop
