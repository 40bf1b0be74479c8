// Parameter records of the filter plug-ins (custom kernel, differential sharpening, frequency, homomorphic and
// the four spatial filters), fields in the order the entries fill them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <cstdint>
#include <vector>

#pragma GCC visibility push(default)

// Mode of every filter record: how pixels beyond the image edge are obtained (the frequency filters pad with
// the same rule). The entries pass it unchanged; the plug-ins refuse values outside 0-6.
enum FilterEdgeMode
{
    kEdgeReplicate = 0,   // nearest edge pixel: aaa|abcd|ddd
    kEdgeReflect = 1,     // mirror about the edge pixel: cb|abcd|cb
    kEdgeSymmetric = 2,   // mirror including the edge pixel: ba|abcd|dc
    kEdgeWrap = 3,        // periodic: cd|abcd|ab
    kEdgeZero = 4,        // zeros outside the image
    kEdgeKeepBorder = 5,  // as replicate, then pixels closer to the edge than the kernel radius keep their input value
    kEdgeZeroBorder = 6   // as replicate, then pixels closer to the edge than the kernel radius are set to 0
};

struct ImgProFiltFrequencyParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;           // left empty
    std::vector<int> bands;     // zero-based, ascending, unique
    int filterKind = 0;         // 0 ideal, 1 Butterworth (order 2), 2 Gaussian, 3 trapezoid
    int passFlag = 0;           // 0 low-pass, 1 high-pass
    int cutOff = 0;             // radius in spectrum samples from the zero frequency
    int segmentPoint = 0;       // trapezoid only: the other end of the linear ramp
    QString format;             // output driver, from the input suffix
    int64_t reserved64 = 0;     // left at its default
    QString reservedText;       // left at its default
    int mode = 0;
};

struct ImgProFiltCustomParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    std::vector<float> kernel;  // n x n, row by row
    int kernelSize = 0;         // n
    QString format;
    int mode = 0;
};

struct ImgProFiltDiffSharpParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    int sharpType = 0;          // see the plug-in: 0-4
    QString format;
    int mode = 0;
};

struct ImgProFiltHomoParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    float gammaHigh = 0.f;      // gain of high frequencies
    float gammaLow = 0.f;       // gain of low frequencies
    float cutOff = 0.f;         // radius in spectrum samples
    float sharpness = 0.f;      // steepness c of the Gaussian emphasis curve
    int order = 0;              // 0 Gaussian emphasis curve, k > 0 Butterworth of order k
    QString format;
    int mode = 0;
};

struct ImgProFiltSpaComParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    int filterType = 0;         // 0-22, the table of the plug-in
    QString format;
    int mode = 0;
};

struct ImgProFiltSpaDirectParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    int directionType = 0;      // 0-7: compass direction N, NE, E, SE, S, SW, W, NW
    QString format;
    int mode = 0;
};

struct ImgProFiltSpaMeanParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    int kernelWidth = 0;
    int kernelHeight = 0;
    QString format;
    int mode = 0;
};

struct ImgProFiltSpaMidParam
{
    QString inputFile;
    QString outputFile;
    QString reserved;
    std::vector<int> bands;
    int kernelWidth = 0;
    int kernelHeight = 0;
    int shape = 0;              // 0 square window, 1 cross (the centre row and column of the window)
    QString format;
    int mode = 0;
};

#pragma GCC visibility pop
