// Parameter records of the transform plug-ins ("VYRTransformFunc", "TransformRGB2IHS", "TransformIHS2RGB",
// "DeRelationStretch"), fields in the order the entries fill them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <vector>

#pragma GCC visibility push(default)

// Output data type codes of the transforms (PCA, MNF, inverse FFT):
// 0 Float32, 1 Byte, 2 UInt16, 3 Int16, 4 UInt32, 5 Int32, 6 Float64. Integer outputs are rounded and clamped.
constexpr int kTransformDataTypeCount = 7;

// Forward and inverse PCA and MNF ("Forward PCA", "Inverse PCA", "Forward MNF", "Inverse MNF").
struct stPCATransformInfo
{
    QString inputFile;
    QString statisticsFile;     // written by the forward transforms, read by the inverse ones
    QString outputFile;
    QString format;             // output driver from the output suffix; empty: chosen by the plug-in
    int dataType = 0;           // output type code, see above
    // Parameters the JSON route reads beyond the exported signature (forward PCA: component count, then three
    // integers kept as given). A component count of 1..bands writes only the leading components.
    std::vector<int> tableExtras;
};

// "FFT": the spectrum of every band listed.
struct stFFTransformInfo
{
    QString inputFile;
    QString outputFile;
    QString format;
    std::vector<int> bands;     // zero-based, all bands of the input
};

// "InvFFT".
struct stInvFFTransformInfo
{
    QString inputFile;
    QString outputFile;
    QString format;
    int dataType = 0;           // output type code, see above
};

// "KT": tasselled-cap transform. Sensor 0 Landsat 4/5 TM (6 reflective bands 1-5, 7), 1 Landsat MSS (4 bands),
// 2 Landsat 7 ETM+ (6 reflective bands 1-5, 7).
struct stKTTransformInfo
{
    QString inputFile;
    QString outputFile;
    QString format;
    int sensorType = 0;
    int components = 4;         // components written (brightness, greenness, wetness or yellowness, fourth)
};

// "Wavelet" and "InvWavelet": one-level 2-D Haar transform in quadrant layout.
struct stWaveletTransformInfo
{
    QString inputFile;
    QString outputFile;
    QString format;
};

// "RGB2IHS" and "IHS2RGB". The band order is a three-digit code of 1-based input band numbers: R, G, B (or I, H, S)
// in that order, e.g. 123 or 321.
struct stColorTransformInfo
{
    QString inputFile;
    QString outputFile;
    QString format;
    int bandOrder = 123;
    std::vector<int> tableExtras; // integers the JSON route reads beyond the exported signature, kept as given
};

// Decorrelation stretch.
struct stDeRelationStretch
{
    QString inputFile;
    QString outputFile;
    QString format;
};

#pragma GCC visibility pop
