// Parameter records of the radar import plug-ins (GF-3 strip SLC, batch GF-3, COSMO-SkyMed SLC), fields in the
// order the entries fill them, and the result the GF-3 plug-ins hand back.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <QStringList>

#pragma GCC visibility push(default)

// One GF-3 product chosen by its meta.xml ("GF3_Strip_SLCDataImport").
struct Gf3ImportParams
{
    QString metaXmlFile;
    QString hhImage;        // empty for a channel the product does not carry
    QString hvImage;
    QString vhImage;
    QString vvImage;
    bool importHH = false;  // the channels the caller selected
    bool importHV = false;
    bool importVH = false;
    bool importVV = false;
    int namingRule = 0;     // 0 date and time, 1 date, 2 name of the input image, 3 custom name
    QString nameStem;       // "YYYYMMDD_HHMMSS_", "YYYYMMDD_", empty, or the custom name
    QString outputLocation; // output folder; empty: the meta.xml's folder
    QString outputOption;   // output format "GTiff", "ENVI" or "HFA"; empty: "GTiff"
};

// All products of one mode and polarisation found in a folder ("Batch_GF3_Strip_DataImport"); the lists pair
// by index: channel image i, its meta.xml, the output image and its SAR parameter file.
struct BatchGf3ImportParams
{
    QStringList inputImages;
    QStringList metaXmlFiles;
    QStringList outputImages;
    QStringList outputParameterFiles;
    QString polarization;   // the channel of every input image
    QString format;         // "ENVI", "HFA" or "GTiff"
};

// What the GF-3 plug-ins hand back: the images written and their SAR parameter files, by index.
struct SarImportResult
{
    QStringList images;
    QStringList parameterFiles;
};

// One COSMO-SkyMed SLC product ("InSAR_CSK_SLCImport"); the plug-in hands the record back with the lists filled.
struct CskImportParams
{
    QString inputFile;
    QString outputFile;
    QString outputFormat;   // "ENVI" for suffix "img", "GTiff" for "tif"
    QStringList outputImages;
    QStringList outputParameterFiles;
};

#pragma GCC visibility pop
