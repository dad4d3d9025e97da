/* The library for callers that know functions only: C, and languages that call C. */
#ifndef VOREL_PLAIN_PLAINC_H
#define VOREL_PLAIN_PLAINC_H

#ifdef __cplusplus
#include "render/OutputFormat.h"
typedef vorel::OutputFormat_t vorel_OutputFormat;
extern "C" {
#else
/** What a renderer prints: text for people, or one JSON document. */
typedef enum {
   outputFormatUnknown = 0,
   outputFormatText = 1,
   outputFormatJson = 2
} vorel_OutputFormat;
#endif

#pragma GCC visibility push(default)

/** outputFormatText for "text", outputFormatJson for "json", outputFormatUnknown for anything else
 * and for a null pointer. */
vorel_OutputFormat stringToOutputFormat(const char* name);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
