/* AlgoFactory entries: hyperspectral analysis. Included by AlgoFactory.h. */
#pragma once

/* Hyperspectral preprocessing to ENVI. */
ALGO_API bool ExcuteAlgo_HyspecPrePro(const char* inputFile, const char* outputFile, const char* formatFile, AlgoResult* result);
/* Merge GF-5 AHSI VNIR and SWIR images and drop bad bands. */
ALGO_API bool ExcuteAlgo_GF5PreProcessing(const char* inputFile, int dropOverlap, int dropAbsorption, const char* outputDir, const char* outputSuffix, AlgoResult* result);
/* Radiometric calibration of GF-5 AHSI data. */
ALGO_API bool ExcuteAlgo_HypGF5RadiometricCalibrate(const char* inputFile, const char* calibrationFile, const char* spectralResponseFile, const char* metaFile, int calibrationType, int scaleFlag, int unitFlag, const char* outputFile, AlgoResult* result);
/* Orthorectification of a hyperspectral image. */
ALGO_API bool ExcuteAlgo_HysOrthorectification(const char* inputFile, const char* demFile, const char* rpcFile, const char* gcpFile, const char* outputFile, const char* resampleMethod, int outputType, double resolution, double defaultHeight, int blockSize, AlgoResult* result);
/* Savitzky-Golay filtering of spectra. */
ALGO_API bool ExcuteAlgo_SavitzkyGolayFiltering(const char* inputFile, const char* outputFile, const char* bands, const char* region, int windowSize, int polyOrder, int derivative, AlgoResult* result);
/* Estimate the noise of each band of a hyperspectral image. */
ALGO_API bool ExcuteAlgo_NoiseEstimation(const char* inputFile, const char* outputDir, double ratio, AlgoResult* result);
/* Sharpness measures of each band of a hyperspectral image. */
ALGO_API bool ExcuteAlgo_HysSharpness(const char* inputFile, const char* region, const char* bands, const char* outputDir, int chartType, AlgoResult* result);
/* Information entropy of each band. */
ALGO_API bool ExcuteAlgo_InformationEntropy(const char* inputFile, const char* region, const char* bands, const char* outputDir, AlgoResult* result);
/* Per-band statistics, covariance and correlation. */
ALGO_API bool ExcuteAlgo_StatisticalAnalysis(const char* inputFile, const char* region, const char* bands, AlgoResult* result);
/* Split an image into two classes at a threshold. */
ALGO_API bool ExcuteAlgo_ThresholdSplit(const char* inputFile, int band, double threshold, const char* outputFile, AlgoResult* result);
/* Continuum removal of spectra. */
ALGO_API bool ExcuteAlgo_ContinuumRemoval(const char* inputFile, const char* outputFile, AlgoResult* result);
/* Spectral derivative. */
ALGO_API bool ExcuteAlgo_HysSpectralDifferential(const char* inputFile, const char* outputFile, int order, int interval, double scale, AlgoResult* result);
/* Vertex component analysis (endmember extraction). */
ALGO_API bool ExcuteAlgo_VertexComponentAnalysis(const char* inputFile, const char* outputFile, int endmemberCount, AlgoResult* result);
/* RX anomaly detection. */
ALGO_API bool ExcuteAlgo_RXAnomalyDetection(const char* inputFile, const char* outputFile, int method, int windowSize, AlgoResult* result);
