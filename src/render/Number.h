#pragma once

#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace vorel {

// Numbers as text, whatever the locale. No NUL is written.

/** The most characters that putNumber writes for a number of this type. */
template <class Integer>
constexpr size_t kNumberRoom =
      size_t{std::numeric_limits<Integer>::digits10 + 1 + std::numeric_limits<Integer>::is_signed};
template <>  // a sign, the digits of the integer part, the point and six digits
inline constexpr size_t kNumberRoom<double> =
      1 + std::numeric_limits<double>::max_exponent10 + 1 + 7;

namespace number {

/** "00" to "99". */
inline constexpr auto kPairs = [] {
   std::array<char, 200> pairs{};
   for (size_t i = 0; i < 100; ++i) {
      pairs[2 * i] = static_cast<char>('0' + i / 10);
      pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
   }
   return pairs;
}();

/** 10^0 to 10^19. */
inline constexpr auto kPowers = [] {
   std::array<uint64_t, 20> powers{};
   uint64_t power = 1;
   for (uint64_t& entry : powers) {
      entry = power;
      power *= 10;
   }
   return powers;
}();

}  // namespace number

/** How many decimal digits a number has; 1 for 0. */
inline unsigned countDigits(uint64_t value) {
   // 1233 / 4096 is log10(2): the estimate is the count or one less.
   const auto bits = static_cast<unsigned>(std::bit_width(value | 1));
   const unsigned estimate = bits * 1233 >> 12;
   return estimate + (value >= number::kPowers[estimate] ? 1 : 0) + (value == 0 ? 1 : 0);
}

/** Writes a number below 100 in two digits. */
inline void putPair(char* out, uint32_t value) {
   std::memcpy(out, &number::kPairs[size_t{2} * value], 2);
}

/** Writes a number below 10^8 in eight digits: halves of halves, which the processor makes side by
 * side, where digit after digit waits for the one before. */
inline void putEightDigits(char* out, uint32_t value) {
   const uint32_t high = value / 10000;
   const uint32_t low = value % 10000;
   putPair(out, high / 100);
   putPair(out + 2, high % 100);
   putPair(out + 4, low / 100);
   putPair(out + 6, low % 100);
}

/** Writes the last `count` decimal digits of a number, leading zeros included; returns their end.
 */
inline char* putDigits(char* out, uint64_t value, unsigned count) {
   constexpr uint32_t kEight = 100000000;
   char* const end = out + count;
   char* digit = end;
   for (; count >= 8; count -= 8) {
      digit -= 8;
      putEightDigits(digit, static_cast<uint32_t>(value % kEight));
      value /= kEight;
   }
   auto rest = static_cast<uint32_t>(value % kEight);
   for (; count >= 2; count -= 2) {
      digit -= 2;
      putPair(digit, rest % 100);
      rest /= 100;
   }
   if (count != 0)
      *--digit = static_cast<char>('0' + rest % 10);
   return end;
}

/** Writes a number at `out`, where there is room for kNumberRoom characters; returns its end. */
template <class Integer>
char* putNumber(char* out, Integer value) {
   using Unsigned = std::make_unsigned_t<Integer>;
   auto magnitude = static_cast<Unsigned>(value);
   if constexpr (std::is_signed_v<Integer>) {
      if (value < 0) {
         *out++ = '-';
         magnitude = Unsigned{0} - magnitude;
      }
   }
   return putDigits(out, magnitude, countDigits(magnitude));
}

/** The magnitude of a double, rounded to some digits after the point. */
struct FixedPoint {
   uint64_t whole;
   uint32_t fraction;  // times 10^digits
};

/**
 * Rounds the magnitude of a double to `digits` digits after the point, at most 9, exactly: to
 * nearest, half to even, as the C library does. False when it is 2^63 or more, or no number.
 *
 * The value is mantissa / 2^shift, the fraction its low `shift` bits. Fraction times 10^digits is
 * exact in 128 bits, so its bits above `shift` are the digits, and those below decide the rounding.
 */
inline bool toFixedPoint(double number, unsigned digits, FixedPoint& to) {
   constexpr int kMantissaBits = std::numeric_limits<double>::digits - 1;
   constexpr int kExponentBias = std::numeric_limits<double>::max_exponent - 1;
   __extension__ using Wide = unsigned __int128;

   const auto bits = std::bit_cast<uint64_t>(number);
   const int biased = static_cast<int>(bits >> kMantissaBits) & 0x7ff;
   if (biased - kExponentBias >= 63)
      return false;
   uint64_t mantissa = bits & ((uint64_t{1} << kMantissaBits) - 1);
   if (biased != 0)
      mantissa |= uint64_t{1} << kMantissaBits;
   // A subnormal number has the exponent of the smallest normal ones.
   const int shift = kExponentBias + kMantissaBits - (biased == 0 ? 1 : biased);

   to = {0, 0};
   if (shift <= 0) {
      to.whole = mantissa << -shift;
   } else if (shift < 128) {  // otherwise it is far too small to leave a digit
      to.whole = shift < 64 ? mantissa >> shift : 0;
      const uint64_t fraction = shift < 64 ? mantissa & ((uint64_t{1} << shift) - 1) : mantissa;
      const auto scale = static_cast<uint32_t>(number::kPowers[digits]);
      const Wide scaled = Wide{fraction} * scale;
      const Wide rest = scaled & ((Wide{1} << shift) - 1);
      const Wide half = Wide{1} << (shift - 1);
      to.fraction = static_cast<uint32_t>(scaled >> shift);
      const bool odd = ((digits == 0 ? to.whole : to.fraction) & 1) != 0;
      if (rest > half || (rest == half && odd))
         ++to.fraction;
      if (to.fraction == scale) {
         to.fraction = 0;
         ++to.whole;
      }
   }
   return true;
}

/** A double as "%f" prints it in the "C" locale, rounded to nearest. */
template <>
inline char* putNumber(char* out, double value) {
   constexpr unsigned kDigits = 6;
   FixedPoint fixed;
   if (!toFixedPoint(value, kDigits, fixed))
      return std::to_chars(out, out + kNumberRoom<double>, value, std::chars_format::fixed, kDigits)
            .ptr;
   if (std::bit_cast<uint64_t>(value) >> 63 != 0)
      *out++ = '-';
   out = putDigits(out, fixed.whole, countDigits(fixed.whole));
   *out++ = '.';
   return putDigits(out, fixed.fraction, kDigits);
}

}  // namespace vorel
