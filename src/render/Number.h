#pragma once

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>

namespace vorel {

// Numbers as text, whatever the locale. Each function writes at `out`, where there must be room
// for kNumberRoom<its type> characters, and returns the end of the text. No NUL is written.

/** The most characters that a number of this type takes. */
template <class Integer>
constexpr size_t kNumberRoom =
      size_t{std::numeric_limits<Integer>::digits10 + 1 + std::numeric_limits<Integer>::is_signed};
template <>  // a sign, the digits of the integer part, the point and six digits
inline constexpr size_t kNumberRoom<double> =
      1 + std::numeric_limits<double>::max_exponent10 + 1 + 7;

template <class Integer>
char* putNumber(char* out, Integer number) {
   return std::to_chars(out, out + kNumberRoom<Integer>, number).ptr;
}

/** Exactly six digits, with leading zeros. */
inline char* putSixDigits(char* out, uint32_t number) {
   for (char* digit = out + 6; digit != out; number /= 10)
      *--digit = static_cast<char>('0' + number % 10);
   return out + 6;
}

/**
 * A double as "%f" prints it in the "C" locale, rounded to nearest.
 *
 * Below 2^63 the value is mantissa / 2^shift with an integer part of at most 63 bits and a fraction
 * of `shift` bits. Fraction times 10^6 is exact in 128 bits, so its integer part is the six digits
 * and its remainder decides the rounding, half to even as the C library's. Anything else (larger,
 * infinite, no number) is std::to_chars's.
 */
template <>
inline char* putNumber(char* out, double number) {
   constexpr int kMantissaBits = std::numeric_limits<double>::digits - 1;
   constexpr int kExponentBias = std::numeric_limits<double>::max_exponent - 1;
   constexpr uint32_t kMillion = 1000000;
   __extension__ using Wide = unsigned __int128;

   const auto bits = std::bit_cast<uint64_t>(number);
   const int biased = static_cast<int>(bits >> kMantissaBits) & 0x7ff;
   if (biased - kExponentBias >= 63)
      return std::to_chars(out, out + kNumberRoom<double>, number, std::chars_format::fixed, 6).ptr;

   uint64_t mantissa = bits & ((uint64_t{1} << kMantissaBits) - 1);
   if (biased != 0)
      mantissa |= uint64_t{1} << kMantissaBits;
   // A subnormal number has the exponent of the smallest normal ones.
   const int shift = kExponentBias + kMantissaBits - (biased == 0 ? 1 : biased);

   uint64_t whole = 0;
   uint32_t millionths = 0;
   if (shift <= 0) {
      whole = mantissa << -shift;
   } else if (shift < 128) {
      whole = shift < 64 ? mantissa >> shift : 0;
      const Wide fraction = shift < 64 ? mantissa & ((uint64_t{1} << shift) - 1) : mantissa;
      const Wide scaled = fraction * kMillion;
      const Wide remainder = scaled & ((Wide{1} << shift) - 1);
      const Wide half = Wide{1} << (shift - 1);
      millionths = static_cast<uint32_t>(scaled >> shift);
      if (remainder > half || (remainder == half && millionths % 2 != 0))
         ++millionths;
      if (millionths == kMillion) {
         millionths = 0;
         ++whole;
      }
   }  // else the number is far below half a millionth

   if ((bits >> 63) != 0)
      *out++ = '-';
   out = putNumber(out, whole);
   *out++ = '.';
   return putSixDigits(out, millionths);
}

}  // namespace vorel
