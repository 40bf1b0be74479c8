/* AlgoFactory entries: data utilities and quality inspection. Included by AlgoFactory.h. */
#pragma once

/* Convert a raster to the format given by the output suffix. */
ALGO_API bool ExcuteAlgo_UtilityFormTran(const char* inputFile, const char* outputFile, long option, AlgoResult* result);
/* Convert a raster's bit depth by linear stretching. */
ALGO_API bool ExcuteAlgo_UtilityBitDepthTrans(const char* inputFile, const char* outputFile, int option, double minLimit, double maxLimit, AlgoResult* result);
/* Reproject a raster to a target reference system. */
ALGO_API bool ExcuteAlgo_ProjectTrans(const char* inputFile, const char* outputFile, const char* targetSRS, int resampleMethod, AlgoResult* result);
/* Define the reference system of a raster or vector file. */
ALGO_API bool ExcuteAlgo_ProjectDef(const char* inputFile, const char* projectionText, AlgoResult* result);
/* Create a mask raster from a vector file. */
ALGO_API bool ExcuteAlgo_MaskCreation(const char* inputFile, const char* outputFile, const char* attributeFile, const char* flag, AlgoResult* result);
/* Apply a mask raster to an image. */
ALGO_API bool ExcuteAlgo_MaskApplication(const char* inputFile, const char* maskFile, const char* outputFile, int maskValue, AlgoResult* result);
/* Resample a raster to a target width. */
ALGO_API bool ExcuteAlgo_ImageResample(const char* inputFile, const char* outputFile, long resampleMethod, int option, long width, AlgoResult* result);
/* Build overviews (pyramids) of a raster. */
ALGO_API bool ExcuteAlgo_ImagePyramidBuild(const char* inputFile, AlgoResult* result);
/* Set the no-data value of a raster. */
ALGO_API bool ExcuteAlgo_SetNodata(const char* inputFile, int noDataValue, AlgoResult* result);
/* Automatic data preparation of a delivery folder. */
ALGO_API bool ExcuteAlgo_DataAutoMagic(const char* inputDir, const char* outputDir, const char* options, AlgoResult* result);
/* Stack bands of several rasters into one. */
ALGO_API bool ExcuteAlgo_BandCombination(const char* inputFiles, const char* outputFile, const char* bands, int dataType, AlgoResult* result);
/* Create the metadata file of a product. */
ALGO_API bool ExcuteAlgo_CreateMetaData(const char* inputFile, const char* inputXmlFile, const char* otherKey, const char* otherValue, AlgoResult* result);
/* Modify the metadata file of a product. */
ALGO_API bool ExcuteAlgo_ModifyMetaData(const char* inputFile, const char* inputXmlFile, const char* otherKey, const char* otherValue, AlgoResult* result);
/* Create the metadata file of a synthesised product. */
ALGO_API bool ExcuteAlgo_CreateMetaDataSynthesis(const char* inputFile, const char* inputXmlFile, const char* outputXmlFile, const char* productType, const char* satellite, const char* sensor, const char* produceTime, const char* producer, const char* otherInfo, AlgoResult* result);
/* Stack the bands of a Landsat delivery into one raster. */
ALGO_API bool ExcuteAlgo_BandCombination_LandSat(const char* inputDir, const char* outputFile, AlgoResult* result);
/* Polygonise a classified raster into a shapefile beside it. */
ALGO_API bool ExcuteAlgo_RasterToVector(const char* inputFile, int band, AlgoResult* result);
/* Rasterise a vector layer. */
ALGO_API bool ExcuteAlgo_VectorToRaster(const char* inputFile, int width, int height, int burnValue, const char* outputFile, AlgoResult* result);
/* Detect clouds in an optical image. */
ALGO_API bool ExcuteAlgo_Clouddetect(const char* inputFile, AlgoResult* result);
/* Union of two vector layers. */
ALGO_API bool ExcuteAlgo_VectorUnion(const char* inputFile1, const char* inputFile2, const char* outputFile, const char* fields, AlgoResult* result);
/* Smooth the lines or polygons of a vector layer. */
ALGO_API bool ExcuteAlgo_VectorSmooth(const char* inputFile, double tolerance, double iterations, const char* outputFile, AlgoResult* result);
/* Inspect an image for bad lines. */
ALGO_API bool ExcuteAlgo_BadlineInspection(const char* inputFile, const char* reportFile, int threshold, AlgoResult* result);
/* Quality inspection of an atmospheric correction. */
ALGO_API bool ExcuteAlgo_QualityAtmosCorr(const char* inputFile, const char* referenceFile, const char* reportFile, int option, AlgoResult* result);
/* Quality inspection of a product. */
ALGO_API bool ExcuteAlgo_QualityInspection(const char* inputFile, const char* referenceFile, const char* reportFile, int option, AlgoResult* result);
/* Convert a Sentinel-2 product to a stacked raster. */
ALGO_API bool ExcuteAlgo_Sen2DataTransform2(const char* inputFile, const char* outputFile, const char* bands, int resolution, double scale, int option, AlgoResult* result);
/* Remove thin cloud from an optical image. */
ALGO_API bool ExcuteAlgo_ThinCloudRemove(const char* inputFile, const char* outputFile, int method, AlgoResult* result);
/* Band transform. */
ALGO_API bool ExcuteAlgo_BandTransform(const char* inputFile, const char* outputFile, AlgoResult* result);
/* Water-body change inspection between two images. */
ALGO_API bool ExcuteAlgo_swbhjc(const char* inputFile, const char* referenceFile, const char* outputFile, AlgoResult* result);
/* Stack chosen bands of several rasters. */
ALGO_API bool ExcuteAlgo_BandCombination2(const char* inputFiles, const char* outputFile, const char* bands, AlgoResult* result);
/* Buffer the features of a vector layer. */
ALGO_API bool ExcuteAlgo_BufferAnalyse(const char* inputFile, const char* outputFile, double distance, AlgoResult* result);
/* Render a raster to a picture. */
ALGO_API bool ExcuteAlgo_RenderRaster(const char* inputFile, const char* outputFile, const char* bands, AlgoResult* result);
