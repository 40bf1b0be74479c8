/* AlgoFactory entries: radar data import. Included by AlgoFactory.h. */
#pragma once

/* Import one GF-3 strip-mode SLC product. */
ALGO_API bool ExcuteAlgo_GF3_Strip_SLCDataImport(const char* metaXmlFile, const char* polarization, const char* prefixType, const char* customName, const char* outputLocation, const char* outputOption, AlgoResult* result);
/* Import all GF-3 strip-mode products of a folder. */
ALGO_API bool ExcuteAlgo_Batch_GF3_Strip_DataImport(const char* inputDir, const char* productLevel, const char* imagingMode, const char* polarization, const char* namingRule, const char* outputDir, const char* outputFormat, AlgoResult* result);
/* Import a Sentinel-1 TOPS SLC product. */
ALGO_API bool ExcuteAlgo_S1_TOPS_SLCDataImport(const char* inputFile, const char* outputDir, const char* swath, const char* polarization, AlgoResult* result);
/* Import an ALOS PALSAR-1 SLC product. */
ALGO_API bool ExcuteAlgo_PALSAR1_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result);
/* Import an ALOS PALSAR-2 SLC product. */
ALGO_API bool ExcuteAlgo_PALSAR2_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result);
/* Import a COSMO-SkyMed SLC product. */
ALGO_API bool ExcuteAlgo_InSAR_CSK_SLCImport(const char* h5File, const char* outputFile, AlgoResult* result);
/* Import a TerraSAR-X/TanDEM-X SLC product. */
ALGO_API bool ExcuteAlgo_InSAR_TSX_SLCImport(const char* xmlFile, const char* outputFile, AlgoResult* result);
