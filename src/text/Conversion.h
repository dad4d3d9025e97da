#pragma once

#include <array>
#include <cstdint>

namespace vorel::text {

/** One conversion of a printf format that takes a single argument or none, taken apart. */
struct Conversion {
   enum Flag : unsigned {
      kLeft = 1,       // -
      kPlus = 2,       // +
      kSpace = 4,      // blank
      kAlternate = 8,  // #
      kZero = 16,      // 0
      kGroup = 32,     // '
   };
   enum class Modifier { none, h, hh, l, ll, other };
   static constexpr int kUnset = -1;
   static constexpr int kHuge = 100000000;  // a width or precision from here on is not exact

   unsigned flags = 0;
   int width = kUnset;
   int precision = kUnset;
   Modifier modifier = Modifier::none;
   char letter = '\0';
   const char* modifiers = nullptr;  // where flags, width and precision end
};

namespace conversion {

inline bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

inline const char* parseNumber(const char* at, int& number) {
   number = 0;
   for (; isDigit(*at); ++at) {
      if (number < Conversion::kHuge)
         number = number * 10 + (*at - '0');
   }
   return at;
}

/** By character, from the blank to the zero: the flag that it is, or none. */
inline constexpr auto kFlags = [] {
   std::array<uint8_t, '0' - ' ' + 1> flags{};
   flags['-' - ' '] = Conversion::kLeft;
   flags['+' - ' '] = Conversion::kPlus;
   flags[0] = Conversion::kSpace;
   flags['#' - ' '] = Conversion::kAlternate;
   flags['0' - ' '] = Conversion::kZero;
   flags['\'' - ' '] = Conversion::kGroup;
   return flags;
}();

inline const char* parseFlags(const char* at, unsigned& flags) {
   for (;; ++at) {
      const auto index = static_cast<unsigned char>(*at - ' ');
      if (index >= kFlags.size() || kFlags[index] == 0)
         return at;
      flags |= kFlags[index];
   }
}

inline const char* parseModifier(const char* at, Conversion::Modifier& modifier) {
   using Modifier = Conversion::Modifier;
   switch (*at) {
      case 'l':
         modifier = at[1] == 'l' ? Modifier::ll : Modifier::l;
         return at + (at[1] == 'l' ? 2 : 1);
      case 'h':
         modifier = at[1] == 'h' ? Modifier::hh : Modifier::h;
         return at + (at[1] == 'h' ? 2 : 1);
      case 'j':
      case 'z':
      case 't':
      case 'L':
      case 'q':
         modifier = Modifier::other;
         return at + 1;
      default:
         return at;
   }
}

}  // namespace conversion

/** Takes the conversion apart whose percent sign stands before `at`. Returns the place behind it,
 * or null when it is anything but flags, width, precision, one length modifier and a letter. The
 * letter can be a percent sign, which is printed and takes no argument. */
inline const char* parseConversion(const char* at, Conversion& to) {
   if (*at <= '9') {  // not a letter yet
      at = conversion::parseFlags(at, to.flags);
      if (conversion::isDigit(*at))
         at = conversion::parseNumber(at, to.width);
      if (*at == '.')
         at = conversion::parseNumber(at + 1, to.precision);
   }
   to.modifiers = at;
   at = conversion::parseModifier(at, to.modifier);
   to.letter = *at;
   switch (*at) {
      case '%':
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
      case 'c':
      case 's':
      case 'p':
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
         return at + 1;
      default:
         return nullptr;
   }
}

}  // namespace vorel::text
