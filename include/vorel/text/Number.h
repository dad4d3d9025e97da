#pragma once

#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace vorel::text {

// Numbers as text, whatever the locale. No NUL is written.

namespace number {

__extension__ using Wide = unsigned __int128;

/** 10^0 to 10^19. */
inline constexpr auto kPowersOfTen = [] {
   std::array<uint64_t, 20> powers{};
   uint64_t power = 1;
   for (uint64_t& entry : powers) {
      entry = power;
      power *= 10;
   }
   return powers;
}();

/** The least number with one digit more than the index: 0, and from there on a power of ten. */
inline constexpr auto kLeast = [] {
   auto least = kPowersOfTen;
   least[0] = 0;
   return least;
}();

inline constexpr uint32_t kTenTo8 = 100000000;
inline constexpr uint64_t kTenTo16 = uint64_t{kTenTo8} * kTenTo8;
inline constexpr uint64_t kZeros = 0x3030303030303030;  // '0' eight times

// The first character of a text is the lowest byte of a word.
static_assert(std::endian::native == std::endian::little);

/** The digits of a number below 10^8 as eight characters. Halves of halves are split side by side
 * in one word; multiplying and shifting divides by 100 and by 10. */
inline uint64_t eightDigits(uint32_t value) {
   const uint64_t fours = value / 10000 | uint64_t{value % 10000} << 32;
   const uint64_t hundreds = fours * 10486 >> 20 & 0x0000007f0000007f;
   const uint64_t pairs = hundreds | (fours - hundreds * 100) << 16;
   const uint64_t tens = pairs * 103 >> 10 & 0x000f000f000f000f;
   return tens | (pairs - tens * 10) << 8 | kZeros;
}

/** The last `count` of these characters, and NULs behind them. */
inline uint64_t lastOfEight(uint32_t value, unsigned count) {
   return eightDigits(value) >> (8 - count) * 8;
}

/** The same for the digits of a number below 10^16. */
inline Wide lastOfSixteen(uint64_t value, unsigned count) {
   const Wide digits = Wide{eightDigits(static_cast<uint32_t>(value % kTenTo8))} << 64 |
                       eightDigits(static_cast<uint32_t>(value / kTenTo8));
   return digits >> (16 - count) * 8;
}

template <class Word>
void store(char* out, Word word) {
   std::memcpy(out, &word, sizeof word);
}

}  // namespace number

/** The most characters that putNumber writes for a number of this type, scratch included. */
template <class Integer>
constexpr size_t kNumberRoom = 1 + 20 + 8;
template <>  // a sign, the digits of the integer part, the point, six digits and scratch
inline constexpr size_t kNumberRoom<double> =
      1 + std::numeric_limits<double>::max_exponent10 + 1 + 1 + 8;

/** How many decimal digits a number has; 1 for 0. */
inline unsigned countDigits(uint64_t value) {
   // 1233 / 4096 is log10(2): the estimate is the count or one less.
   const auto bits = static_cast<unsigned>(std::bit_width(value | 1));
   const unsigned estimate = bits * 1233 >> 12;
   return estimate + (value >= number::kLeast[estimate] ? 1 : 0);
}

/** Writes a number in exactly `count` digits, which it has at most; returns their end. */
inline char* putDigits(char* out, uint64_t value, unsigned count) {
   char* const end = out + count;
   for (; count > 8; count -= 8, value /= number::kTenTo8)
      number::store(out + count - 8,
                    number::eightDigits(static_cast<uint32_t>(value % number::kTenTo8)));
   if (count == 0)
      return end;
   const uint64_t digits = number::lastOfEight(static_cast<uint32_t>(value), count);
   if (count == 8) {
      number::store(out, digits);
   } else if (count >= 4) {
      number::store(out, static_cast<uint32_t>(digits));
      number::store(out + count - 4, static_cast<uint32_t>(digits >> (count - 4) * 8));
   } else {
      out[0] = static_cast<char>(digits);
      out[count / 2] = static_cast<char>(digits >> count / 2 * 8);
      out[count - 1] = static_cast<char>(digits >> (count - 1) * 8);
   }
   return end;
}

/** Writes a number at `out` and scratch behind it, up to out + kNumberRoom; returns its end. As the
 * numbers of a column have all magnitudes, there are few branches that depend on it. */
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
   const unsigned count = countDigits(magnitude);
   if (sizeof(Integer) == 4 && magnitude < number::kTenTo8) {
      number::store(out, number::lastOfEight(static_cast<uint32_t>(magnitude), count));
   } else if (magnitude < number::kTenTo16) {
      number::store(out, number::lastOfSixteen(magnitude, count));
   } else {
      const auto high = static_cast<uint32_t>(magnitude / number::kTenTo16);
      number::store(out, number::lastOfEight(high, count - 16));
      number::store(out + count - 16, number::lastOfSixteen(magnitude % number::kTenTo16, 16));
   }
   return out + count;
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
   using number::Wide;

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
      const auto scale = static_cast<uint32_t>(number::kPowersOfTen[digits]);
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
   out = fixed.whole < number::kTenTo8 ? putNumber(out, static_cast<uint32_t>(fixed.whole))
                                       : putNumber(out, fixed.whole);
   *out++ = '.';
   number::store(out, number::eightDigits(fixed.fraction * 100));
   return out + kDigits;
}

}  // namespace vorel::text
