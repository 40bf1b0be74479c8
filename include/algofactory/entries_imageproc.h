/* AlgoFactory entries: image processing: filters, clipping, mosaicking, transforms, fusion, correction. Included by AlgoFactory.h. */
#pragma once

/* Orthorectification of an optical image with its RPC model and a DEM. */
ALGO_API bool ExcuteAlgo_VYROrtho(const char* inputFile, const char* demFile, const char* rpcFile, const char* gcpFile, const char* outputFile, float resolution, const char* resampleMethod, long blockSize, float defaultHeight, float heightOffset, AlgoResult* result);
/* Clip a raster by a range text or a shapefile feature (older form). */
ALGO_API bool ExcuteAlgo_ImageClip(const char* inputFile, long x0, long x1, long y0, long y1, const char* clipRange, const char* fieldName, const char* fieldValue, const char* shpFile, const char* outputFile, AlgoResult* result);
/* Clip a raster by rectangle, shapefile, feature, GeoJSON or WKT. */
ALGO_API bool ExcuteAlgo_ImageClip_Enhance(const char* inputFile, const char* clipRange, const char* shpFile, const char* fieldName, const char* fieldValue, int bufferPixels, int clipType, const char* outputFile, int enabled, AlgoResult* result);
/* Clip a raster once per feature of a shapefile. */
ALGO_API bool ExcuteAlgo_ImageClip2(const char* inputFile, const char* shpFile, const char* fieldName, int bufferPixels, const char* outputDir, AlgoResult* result);
/* Radiometric calibration of an optical image. */
ALGO_API bool ExcuteAlgo_VYRCalibration(const char* inputFile, const char* outputFile, int calibrationType, const char* calibrationFile, AlgoResult* result);
/* Atmospheric correction of an optical image. */
ALGO_API bool ExcuteAlgo_AtmosphericCorrection(int sensorType, const char* inputFile, const char* outputFile, int atmosphereModel, int aerosolModel, float visibility, int month, const char* metaFile, AlgoResult* result);
/* Image-to-image matching and registration. */
ALGO_API bool ExcuteAlgo_VYRMatch(const char* referenceFile, const char* inputFile, const char* outputFile, const char* matchMethod, const char* demFile, const char* gcpFile, double searchRadius, double threshold, int pointCount, AlgoResult* result);
/* Pan-sharpening fusion. */
ALGO_API bool ExcuteAlgo_PansharpFuseAlg(const char* panFile, const char* multiFile, const char* outputFile, int method, AlgoResult* result);
/* Pan-sharpening by principal components. */
ALGO_API bool ExcuteAlgo_PansharpFuseAlgPCA(const char* panFile, const char* multiFile, const char* outputFile, int resampleMethod, const char* bands, AlgoResult* result);
/* Colour-normalised spectral sharpening fusion. */
ALGO_API bool ExcuteAlgo_Fusionalgo(const char* panFile, const char* multiFile, const char* outputFile, int resampleMethod, const char* bands, AlgoResult* result);
/* Smoothing-filter-based intensity modulation fusion. */
ALGO_API bool ExcuteAlgo_FusionalgoSFIM(const char* panFile, const char* multiFile, const char* outputFile, int resampleMethod, const char* bands, AlgoResult* result);
/* Forward wavelet transform. */
ALGO_API bool ExcuteAlgo_WaveletTransform(const char* inputFile, const char* outputFile, AlgoResult* result);
/* Inverse wavelet transform. */
ALGO_API bool ExcuteAlgo_WaveletInverseTransform(const char* inputFile, const char* outputFile, AlgoResult* result);
/* Decorrelation stretch. */
ALGO_API bool ExcuteAlgo_DeRelationStretch(const char* inputFile, const char* outputFile, AlgoResult* result);
/* Atmospheric correction (FLAASH-like model). */
ALGO_API bool ExcuteAlgo_VYRAtmCorr(const char* inputFile, const char* metaFile, const char* outputFile, int sensorType, int atmosphereModel, int aerosolModel, int month, int day, AlgoResult* result);
/* Forward minimum noise fraction transform. */
ALGO_API bool ExcuteAlgo_MNFTransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType, AlgoResult* result);
/* Quick mosaic of compatible georeferenced rasters. */
ALGO_API bool ExcuteAlgo_ImageMosaicFast(const char* inputFiles, const char* outputFile, AlgoResult* result);
/* Forward principal components transform. */
ALGO_API bool ExcuteAlgo_PCATransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType, AlgoResult* result);
/* Inverse principal components transform. */
ALGO_API bool ExcuteAlgo_InvPCATransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType, AlgoResult* result);
/* Inverse minimum noise fraction transform. */
ALGO_API bool ExcuteAlgo_InvMNTransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType, AlgoResult* result);
/* Build a geometric lookup table. */
ALGO_API bool ExcuteAlgo_BuildGLT(const char* inputFile, const char* latFile, const char* lonFile, const char* outputFile, AlgoResult* result);
/* Georeference an image with a geometric lookup table. */
ALGO_API bool ExcuteAlgo_UsingGlt(const char* inputFile, const char* gltFile, const char* outputFile, const char* bands, int resampleMethod, AlgoResult* result);
/* Forward Fourier transform. */
ALGO_API bool ExcuteAlgo_FFTransformFunc(const char* inputFile, const char* outputFile, AlgoResult* result);
/* Inverse Fourier transform. */
ALGO_API bool ExcuteAlgo_InvFFTransformFunc(const char* inputFile, const char* outputFile, int dataType, AlgoResult* result);
/* Kauth-Thomas (tasselled cap) transform. */
ALGO_API bool ExcuteAlgo_KTTransformFunc(const char* inputFile, const char* outputFile, int sensorType, AlgoResult* result);
/* RGB to IHS colour transform. */
ALGO_API bool ExcuteAlgo_RGB2IHSTransformFunc(const char* inputFile, const char* outputFile, int bandOrder, AlgoResult* result);
/* IHS to RGB colour transform. */
ALGO_API bool ExcuteAlgo_IHS2RGBTransformFunc(const char* inputFile, const char* outputFile, int bandOrder, AlgoResult* result);
/* Spatial convolution filter from the table of named kernels. */
ALGO_API bool ExcuteAlgo_ImgProFiltSpaCom(const char* inputFile, const char* outputFile, int filterType, const char* bands, int mode, AlgoResult* result);
/* Mean filter. */
ALGO_API bool ExcuteAlgo_ImgProFiltSpaMean(const char* inputFile, const char* outputFile, int kernelSize, const char* bands, int mode, AlgoResult* result);
/* Median filter. */
ALGO_API bool ExcuteAlgo_ImgProFiltSpaMid(const char* inputFile, const char* outputFile, int kernelSize, const char* bands, int mode, int shape, AlgoResult* result);
/* Directional filter. */
ALGO_API bool ExcuteAlgo_ImgProFiltSpaDirect(const char* inputFile, const char* outputFile, const char* bands, int mode, int directionType, AlgoResult* result);
/* Frequency-domain filter. */
ALGO_API bool ExcuteAlgo_ImgProFiltFrequency(const char* inputFile, const char* outputFile, const char* bands, int mode, int filterKind, int passFlag, long cutOff, long segmentPoint, AlgoResult* result);
/* Homomorphic filter. */
ALGO_API bool ExcuteAlgo_ImgProFiltHomo(const char* inputFile, const char* outputFile, const char* bands, int mode, float gammaHigh, float gammaLow, float cutOff, float sharpness, int order, AlgoResult* result);
/* Custom convolution kernel. */
ALGO_API bool ExcuteAlgo_ImgProFiltCustom(const char* inputFile, const char* outputFile, const char* bands, int mode, long kernelSize, const char* kernel, AlgoResult* result);
/* Differential sharpening. */
ALGO_API bool ExcuteAlgo_ImgProFiltDiffSharp(const char* inputFile, const char* outputFile, const char* bands, int mode, int sharpType, AlgoResult* result);
/* Mosaic with mosaic faces and mask filtering. */
ALGO_API bool ExcuteAlgo_ImageMosaic(const char* inputFiles, const char* outputFile, const char* maskFile, AlgoResult* result);
