#pragma once

#include <cstdarg>
#include <cstdint>

#include "buffers/PrintBuffer.h"
#include "buffers/TrackedAllocation.h"
#include "interrupt/SigIntException.h"
#include "orv/Orv.h"
#include "render/AttrInfo.h"
#include "render/OutputFormat.h"

namespace vorel {

/**
 * Prints one document, described as a sequence of calls, as text or as JSON.
 *
 * In JSON every item is preceded by a comma where one belongs: an opening operation writes it
 * unless `firstItem` is true and sets `firstItem`; a closing operation clears it; an attribute
 * writes it unless `firstItem` is true and clears it. Nesting is not checked, and names, keys and
 * strings are written as they are, without escaping. In text format the structure operations are
 * silent, but for the four JSON emitters (startObj, endObj, startSimpleObj), which look at no
 * format.
 *
 * A renderer that is `buffered` fills its buffer's write area, and bytes leave when that is full,
 * on ioflush, or when the buffer is destroyed; one that is not hands each piece to rawWrite.
 * Exceptions of the buffer (SigIntException above all) pass through; what was written stays
 * written and flags stay as far as they had come. A piece that cannot be formatted (out of memory,
 * longer than INT_MAX characters) is not written; it marks the calling thread interrupted and
 * raises SigIntException unless a negative result tells the caller.
 *
 * One thread at a time drives a renderer. The fields are written by the renderer alone.
 */
class [[gnu::visibility("default")]] Renderer : public Orv::PtrInterface, public TrackedAllocation {
 public:
   // The host framework's base may bring a pair of its own.
   using TrackedAllocation::operator new;
   using TrackedAllocation::operator delete;

   OutputFormat_t format;
   bool firstItem;  ///< The next item at the current position needs no comma before it.
   bool buffered;
   PrintBuffer* buffer;

   /** `buffer` stays the caller's and outlives the renderer. */
   Renderer(OutputFormat_t format, PrintBuffer * buffer, bool buffered);
   Renderer(const Renderer&) = delete;
   Renderer& operator=(const Renderer&) = delete;
   /** Writes and flushes nothing. */
   ~Renderer() override;

   /** Opens and closes the document: `{` and, with a newline after it, `}`. */
   void start();
   void end();

   // Forwarded to the buffer, in every format.
   void ioflush();
   bool wouldBlock();
   uint64_t fullness();

   /** A named list: `"name":[` and `]`. */
   void startList(const char* name);
   void endList();
   /** An entry of a list: `{` and `}`. */
   void startListEntry();
   void endListEntry();

   /** A named object, `"name":{`, or an unnamed one, `{`; closed with `}`. In every format. */
   void startObj(const char* name);
   void startObj();
   void endObj();
   /** A key, `"name":`, whose value is the next item. In every format. */
   void startSimpleObj(const char* name);

   /** A named object that is silent in text format. */
   void startSubmodel(const char* name);
   void endSubmodel();
   /** A named dictionary; the same JSON as a submodel. */
   void startDict(const char* name);
   void endDict();
   /** An entry of a dictionary, `"key":{` and `}`. The record's value is the key: attrInt32,
    * attrUint32 or attrString, and attrUint64 in the 64-bit record; any other tag stops the
    * process in JSON. */
   void startDictEntry(const Attr32Info& info);
   void startDictEntry(const Attr64Info& info);
   void endDictEntry();
   /** An entry of a dictionary whose value is the next item: `"key":` and nothing. Keys as above.
    */
   void startSimpleDictEntry(const Attr32Info& info);
   void startSimpleDictEntry(const Attr64Info& info);
   void endSimpleDictEntry();

   /**
    * Prints decoration (headings, blank lines) in text format; nothing in JSON. Throws
    * SigIntException when the calling thread is interrupted, in either format. Any format but text
    * and JSON stops the process.
    * Returns the number of characters written.
    */
   int addFrills(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
   /**
    * The same for an argument list, which cannot be read twice: -1 says that the text did not fit,
    * nothing was written, and there is room for it now, so that a second call with a fresh list
    * succeeds. Does not look at the interrupt flag; the second parameter is not used. A result
    * below -1, or -1 again, is a failure of the formatter.
    */
   int addVaFrillsWrapper(const char* fmt, int unused, va_list args);

   /**
    * Prints attributes. In text format the arguments are printf arguments for `fmt`; in JSON they
    * are `count` pointers to Attr32Info or Attr64Info records, and `fmt` is not read. Throws
    * SigIntException when the calling thread is interrupted. Any format but text and JSON stops
    * the process.
    * Returns the length of the text, or in JSON of the last member formatted.
    */
   int addAttributes(const char* fmt, int count, ...);
   /** The same for JSON alone: in text format it prints nothing and returns 0. */
   int addAttributesJson(int count, ...);
   /**
    * Writes `count` records from `args` as JSON, whatever the renderer's format: `"name":value`, or
    * the bare value of a record without a name. A record with an unknown tag stops the process.
    * Returns the length of the last member formatted (true and false without a name are not
    * formatted), 0 if there was none. `fmt` is not read.
    */
   int addJsonAttributes(const char* fmt, int count, va_list args);
};

}  // namespace vorel
