#pragma once

#include <cstdint>
#include <cstdlib>

namespace vorel {

/** Which member of an attribute record's value is valid, and how it is printed in JSON. */
enum AttrType_t : uint32_t {
   attrInt32 = 0,   ///< asInt32
   attrString = 1,  ///< asString, in quotes, nothing escaped
   attrBool = 2,    ///< asBool; zero is false
   attrUint64 = 3,  ///< asUint64
   attrUint32 = 4,  ///< asUint32
   attrFloat = 5,   ///< asFloat, with six digits after the point
   attrDouble = 6,  ///< asDouble, with six digits after the point
};

/**
 * The layout that both kinds of attribute record share. The library only reads records.
 *
 * A record with an empty name renders as its bare value. Strings stay the caller's, unless
 * `ownsValue` says that the value's is the record's own.
 */
struct AttrInfo {
   bool suppressed = false;  ///< Attribute operations pass over the record.
   const char* name = "";    ///< JSON key; not used for the key of a dictionary entry.
   AttrType_t type = attrInt32;
   bool reservedFlag = false;  ///< Read by no operation.
   int32_t reservedCount = 0;  ///< Read by no operation.
   union Value {
      uint64_t asUint64 = 0;
      int32_t asInt32;
      uint32_t asUint32;
      int32_t asBool;
      float asFloat;
      double asDouble;
      const char* asString;
   } value;
   uint64_t reserved = 0;   ///< Read by no operation.
   bool ownsValue = false;  ///< The string in `value`, from malloc, is freed with the record.

   AttrInfo(const AttrInfo&) = delete;
   AttrInfo& operator=(const AttrInfo&) = delete;

 protected:
   AttrInfo() = default;
   AttrInfo(const char* name_, AttrType_t type_) : name(name_), type(type_) {}
   ~AttrInfo() {
      if (ownsValue && type == attrString)
         std::free(const_cast<char*>(value.asString));
   }
};

/** A record for values of up to 32 bits and strings. Default-built, it holds the 32-bit number 0
 * without a name; the other constructors take the tag from the value's type. */
struct Attr32Info : AttrInfo {
   Attr32Info() = default;
   Attr32Info(const char* name_, int32_t number) : AttrInfo(name_, attrInt32) {
      value.asInt32 = number;
   }
   Attr32Info(const char* name_, uint32_t number) : AttrInfo(name_, attrUint32) {
      value.asUint32 = number;
   }
   Attr32Info(const char* name_, bool flag) : AttrInfo(name_, attrBool) {
      value.asBool = flag ? 1 : 0;
   }
   Attr32Info(const char* name_, float number) : AttrInfo(name_, attrFloat) {
      value.asFloat = number;
   }
   Attr32Info(const char* name_, const char* text) : AttrInfo(name_, attrString) {
      value.asString = text;
   }
};

/** A record for 64-bit values and strings, otherwise like Attr32Info. */
struct Attr64Info : AttrInfo {
   Attr64Info() = default;
   Attr64Info(const char* name_, uint64_t number) : AttrInfo(name_, attrUint64) {
      value.asUint64 = number;
   }
   Attr64Info(const char* name_, double number) : AttrInfo(name_, attrDouble) {
      value.asDouble = number;
   }
   Attr64Info(const char* name_, const char* text) : AttrInfo(name_, attrString) {
      value.asString = text;
   }
};

}  // namespace vorel
