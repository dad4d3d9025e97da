#include "document/Floating.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include <vorel/document/CheckedCopy.h>
#include <vorel/document/Json.h>
#include <vorel/text/Number.h>

namespace vorel::detail {

namespace {

constexpr int kLeastPlain = -4;  // the exponents of numbers that are written without one
constexpr int kMostPlain = 15;

/**
 * Puts a number that has at most 15 digits, not more than six of them after the point; null for
 * others.
 *
 * Whole numbers so large are exact, and so is the power of ten: their quotient is rounded once, to
 * what reading the text gives. No two such texts read as the same number, so the one that does is
 * the shortest.
 */
char* putShort(char* out, double value) {
   constexpr unsigned kDecimals = 6;
   constexpr auto kScale = static_cast<uint32_t>(text::number::kPowersOfTen[kDecimals]);
   constexpr int64_t kLeastDigits = kScale / 10000;
   constexpr auto kMost =
         static_cast<double>(text::number::kPowersOfTen[std::numeric_limits<double>::digits10]);

   const double magnitude = std::fabs(value);
   const double scaled = magnitude * kScale + 0.5;
   if (scaled >= kMost)
      return nullptr;
   const auto digits = static_cast<int64_t>(scaled);
   const bool isSmall = digits < kLeastDigits && digits != 0;  // and would have an exponent
   if (isSmall || static_cast<double>(digits) / kScale != magnitude)
      return nullptr;

   *out = '-';
   out += std::signbit(value) ? 1 : 0;
   out = text::putNumber(out, static_cast<uint64_t>(digits / kScale));
   const uint64_t decimals =
         text::number::eightDigits(static_cast<uint32_t>(digits % kScale) * 100);
   *out = '.';
   text::number::store(out + 1, decimals);
   // What is left when the zeros at the end are gone, and then the point.
   const auto bits = static_cast<unsigned>(std::bit_width(decimals ^ text::number::kZeros));
   const unsigned left = (bits + 7) / 8;
   return out + left + (left != 0 ? 1 : 0);
}

/** A number as `d.ddd` times ten to the power of the exponent, its text up to `end`. */
struct Scientific {
   char text[64];  // there is room to load blocks of decimals that are not all there
   char* end;
   int exponent;
};

/** Puts a number without its exponent. Copies sixteen decimals at a time, which is all. */
char* putPlain(char* out, const Scientific& number) {
   const char* const decimals = number.text + 2;
   const auto count = number.end - number.text > 1 ? static_cast<int>(number.end - decimals) : 0;
   const int exponent = number.exponent;
   if (exponent < 0) {
      std::memset(out, '0', 8);
      out[1] = '.';
      out += 1 - exponent;
      *out++ = number.text[0];
      store(out, load(decimals));
      return out + count;
   }
   *out++ = number.text[0];
   store(out, load(decimals));
   if (count <= exponent) {
      store(out + count, _mm_set1_epi8('0'));
      return out + exponent;
   }
   out[exponent] = '.';
   store(out + exponent + 1, load(decimals + exponent));
   return out + count + 1;
}

template <class Float>
char* putAny(char* out, Float value) {
   *out = '-';
   out += std::signbit(value) ? 1 : 0;
   Scientific number;
   number.end = std::to_chars(number.text, number.text + sizeof number.text, std::fabs(value),
                              std::chars_format::scientific)
                      .ptr;
   const char* const mark = number.end - 4;  // unless the exponent has three digits
   if (*mark == 'e') {
      const int magnitude = (mark[2] - '0') * 10 + (mark[3] - '0');
      number.exponent = mark[1] == '-' ? -magnitude : magnitude;
      if (number.exponent >= kLeastPlain && number.exponent <= kMostPlain) {
         number.end -= 4;
         return putPlain(out, number);
      }
   }
   const auto size = static_cast<size_t>(number.end - number.text);
   std::memcpy(out, number.text, size);
   return out + size;
}

}  // namespace

char* putShortest(char* out, double value) {
   char* const end = putShort(out, value);
   return end != nullptr ? end : putAny(out, value);
}
char* putShortest(char* out, float value) {
   return putAny(out, value);
}

}  // namespace vorel::detail
