/* AlgoFactory entries: classification. Included by AlgoFactory.h. */
#pragma once

/* Vegetation change detection between two dates. */
ALGO_API bool ExcuteAlgo_ChangeDetectVegetation(const char* beforeFile, const char* afterFile, const char* outputFile, float threshold, AlgoResult* result);
/* Confusion matrix and accuracy of a classification. */
ALGO_API bool ExcuteAlgo_ImgClassPostPA(const char* classFile, const char* referenceFile, const char* referenceVector, const char* classField, const char* classPairs, const char* reportFile, AlgoResult* result);
/* Multi-scale segmentation. */
ALGO_API bool ExcuteAlgo_MSS_Segment(const char* inputFile, const char* outputFile, int scale, float shapeWeight, int minSize, float compactWeight, float spectralWeight, float bandWeights, float threshold, int iterations, AlgoResult* result);
/* Export a segmentation to vector. */
ALGO_API bool ExcuteAlgo_MSS_Export(const char* inputFile, const char* outputFile, float scale, double threshold, const char* fields, AlgoResult* result);
/* Collect training samples from segments. */
ALGO_API bool ExcuteAlgo_MSS_Sample(const char* inputFile, const char* segmentFile, const char* sampleFile, const char* outputFile, const char* classField, const char* features, double minArea, double maxArea, int sampleCount, AlgoResult* result);
/* Object-based classification. */
ALGO_API bool ExcuteAlgo_MSS_Classify(const char* inputFile, const char* segmentFile, const char* sampleFile, const char* outputFile, const char* classField, const char* features, const char* classifier, const char* modelFile, const char* options, AlgoResult* result);
/* Train an object-based classification model. */
ALGO_API bool ExcuteAlgo_MSS_Classify_TrainModel(const char* inputFile, const char* segmentFile, const char* sampleFile, const char* modelFile, const char* classField, const char* features, const char* classifier, const char* options, const char* extra, AlgoResult* result);
/* Classify segments with a trained model. */
ALGO_API bool ExcuteAlgo_MSS_ClassifyByModel(const char* inputFile, const char* segmentFile, const char* modelFile, const char* outputFile, const char* classField, const char* features, const char* classifier, const char* options, const char* extra, AlgoResult* result);
/* Raster change detection between two dates. */
ALGO_API bool ExcuteAlgo_ChangeDetectionRaster(const char* beforeFile, const char* afterFile, const char* outputFile, double threshold, int method, int minSize, const char* bands, const char* maskFile, AlgoResult* result);
/* Create a classification project. */
ALGO_API bool ExcuteAlgo_CreateClassifyProject(const char* inputFile, const char* projectFile, const char* projectName, const char* classNames, double minX, double minY, double maxX, double maxY, AlgoResult* result);
/* Merge categories of a classification. */
ALGO_API bool ExcuteAlgo_CategoryUnion(const char* inputFile, const char* outputFile, const char* classField, const char* unionRule, AlgoResult* result);
/* ISODATA unsupervised classification. */
ALGO_API bool ExcuteAlgo_ISODataClassification(const char* inputFile, const char* outputFile, const char* bands, int expectedClasses, int initialClasses, int minClassSize, double maxStdDev, double minDistance, int maxMergePairs, int maxIterations, AlgoResult* result);
/* K-means unsupervised classification. */
ALGO_API bool ExcuteAlgo_KmeansClassification(const char* inputFile, const char* outputFile, const char* bands, int expectedClasses, int option, double threshold, AlgoResult* result);
/* Neural-network clustering. */
ALGO_API bool ExcuteAlgo_NeuralNetworkCluster(const char* inputFile, const char* outputFile, const char* bands, int option, int classCount, float value1, float value2, int value3, AlgoResult* result);
/* Minimum-distance supervised classification. */
ALGO_API bool ExcuteAlgo_DistanceClassification(const char* inputFile, const char* outputFile, const char* roiFile, const char* bands, int option, AlgoResult* result);
/* Maximum-likelihood supervised classification. */
ALGO_API bool ExcuteAlgo_MLClassification(const char* inputFile, const char* outputFile, const char* roiFile, const char* bands, AlgoResult* result);
/* Clump classes of a classification. */
ALGO_API bool ExcuteAlgo_ImgClassPostClump(const char* inputFile, const char* outputFile, int kernelSize, AlgoResult* result);
/* Combine classes of a classification. */
ALGO_API bool ExcuteAlgo_ImgClassPostComb(const char* inputFile, const char* outputFile, const char* recoding, AlgoResult* result);
/* Majority/minority analysis. */
ALGO_API bool ExcuteAlgo_ImgClassPostMMA(const char* inputFile, const char* outputFile, int kernelSize, int centreWeight, int method, AlgoResult* result);
/* Sieve small regions of a classification. */
ALGO_API bool ExcuteAlgo_ImgClassPostSieve(const char* inputFile, const char* outputFile, int firstValue, int secondValue, AlgoResult* result);
/* Class statistics report of a classification. */
ALGO_API bool ExcuteAlgo_ImgClassPostSta(const char* inputFile, const char* reportFile, AlgoResult* result);
