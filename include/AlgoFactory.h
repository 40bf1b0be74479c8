/* AlgoFactory: the exported C interface of the algorithm library. */
#ifndef ALGOFACTORY_H
#define ALGOFACTORY_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifdef __cplusplus
#define ALGO_EXTERN_C extern "C"
#else
#define ALGO_EXTERN_C
#endif

#if defined(_WIN32)
#define ALGO_API ALGO_EXTERN_C __declspec(dllexport)
#else
#define ALGO_API ALGO_EXTERN_C __attribute__((visibility("default")))
#endif

/* Called with progress (0-100), a message in the local 8-bit encoding and the record's user data.
   A negative return value asks the running algorithm to stop. */
typedef int (*AlgoProgressCallback)(double progress, const char* message, void* userData);

/* Room for the message, terminating NUL included; longer messages are cut at a character boundary. */
#define ALGO_RESULT_MESSAGE_SIZE 1024

/* Caller-owned progress and result record: callback at offset 0, user data at 8, code at 16,
   message at 20. Code 0 means success. */
typedef struct AlgoResult
{
    AlgoProgressCallback callback;
    void* userData;
    int32_t code;
    char message[ALGO_RESULT_MESSAGE_SIZE];
} AlgoResult;

#ifdef __cplusplus
static_assert(offsetof(AlgoResult, callback) == 0, "AlgoResult layout");
static_assert(offsetof(AlgoResult, userData) == 8, "AlgoResult layout");
static_assert(offsetof(AlgoResult, code) == 16, "AlgoResult layout");
static_assert(offsetof(AlgoResult, message) == 20, "AlgoResult layout");
#endif

/* The generic entry: runs algorithm algoName with its parameters given as a JSON object text. */
ALGO_API bool ExcuteAlgo(const char* algoName, const char* jsonText, AlgoResult* result);

/* The per-algorithm entries, one header per subsystem. */
#include "algofactory/entries_catalogue.h"
#include "algofactory/entries_bandmath.h"
#include "algofactory/entries_hyperspectral.h"
#include "algofactory/entries_imageproc.h"
#include "algofactory/entries_classification.h"
#include "algofactory/entries_utilities.h"
#include "algofactory/entries_sar.h"
#include "algofactory/entries_polsar.h"

#endif
