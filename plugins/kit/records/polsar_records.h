// Parameter records of the polarimetric plug-ins (H/A/Alpha decomposition and classification),
// fields in the order the entries fill them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <QStringList>

#pragma GCC visibility push(default)

// H/A/Alpha classification ("PolSAR_HAAlphaClassification").
struct stHAAlphaClassInfo
{
    QString reserved;        // left empty by the entry
    QString alphaFile;
    QString anisotropyFile;
    QString entropyFile;
    QString lambdaFile;
    QString outputFile;      // <outputDir>/HAAlphaClass/<alpha base name>_HAAClass.img
    QString outputFormat;    // "ENVI"
    QString resultImages;    // filled by the plug-in with the classified image's path
    int method = 0;          // 0 H/alpha zones, 1 zones split by anisotropy, 2 zones split by lambda
};

// H/A/Alpha/Lambda decomposition ("PolSAR_Decomposition"). The input is either four complex
// channel images (HH, HV, VH, VV) or a T3 coherency-matrix folder of raw Float32 grids.
struct stPolSARDecompositionInfo
{
    QStringList channelFiles; // HH, HV, VH, VV; empty for a T3 folder
    QString t3Dir;            // the T3 folder; empty for channel images
    int t3Rows = 0;           // Nrow of the folder's config.txt
    int t3Cols = 0;           // Ncol of the folder's config.txt
    int windowSize = 3;       // odd boxcar size
    QString outputDir;        // created by the plug-in when missing
    QStringList outputFiles;  // entropy, anisotropy, alpha (degrees), lambda
    QString outputFormat;     // "ENVI"
    QString resultImages;     // filled by the plug-in: the four outputs joined by "|"
};

#pragma GCC visibility pop
