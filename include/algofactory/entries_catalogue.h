/* AlgoFactory entries: image catalogue and data management. Included by AlgoFactory.h. */
#pragma once

/* Download ordered data over HTTP. */
ALGO_API bool ExcuteAlgo_VYROrthoDowndoad(const char* url, const char* outputDir, AlgoResult* result);
/* Unpack a delivered archive. */
ALGO_API bool ExcuteAlgo_Decompress(const char* jsonText);
/* Quick-look thumbnails as PNG and JPEG. */
ALGO_API bool ExcuteAlgo_CreateThumb(const char* jsonText);
/* Envelope of an image. */
ALGO_API bool ExcuteAlgo_GetImgEnv(const char* jsonText);
/* Footprint index of images. */
ALGO_API bool ExcuteAlgo_CreateImgIndex(const char* jsonText);
/* Filter images by extent and satellite. */
ALGO_API bool ExcuteAlgo_FilterImg(const char* jsonText);
/* Information of an image index. */
ALGO_API bool ExcuteAlgo_GetIndexInfo(const char* jsonText);
/* Upload a product. */
ALGO_API bool ExcuteAlgo_UploadAlgo(const char* jsonText);
/* Total quality-inspection report. */
ALGO_API bool ExcuteAlgo_ExporttoTaIReport(const char* jsonText);
