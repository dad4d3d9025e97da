#pragma once

#include <bit>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace vorel::text {

// Where a formatter takes its arguments from. An argument source offers next* functions, which
// hand out one argument after the other, and print, which formats anew from the first argument on
// with the C library.

/** The arguments of a variable argument list, which can be walked any number of times. */
class ListArguments {
 public:
   /** Leaves `list` as it is. */
   explicit ListArguments(va_list list) {
      va_copy(first_, list);
      va_copy(next_, list);
   }
   ListArguments(const ListArguments&) = delete;
   ListArguments& operator=(const ListArguments&) = delete;
   ~ListArguments() {
      va_end(next_);
      va_end(first_);
   }

   int nextInt() { return va_arg(next_, int); }
   int64_t nextLong() { return va_arg(next_, long); }
   double nextDouble() { return va_arg(next_, double); }
   const char* nextString() { return va_arg(next_, const char*); }

   int print(char* out, size_t room, const char* fmt) {
      va_end(next_);
      va_copy(next_, first_);
      return std::vsnprintf(out, room, fmt, next_);
   }

 private:
   va_list first_;
   va_list next_;
};

/** A single argument of addArgs. */
class OneArgument {
 public:
   /** Takes the argument, of 4 or 8 bytes, from `list`. */
   OneArgument(va_list list, int size, bool isFloat)
         : kind_(kindOf(size, isFloat)),
           bits_(size == 4 ? static_cast<uint64_t>(va_arg(list, int)) : va_arg(list, uint64_t)) {}

   /** Has a number of 8 bytes printed as the pointer that it is. */
   void becomePointer() { kind_ = Kind::pointer; }

   int nextInt() const { return static_cast<int>(bits_); }
   int64_t nextLong() const { return static_cast<int64_t>(bits_); }
   double nextDouble() const { return std::bit_cast<double>(bits_); }
   const char* nextString() const { return std::bit_cast<const char*>(bits_); }

   int print(char* out, size_t room, const char* fmt) const {
      switch (kind_) {
         case Kind::word:
            return std::snprintf(out, room, fmt, nextInt());
         case Kind::longWord:
            return std::snprintf(out, room, fmt, nextLong());
         case Kind::pointer:
            return std::snprintf(out, room, fmt, nextString());
         case Kind::floating:
            return std::snprintf(out, room, fmt, nextDouble());
      }
      return -1;
   }

 private:
   enum class Kind { word, longWord, pointer, floating };

   static Kind kindOf(int size, bool isFloat) {
      if (isFloat)
         return Kind::floating;
      return size == 4 ? Kind::word : Kind::longWord;
   }

   Kind kind_;
   uint64_t bits_;
};

}  // namespace vorel::text
