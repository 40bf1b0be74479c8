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

// Bit-depth conversion ("UtilityBitDepthTrans"): a linear stretch of [inputMin, inputMax] onto [minLimit, maxLimit].
struct stBitDepthTransInfo
{
    QString inputFile;
    QString outputFile;
    double minLimit = 0.0;    // the caller's first limit: the output value of inputMin
    double maxLimit = 0.0;    // the caller's second limit: the output value of inputMax
    int option = 0;           // output pixel type as a GDALDataType code (1 Byte ... 7 Float64); other values Byte
    QString algoName;
    double inputMin = 0.0;    // smallest band minimum of the input
    double inputMax = 0.0;    // largest band maximum of the input
    QString format;
};

// Resampling ("ImageResample").
struct stResampleInfo
{
    QString inputFile;
    QString outputFile;
    int resampleMethod = 0;   // 0 nearest, 1 bilinear, 2 cubic, 3 average, 4 cubic spline, 5 lanczos, 6 mode
    std::vector<int> bands;   // 1-based
    int reserved1 = 0;
    QString format;
    int reserved2 = 0;
    QString algoName;
    int width = 0;
    int height = 0;
    int option = 0;           // stored as given
};

// Pyramid building ("ImagePyramidBuildAlgo", unnamed algorithm).
struct stPyramidBuildInfo
{
    QStringList files;
};

// No-data value ("ImagePyramidBuildAlgo", algorithm "ImageSetInvalidValueAlgo").
struct stSetInvalidValueInfo
{
    QStringList files;
    unsigned char flag = 0;
    double reserved = -1.0;
    double noDataValue = 0.0;
};

// Projection definition ("ProjectTransAlgo", unnamed algorithm).
struct stProjectDefInfo
{
    QString inputFile;
    QString projection;       // any text GDAL reads as a reference system (EPSG:n, WKT, PROJ)
    QString reserved;
    int fileType = 0;         // 0 raster, 1 vector (".shp")
};

// Projection transformation ("ProjectTransAlgo", unnamed algorithm). The model's parameters transform
// coordinates of modelSource into modelTarget: per axis a translation (metres) and a rotation (arc-seconds).
struct stProjectTransInfo
{
    int mode = 1;
    QString inputFile;
    int resampleMethod = 0;   // 0 nearest, 1 bilinear, 2 cubic, 3 average, 4 cubic spline, 5 lanczos, 6 mode
    QString sourceSrs;        // WKT of the input
    QString targetSrs;        // as the caller gave it
    QString outputFile;
    QString format;
    QString modelName;
    QString modelSource;
    QString modelTarget;
    double xShift = 0.0, xRotation = 0.0;
    double yShift = 0.0, yRotation = 0.0;
    double zShift = 0.0, zRotation = 0.0;
    QString algoName;
};

// Mask application ("MaskApplication"): pixels where the mask is 0 become `option`, also the output's no-data.
struct stMaskApplicationInfo
{
    QString inputFile;
    QString maskFile;
    QString outputFile;
    QString format;
    QString algoName;
    long long reserved = 0;
    int option = 0;
};

// Mask creation ("MaskCreation"): 1 inside the attribute file's features, 0 outside; flag 1 inverts.
struct stMaskCreationInfo
{
    QString inputFile;
    QString outputFile;
    QString attributeFile;
    QString format;
    int reserved1 = 0;
    unsigned char flag = 0;
    int reserved2 = 0;
    QString algoName;
};

#pragma GCC visibility pop
