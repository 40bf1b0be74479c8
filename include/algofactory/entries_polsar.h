/* AlgoFactory entries: polarimetric and radar analysis. Included by AlgoFactory.h. */
#pragma once

/* Crop a SAR image with its parameter file. */
ALGO_API bool ExcuteAlgo_InSAR_SingleImageCrop(const char* inputFile, const char* outputFile, const char* region, AlgoResult* result);
/* Slant-range to ground-range conversion. */
ALGO_API bool ExcuteAlgo_InSAR_Slant2Ground(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result);
/* Adaptive speckle filtering of SAR images. */
ALGO_API bool ExcuteAlgo_Batch_AdaptiveFilter(const char* inputFiles, const char* outputDir, const char* filterType, int windowSize, AlgoResult* result);
/* Convert complex SAR data to amplitude, intensity or phase. */
ALGO_API bool ExcuteAlgo_Batch_ComplexDataConvert(const char* inputFiles, const char* outputDir, const char* conversion, AlgoResult* result);
/* Multilook SAR images. */
ALGO_API bool ExcuteAlgo_Batch_MultiLook(const char* inputFiles, const char* outputDir, int azimuthLooks, int rangeLooks, AlgoResult* result);
/* Fast orthorectification of Sentinel-1 GRD images. */
ALGO_API bool ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result);
/* Geocode SAR images. */
ALGO_API bool ExcuteAlgo_Batch_SARGeocode(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result);
/* Convert SAR intensity images to decibels. */
ALGO_API bool ExcuteAlgo_Batch_TransformToDb(const char* inputFiles, const char* outputDir, AlgoResult* result);
/* Write the footprint of a GF-3 product as a shapefile. */
ALGO_API bool ExcuteAlgo_GF3_ContourShp(const char* metaXmlFile, const char* outputFile, AlgoResult* result);
/* Stack SAR images into one. */
ALGO_API bool ExcuteAlgo_LayerStack(const char* inputFiles, const char* outputFile, AlgoResult* result);
/* Generate an RPC model from the range-Doppler model. */
ALGO_API bool ExcuteAlgo_RD_GenerateRPC(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result);
/* Extract water from a SAR image. */
ALGO_API bool ExcuteAlgo_SAR_WaterExtraction(const char* inputFile, const char* outputFile, double threshold, AlgoResult* result);
/* Terrain radiometric correction of a SAR image. */
ALGO_API bool ExcuteAlgo_TerrainRadiometricCorrection(const char* inputFile, const char* demFile, const char* outputFile, AlgoResult* result);
/* Wishart supervised classification. */
ALGO_API bool ExcuteAlgo_WishartSupervisedClassification(const char* inputDir, const char* roiFile, const char* outputDir, AlgoResult* result);
/* Change the polarisation basis. */
ALGO_API bool ExcuteAlgo_PolSAR_BasisChange(const char* inputDir, const char* outputDir, const char* basis, AlgoResult* result);
/* Merge classes of a polarimetric classification. */
ALGO_API bool ExcuteAlgo_PolSAR_ClassMerge(const char* inputFile, const char* outputFile, const char* mergePairs, AlgoResult* result);
/* H/A/Alpha decomposition of a quad-pol scene. input: a T3 coherency-matrix folder (config.txt, T11.bin, ...) or the
   four single-band complex channel images "HH|HV|VH|VV"; method: "HAAlpha"; windowSize: odd boxcar size, at most
   the image's smaller side. Writes <base>_entropy.img, _anisotropy.img, _alpha.img (degrees) and _lambda.img
   (Float32 ENVI) into outputDir; <base> is the T3 folder's name or the HH image's name without its last suffix. */
ALGO_API bool ExcuteAlgo_PolSAR_Decomposition(const char* input, const char* outputDir, const char* method, int windowSize, AlgoResult* result);
/* Polarimetric speckle filter. */
ALGO_API bool ExcuteAlgo_PolSAR_Filter(const char* inputDir, const char* outputDir, const char* filterType, int windowSize, AlgoResult* result);
/* H/A/Alpha classification of single-band Float32 entropy, anisotropy, alpha (degrees) and lambda images of one size.
   method: "HAlpha" (the 8 feasible zones of the entropy/alpha plane), "HAAlpha" (each zone split at anisotropy 0.5)
   or "HAlphaLambda" (each zone split at the scene's median lambda). Writes outputDir/HAAlphaClass/<alpha base
   name>_HAAClass.img, a Byte ENVI classification image; class 0 marks pixels with a non-finite input. */
ALGO_API bool ExcuteAlgo_PolSAR_HAAlphaClassification(const char* entropyFile, const char* anisotropyFile, const char* alphaFile, const char* lambdaFile, const char* method, const char* outputDir, AlgoResult* result);
/* Convert between polarimetric matrices. */
ALGO_API bool ExcuteAlgo_PolSAR_MatrixConvert(const char* inputDir, const char* outputDir, const char* targetMatrix, AlgoResult* result);
/* Polarimetric signatures. */
ALGO_API bool ExcuteAlgo_PolSAR_PolSignatures(const char* inputDir, const char* outputDir, const char* region, AlgoResult* result);
/* Polarimetric filter. */
ALGO_API bool ExcuteAlgo_PolSAR_STANFilter(const char* inputDir, const char* outputDir, int windowSize, AlgoResult* result);
/* SVM classification of polarimetric data. */
ALGO_API bool ExcuteAlgo_PolSAR_SVMClassification(const char* inputDir, const char* roiFile, const char* outputDir, AlgoResult* result);
/* Wishart unsupervised classification. */
ALGO_API bool ExcuteAlgo_PolSAR_WishartUnsupervisedClassification(const char* inputDir, const char* outputDir, int classCount, int iterations, AlgoResult* result);
