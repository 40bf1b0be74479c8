/* AlgoFactory entries: band math. Included by AlgoFactory.h. */
#pragma once

/* Evaluate a band-math formula over bands of one or more rasters. */
ALGO_API bool ExcuteAlgo_BandCompute(const char* calculationExp, const char* images, const char* bands, const char* outputFile, int dataType, AlgoResult* result);
