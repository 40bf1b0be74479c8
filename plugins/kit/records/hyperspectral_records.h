// Parameter records of the hyperspectral plug-ins (statistics, quality measures, GF-5 preprocessing),
// fields in the order the entries fill them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <vector>

#pragma GCC visibility push(default)

// Pixel rectangle of the hyperspectral entries.
struct HysPixelRect
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Band list as the entries hand it over: `base` tells how to read the numbers. The default list
// (every band) is 0..N-1 and zero-based; an explicit list is one-based where the entry added one to it
// (statistics) and zero-based where it is stored as given (the quality measures).
struct HysBandList
{
    std::vector<int> bands;
    int base = 0;
};

// "StatisticalAnalysis": per-band statistics, covariance and correlation images, text report.
struct StatisticalAnalysisParam
{
    QString inputFile;
    QString covImageFile;
    QString corCoeFile;
    QString pictureFile;
    QString textFile;
    QString reserved;                        // left empty
    QString basicStatistical = "BasicStatistical";
    QString covariance = "Covariance";
    QString covarianceImage = "CovarianceImage";
    QString option1;                         // left at its default
    QString option2;                         // left at its default
    QString option3;                         // left at its default
    QString covFormat = "ENVI";
    QString corFormat = "ENVI";
    HysPixelRect rect;
    HysBandList bandList;
    // Filled by the plug-in, one value per selected band in band-list order.
    std::vector<double> minimum;
    std::vector<double> maximum;
    std::vector<double> mean;
    std::vector<double> stdDev;
};

// "InformationEntropy": Shannon entropy (bits) of each selected band.
struct InformationEntropyParam
{
    QString inputFile;
    QString textFile;
    QString reserved;                        // left empty
    std::vector<double> entropy;             // filled by the plug-in
    HysPixelRect rect;
    HysBandList bandList;
    std::vector<QString> extra;              // left empty
};

// "HysSharpness": sharpness measures of each selected band; the plug-in writes the text file.
struct HysSharpnessParam
{
    QString inputFile;
    QString textFile;
    QString status = "OK";
    HysPixelRect rect;
    HysBandList bandList;
    // Filled by the plug-in, one value per selected band.
    std::vector<double> averageGradient;     // mean of sqrt((dx^2 + dy^2) / 2), forward differences
    std::vector<double> brennerGradient;     // mean of (f(x+2, y) - f(x, y))^2
    std::vector<double> energyGradient;      // mean of dx^2 + dy^2, forward differences
    std::vector<double> variance;            // population variance of the band
    std::vector<double> mean;                // band mean
    std::vector<double> tenengrad;           // mean squared Sobel gradient magnitude (interior pixels)
    std::vector<double> laplacianEnergy;     // mean squared 4-neighbour Laplacian (interior pixels)
};

// "NoiseEstimation": per-band noise standard deviation, written as "band value" lines.
struct NoiseEstimationParam
{
    QString inputFile;
    QString textFile;
    double ratio = 0.0;                      // fraction of the most homogeneous blocks used
};

// "GF5PreProcessing": merge VNIR and SWIR, calibrate to radiance, drop bands (1-based numbers).
struct stGF5AhsiPreProcessingInfo
{
    QString vnirFile;
    QString swirFile;
    QString vnirCalibrationFile;
    QString swirCalibrationFile;
    std::vector<int> vnirDropBands;
    std::vector<int> swirDropBands;
    QString outputFile;
};

// "HypGF5RadiometricCalibrate": radiance or top-of-atmosphere reflectance.
struct stGF5AhsiRadiometricCalibrateInfo
{
    QString inputFile;
    QString calibrationFile;       // "gain,offset" per band; empty when the input is already radiance
    QString spectralResponseFile;  // "centre nm,FWHM nm" per band; empty: band metadata "wavelength"
    QString metaFile;              // product XML with the solar geometry and the acquisition date
    int calibrationType = 0;       // 0 radiance, otherwise top-of-atmosphere reflectance
    QString esunFile;              // solar irradiance table of the AHSI bands
    int scaleFlag = 0;             // > 1: output values multiplied by this factor
    int unitFlag = 0;              // radiance unit: 0 W/(m2 sr um), otherwise uW/(cm2 sr nm)
    QString outputFile;
};

// "HyspecPrePro": conversion of a hyperspectral image into ENVI with its wavelengths.
struct stHyspecPreProInfo
{
    QString inputFile;
    QString outputFile;
    QString format = "ENVI";
    QString referenceFile;         // ENVI image whose band wavelengths are used when the input has none
};

#pragma GCC visibility pop
