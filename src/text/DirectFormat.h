#pragma once

#include <langinfo.h>

#include <algorithm>
#include <cfenv>
#include <cstring>
#include <string_view>

#include <vorel/text/Number.h>
#include "text/Conversion.h"
#include "text/Copy.h"

// printf's plain conversions, made in place in one pass: s c d i u x X o, with l or ll before all
// of these but c, s and o, f and F within the exact range, and %%. The text is the C library's,
// byte for byte; whatever could be another there (the locale's doing, null strings, unusual flags)
// is not made here at all.
namespace vorel::text::direct {

/** The stretch that a text is made in. Writing past its end fails, once and for all. */
class Area {
 public:
   Area(char* out, char* limit) : out_(out), limit_(limit) {}
   char* out() const { return out_; }

   bool append(char c) {
      if (out_ == limit_)
         return false;
      *out_++ = c;
      return true;
   }
   /** Takes `size` bytes, which the caller fills in; null when there are not so many. */
   char* take(size_t size) {
      if (static_cast<size_t>(limit_ - out_) < size)
         return nullptr;
      char* const taken = out_;
      out_ += size;
      return taken;
   }

 private:
   char* out_;
   char* limit_;
};

// The functions that format one conversion return false when it is not made here.

/** Takes the room for a text of `size` characters and pads it with blanks to the width. */
inline char* takePadded(Area& area, const Conversion& conversion, size_t size) {
   const size_t width = conversion.width > 0 ? static_cast<size_t>(conversion.width) : 0;
   if (size >= width)
      return area.take(size);
   char* const field = area.take(width);
   if (field == nullptr)
      return nullptr;
   const bool left = (conversion.flags & Conversion::kLeft) != 0;
   fill(left ? field + size : field, ' ', width - size);
   return left ? field : field + (width - size);
}

inline bool formatString(Area& area, const Conversion& conversion, const char* string) {
   if (string == nullptr || (conversion.flags & ~unsigned{Conversion::kLeft}) != 0)
      return false;
   const size_t size = conversion.precision == Conversion::kUnset
                             ? std::strlen(string)
                             : strnlen(string, static_cast<size_t>(conversion.precision));
   char* const out = takePadded(area, conversion, size);
   if (out == nullptr)
      return false;
   put(out, {string, size});
   return true;
}

inline bool formatCharacter(Area& area, const Conversion& conversion, int c) {
   if ((conversion.flags & ~unsigned{Conversion::kLeft}) != 0)
      return false;
   char* const out = takePadded(area, conversion, 1);
   if (out == nullptr)
      return false;
   *out = static_cast<char>(c);
   return true;
}

/** What stands before the digits of a number. */
struct Prefix {
   char text[2];
   unsigned size = 0;
};

inline Prefix signOf(const Conversion& conversion, bool negative) {
   if (negative)
      return {{'-'}, 1};
   if ((conversion.flags & Conversion::kPlus) != 0)
      return {{'+'}, 1};
   if ((conversion.flags & Conversion::kSpace) != 0)
      return {{' '}, 1};
   return {};
}

/** Takes the room for a number with its prefix and `digits` characters behind it, padded; with
 * `zeros` the padding is zeros between the two. Returns where the digits go. */
inline char* takeNumber(Area& area, const Conversion& conversion, Prefix prefix, size_t digits,
                        bool zeros) {
   size_t zeroCount = 0;
   if (zeros && conversion.width > 0) {
      const auto width = static_cast<size_t>(conversion.width);
      zeroCount = width - std::min(width, prefix.size + digits);
   }
   char* out = takePadded(area, conversion, prefix.size + zeroCount + digits);
   if (out == nullptr)
      return nullptr;
   for (unsigned i = 0; i < prefix.size; ++i)
      *out++ = prefix.text[i];
   return fill(out, '0', zeroCount);
}

inline unsigned countBinaryDigits(uint64_t value, unsigned bitsEach) {
   return (static_cast<unsigned>(std::bit_width(value | 1)) + bitsEach - 1) / bitsEach;
}

/** Puts the digits of a base that is a power of two. */
inline char* putBinaryDigits(char* out, uint64_t value, unsigned count, unsigned bitsEach,
                             const char* digits) {
   char* const end = out + count;
   for (char* digit = end; digit != out; value >>= bitsEach)
      *--digit = digits[value & ((1U << bitsEach) - 1)];
   return end;
}

inline bool formatInteger(Area& area, const Conversion& conversion, Prefix prefix, uint64_t value) {
   unsigned bitsEach = 0;
   if (conversion.letter == 'o')
      bitsEach = 3;
   else if (conversion.letter == 'x' || conversion.letter == 'X')
      bitsEach = 4;
   unsigned count = bitsEach == 0 ? countDigits(value) : countBinaryDigits(value, bitsEach);
   const bool hasPrecision = conversion.precision != Conversion::kUnset;
   if (hasPrecision && value == 0)
      count = 0;
   size_t digits = count;
   if (hasPrecision)
      digits = std::max(digits, static_cast<size_t>(conversion.precision));
   if ((conversion.flags & Conversion::kAlternate) != 0) {
      if (conversion.letter == 'o')
         digits = std::max(digits, size_t{value == 0 ? 0U : count} + 1);
      else if (value != 0)
         prefix = {{'0', conversion.letter}, 2};
   }
   const bool zeros = !hasPrecision && (conversion.flags & Conversion::kZero) != 0 &&
                      (conversion.flags & Conversion::kLeft) == 0;
   char* out = takeNumber(area, conversion, prefix, digits, zeros);
   if (out == nullptr)
      return false;
   out = fill(out, '0', digits - count);
   if (bitsEach == 0)
      putDigits(out, value, count);
   else
      putBinaryDigits(out, value, count, bitsEach,
                      conversion.letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF");
   return true;
}

template <class Arguments>
bool formatSigned(Area& area, const Conversion& conversion, Arguments& args) {
   if ((conversion.flags & Conversion::kAlternate) != 0)
      return false;
   const int64_t value =
         conversion.modifier == Conversion::Modifier::none ? args.nextInt() : args.nextLong();
   const auto bits = static_cast<uint64_t>(value);
   return formatInteger(area, conversion, signOf(conversion, value < 0),
                        value < 0 ? uint64_t{0} - bits : bits);
}

template <class Arguments>
bool formatUnsigned(Area& area, const Conversion& conversion, Arguments& args) {
   constexpr unsigned kSigns = Conversion::kPlus | Conversion::kSpace;
   if ((conversion.flags & kSigns) != 0 ||
       (conversion.letter == 'u' && (conversion.flags & Conversion::kAlternate) != 0))
      return false;
   const uint64_t value = conversion.modifier == Conversion::Modifier::none
                                ? static_cast<unsigned>(args.nextInt())
                                : static_cast<uint64_t>(args.nextLong());
   return formatInteger(area, conversion, {}, value);
}

/** Whether the C library prints a double with a point, rounded to nearest. */
inline bool isPlainFloatEnvironment() {
   const char* const point = nl_langinfo(RADIXCHAR);
   return point[0] == '.' && point[1] == '\0' && std::fegetround() == FE_TONEAREST;
}

inline bool formatFixedPoint(Area& area, const Conversion& conversion, double value) {
   constexpr int kMostDigits = 9;
   const int precision = conversion.precision == Conversion::kUnset ? 6 : conversion.precision;
   FixedPoint fixed;
   if (precision > kMostDigits || (conversion.flags & Conversion::kAlternate) != 0 ||
       !isPlainFloatEnvironment() || !toFixedPoint(value, static_cast<unsigned>(precision), fixed))
      return false;
   const auto digits = static_cast<unsigned>(precision);
   const unsigned count = countDigits(fixed.whole);
   const bool zeros =
         (conversion.flags & Conversion::kZero) != 0 && (conversion.flags & Conversion::kLeft) == 0;
   const Prefix sign = signOf(conversion, std::bit_cast<uint64_t>(value) >> 63 != 0);
   char* out = takeNumber(area, conversion, sign, count + (digits == 0 ? 0 : digits + 1), zeros);
   if (out == nullptr)
      return false;
   out = putDigits(out, fixed.whole, count);
   if (digits != 0) {
      *out++ = '.';
      putDigits(out, fixed.fraction, digits);
   }
   return true;
}

template <class Arguments>
bool formatConversion(Area& area, const Conversion& conversion, Arguments& args) {
   using Modifier = Conversion::Modifier;
   const bool isPlain = conversion.modifier == Modifier::none;
   // Not before o, which addArgs takes for the size of its argument as it stands.
   const bool isLong = conversion.letter != 'o' &&
                       (conversion.modifier == Modifier::l || conversion.modifier == Modifier::ll);
   if ((conversion.flags & Conversion::kGroup) != 0 || conversion.width >= Conversion::kHuge ||
       conversion.precision >= Conversion::kHuge)
      return false;
   switch (conversion.letter) {
      case 's':
         return isPlain && formatString(area, conversion, args.nextString());
      case 'c':
         return isPlain && formatCharacter(area, conversion, args.nextInt());
      case 'f':
      case 'F':
         return isPlain && formatFixedPoint(area, conversion, args.nextDouble());
      case 'd':
      case 'i':
      case 'u':
      case 'o':
      case 'x':
      case 'X':
         if (!isPlain && !isLong)
            return false;
         return conversion.letter == 'd' || conversion.letter == 'i'
                      ? formatSigned(area, conversion, args)
                      : formatUnsigned(area, conversion, args);
      default:
         return false;
   }
}

/**
 * Makes the text of a format from `out` on. Returns its end, or null when the format holds anything
 * but plain conversions or the text does not end before `limit` or at it; arguments may have been
 * taken and bytes stored then. The format ends at its NUL or at `end`, if that is not null; with
 * `Escapes`, a percent sign behind a backslash is none of the plain things either.
 */
template <bool Escapes, class Arguments>
[[gnu::flatten]] char* format(char* out, char* limit, const char* fmt, const char* end,
                              Arguments& args) {
   Area area(out, limit);
   while (fmt != end) {
      const char c = *fmt++;
      if (c == '\0')
         break;
      if (Escapes && c == '\\' && *fmt == '%')
         return nullptr;
      if (c == '%') {
         if (*fmt != '%') {
            Conversion conversion;
            fmt = parseConversion(fmt, conversion);
            if (fmt == nullptr || !formatConversion(area, conversion, args))
               return nullptr;
            continue;
         }
         ++fmt;
      }
      if (!area.append(c))
         return nullptr;
   }
   return area.out();
}

}  // namespace vorel::text::direct
