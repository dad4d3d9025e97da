/* The library for callers that know functions only: C, and languages that call C.
 *
 * A handle is a renderer, used by one thread at a time and never null (but for deinitPrinter). Once
 * the thread is interrupted, by vorel_setInterrupted or by a write that failed, a handle of
 * initPrinter writes nothing more: every call returns at once, and the rest of the document is
 * missing. Other C++ exceptions (out of memory, a broken lock) pass through.
 */
#ifndef VOREL_PLAIN_PLAINC_H
#define VOREL_PLAIN_PLAINC_H

#ifdef __cplusplus
#include <vorel/interrupt/SigIntException.h>
#include <vorel/render/OutputFormat.h>
namespace vorel {
class Renderer;
}
typedef vorel::Renderer vorel_Renderer;
typedef vorel::OutputFormat_t vorel_OutputFormat;
#else
typedef struct vorel_Renderer vorel_Renderer;
/** What a renderer prints: text for people, or one compact JSON document. */
typedef enum {
   outputFormatUnknown = 0,
   outputFormatText = 1,
   outputFormatJson = 2
} vorel_OutputFormat;
#endif

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/** outputFormatText for "text", outputFormatJson for "json", outputFormatUnknown for anything else
 * and for a null pointer. */
vorel_OutputFormat stringToOutputFormat(const char* name);

/** A renderer on descriptor `fd`, which stays the caller's and must not be 0. It is unbuffered:
 * each piece is written at once. Resets the interrupt flag of the calling thread. The caller
 * releases it with deinitPrinter. */
vorel_Renderer* initPrinter(int fd, unsigned int format);
/** Releases a renderer; null is ignored. Closes no document. */
void deinitPrinter(vorel_Renderer* handle);

/* The document and its structure, which only JSON shows; names and keys are not escaped. */
void start(vorel_Renderer* handle);
/* Linkers define a symbol `end` of their own, the end of the program's data, which a plain
 * reference would be bound to: compiled callers reach the function by its second name. Its first is
 * there for look-up at run time. */
void end(vorel_Renderer* handle) __asm__("vorel_end");
void startList(vorel_Renderer* handle, const char* name);
void endList(vorel_Renderer* handle);
void startListEntry(vorel_Renderer* handle);
void endListEntry(vorel_Renderer* handle);
void startSubmodel(vorel_Renderer* handle, const char* name);
void endSubmodel(vorel_Renderer* handle);
void startDict(vorel_Renderer* handle, const char* name);
void endDict(vorel_Renderer* handle);
/** Opens an entry whose value is the next item. `key` stays the caller's. */
void startSimpleDictEntry(vorel_Renderer* handle, const char* key);
void endSimpleDictEntry(vorel_Renderer* handle);

/** Sends on what a buffered renderer holds. */
void ioflush(vorel_Renderer* handle);

/** Prints decoration in text format; nothing in JSON. `unused` has no effect. Returns the number of
 * characters, 0 in JSON, -1 when an interruption ended the call. Text that cannot be formatted, or
 * for which there is no memory at a second attempt either, stops the process with a message on
 * standard output. */
int addFrills(vorel_Renderer* handle, const char* fmt, int unused, ...)
      __attribute__((__format__(__printf__, 2, 4)));

#ifndef __cplusplus /* C++ has them from interrupt/SigIntException.h */
/* The interrupt flags of threads, by kernel thread id. Not for signal handlers: they lock. */
/** 1 when thread `tid` is marked interrupted, otherwise 0. */
int vorel_isInterrupted(int tid);
/** Sets the interrupt flag of thread `tid`, or resets it. */
void vorel_setInterrupted(int tid);
void vorel_resetInterrupted(int tid);
/** Forgets a thread at its end: the kernel gives its id to a later one. */
void vorel_delInterrupted(int tid);
#endif

/** For tests: the calling thread's own flag. */
void setInterruptedForTest(void);
void resetInterruptedForTest(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
