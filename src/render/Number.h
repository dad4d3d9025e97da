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

/** The most characters that putNumber writes for a number of this type, at least the eight that it
 * always stores and a sign. */
template <class Integer>
constexpr size_t kNumberRoom =
      size_t{std::numeric_limits<Integer>::digits10 + 1 + std::numeric_limits<Integer>::is_signed};
template <>  // a sign, the digits of the integer part, the point and six digits
inline constexpr size_t kNumberRoom<double> =
      1 + std::numeric_limits<double>::max_exponent10 + 1 + 7;

namespace number {

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

inline constexpr uint32_t kEight = 100000000;
inline constexpr uint64_t kZeros = 0x3030303030303030;  // '0' eight times

/** The eight digits of a number below 10^8 as eight bytes of 0 to 9, the first one lowest. Halves
 * of halves are split side by side in one word; multiplying and shifting divides by 100 and by 10.
 */
inline uint64_t eightDigits(uint32_t value) {
   const uint64_t fours = value / 10000 | uint64_t{value % 10000} << 32;
   const uint64_t hundreds = fours * 10486 >> 20 & 0x0000007f0000007f;
   const uint64_t pairs = hundreds | (fours - hundreds * 100) << 16;
   const uint64_t tens = pairs * 103 >> 10 & 0x000f000f000f000f;
   return tens | (pairs - tens * 10) << 8 | kZeros;
}

// The first character of a text is the lowest byte of a word.
static_assert(std::endian::native == std::endian::little);

inline void putEight(char* out, uint32_t value) {
   const uint64_t digits = eightDigits(value);
   std::memcpy(out, &digits, sizeof digits);
}

}  // namespace number

/** How many decimal digits a number has; 1 for 0. */
inline unsigned countDigits(uint64_t value) {
   // 1233 / 4096 is log10(2): the estimate is the count or one less.
   const auto bits = static_cast<unsigned>(std::bit_width(value | 1));
   const unsigned estimate = bits * 1233 >> 12;
   return estimate + (value >= number::kPowers[estimate] ? 1 : 0) + (value == 0 ? 1 : 0);
}

/** Whether the bytes behind a text may be written to while it is made. */
enum class Behind { scratch, kept };

namespace number {

/** Writes the last `count` digits, at most eight, of a number below 10^8. */
template <Behind behind>
void putLast(char* out, uint32_t value, unsigned count) {
   const uint64_t digits = eightDigits(value) >> (8 - count) * 8;
   if (behind == Behind::scratch || count == 8) {
      std::memcpy(out, &digits, 8);
   } else if (count >= 4) {
      const uint64_t last = digits >> (count - 4) * 8;
      std::memcpy(out, &digits, 4);
      std::memcpy(out + count - 4, &last, 4);
   } else if (count >= 2) {
      const uint64_t last = digits >> (count - 2) * 8;
      std::memcpy(out, &digits, 2);
      std::memcpy(out + count - 2, &last, 2);
   } else if (count != 0) {
      *out = static_cast<char>(digits);
   }
}

}  // namespace number

/** Writes a number in exactly `count` digits, which it has at most; returns their end. Scratch is
 * at most seven bytes. */
template <Behind behind>
char* putDigits(char* out, uint64_t value, unsigned count) {
   using number::kEight;
   char* const end = out + count;
   if (count <= 8) {
      number::putLast<behind>(out, static_cast<uint32_t>(value), count);
      return end;
   }
   const uint64_t high = value / kEight;
   if (count <= 16) {
      number::putLast<behind>(out, static_cast<uint32_t>(high), count - 8);
   } else {
      number::putLast<behind>(out, static_cast<uint32_t>(high / kEight), count - 16);
      number::putEight(end - 16, static_cast<uint32_t>(high % kEight));
   }
   number::putEight(end - 8, static_cast<uint32_t>(value % kEight));
   return end;
}

/** Writes a number at `out`, where there is room for kNumberRoom characters, which may all be
 * written to; returns its end. */
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
   return putDigits<Behind::scratch>(out, magnitude, countDigits(magnitude));
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
   out = putNumber(out, fixed.whole);
   *out++ = '.';
   return putDigits<Behind::scratch>(out, fixed.fraction, kDigits);
}

}  // namespace vorel
