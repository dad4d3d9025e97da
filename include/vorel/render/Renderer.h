#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstring>

#include <orv/Orv.h>
#include <vorel/buffers/PrintBuffer.h>
#include <vorel/buffers/TrackedAllocation.h>
#include <vorel/interrupt/SigIntException.h>
#include <vorel/render/AttrInfo.h>
#include <vorel/render/OutputFormat.h>

#pragma GCC visibility push(default)

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
 * longer than INT_MAX characters) is not written, though the comma before it is; it marks the
 * calling thread interrupted and raises SigIntException unless a negative result tells the caller.
 *
 * One thread at a time drives a renderer. The fields are written by the renderer alone.
 */
class Renderer : public Orv::PtrInterface, public TrackedAllocation {
 public:
   // The host framework's base may bring operators of its own.
   using TrackedAllocation::operator new;
   using TrackedAllocation::operator new[];
   using TrackedAllocation::operator delete;
   using TrackedAllocation::operator delete[];

   OutputFormat_t format;
   bool firstItem;  ///< The next item at the current position needs no comma before it.
   bool buffered;
   PrintBuffer* buffer;

   /** `buffer` stays the caller's and outlives the renderer. */
   Renderer(OutputFormat_t format, PrintBuffer* buffer, bool buffered);
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

   /**
    * Prints attributes whose number the format tells, at most kMaxConversions. In JSON the
    * arguments are pointers to records, one for each conversion that getArgLenList counts, whatever
    * its letter. In text format they are one value for each conversion, of the type that
    * getArgLenList gives it: a 32-bit integer, a 64-bit integer or pointer, and for a floating
    * conversion floatArg(value), not the value itself. Throws SigIntException when the calling
    * thread is interrupted. Any format but text and JSON stops the process.
    */
   void addArgs(const char* fmt, ...);
   /** Writes as many records from `args` as `fmt` has conversions, like addJsonAttributes. A record
    * that cannot be formatted does not end the call. */
   int addJsonAttributesNoArgCount(const char* fmt, va_list args);
   /**
    * Prints text, whatever the renderer's format: `fmt` with arguments as addArgs takes them in
    * text format. `fmt` is printed piece by piece, one conversion each. Whatever it holds, no
    * argument is read that the scanner does not count, and none at another width: length modifiers
    * follow the scanner, and a piece that is more than one conversion of one argument (with `*`,
    * `$`, `%n`) is printed as it stands, as is a format without conversions or with one left open.
    * A percent sign behind a backslash is printed as it stands, with the backslash.
    * Returns the length of the last piece printed; a negative number when a piece cannot be
    * formatted, with which the call ends.
    */
   int vorel_vfprintf(const char* fmt, va_list args);
};

/** The most conversions that a format of addArgs may have. */
constexpr int kMaxConversions = 10;

/**
 * Tells how many arguments a printf format takes in addArgs, and of what kind, in one pass.
 *
 * A conversion runs from an unescaped `%` (a backslash escapes it) to the first of c d i o u x X
 * (a 4-byte argument; 8 bytes with l or ll directly before d i u x X), s p (8 bytes) or
 * e E f F g G (8 bytes, floating); a `%` before that cancels it, so "%%" counts nothing. Anything
 * else within a conversion is passed over. For each conversion closed, in order, the arrays, of
 * kMaxConversions entries each, get the argument's size, whether it is floating, and where its
 * piece of the format ends: behind the conversion, for the last one at the end of the format.
 * Entries beyond these are left alone.
 *
 * Returns the number of conversions, one that is left open at the end included. More than
 * kMaxConversions stop the process. `fmt` is of at most INT_MAX characters.
 */
int getArgLenList(const char* fmt, int* argLens, int* pieceEnds, bool* isFloat);

/** A floating-point argument of addArgs in text format: the bits of the value as an integer. */
inline uint64_t floatArg(double value) {
   uint64_t bits = 0;
   static_assert(sizeof bits == sizeof value);
   std::memcpy(&bits, &value, sizeof bits);
   return bits;
}

}  // namespace vorel

#pragma GCC visibility pop
