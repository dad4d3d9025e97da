#include <vorel/document/Text.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include <vorel/text/Number.h>
#include "document/Display.h"
#include "document/Floating.h"

namespace vorel::detail {

namespace {

char* putFill(char* out, const Style& style, size_t columns) {
   if (style.fillSize == 1) {
      std::memset(out, style.fill[0], columns);
      return out + columns;
   }
   for (; columns != 0; --columns)
      out = std::copy_n(style.fill, style.fillSize, out);
   return out;
}

/** Fills up what stands at `out` to the style's width, on one side or both. */
char* pad(char* out, Shown shown, const Style& style, char side) {
   const auto width = static_cast<size_t>(style.width);
   if (shown.columns >= width)
      return out + shown.bytes;
   const size_t missing = width - shown.columns;
   const size_t before = side == '<' ? 0 : side == '>' ? missing : missing / 2;
   if (before != 0) {
      std::memmove(out + before * style.fillSize, out, shown.bytes);
      putFill(out, style, before);
   }
   return putFill(out + before * style.fillSize + shown.bytes, style, missing - before);
}

/** The same for ASCII. */
char* pad(char* out, const char* end, const Style& style, char side) {
   const auto size = static_cast<size_t>(end - out);
   return pad(out, Shown{size, size}, style, side);
}

/** The same for a number, whose zeros stand before its digits: behind sign and prefix. */
char* padNumber(char* out, char* digits, char* end, const Style& style) {
   const auto size = static_cast<size_t>(end - out);
   const auto width = static_cast<size_t>(style.width);
   if (!style.zero || style.align != '\0' || size >= width)
      return pad(out, end, style, sideOf(style, TextKind::floating));
   std::memmove(digits + (width - size), digits, static_cast<size_t>(end - digits));
   std::memset(digits, '0', width - size);
   return out + width;
}

char* putSign(char* out, const Style& style, bool negative) {
   if (negative)
      *out++ = '-';
   else if (style.sign == '+' || style.sign == ' ')
      *out++ = style.sign;
   return out;
}

void makeUpper(char* from, const char* end) {
   for (; from != end; ++from)
      *from = static_cast<char>(*from >= 'a' && *from <= 'z' ? *from - ('a' - 'A') : *from);
}

// Integers

char* putPrefix(char* out, const Style& style, uint64_t magnitude) {
   const bool octal = style.type == 'o';
   if (!style.alternate || style.type == '\0' || style.type == 'd' || (octal && magnitude == 0))
      return out;
   *out++ = '0';
   if (!octal)
      *out++ = style.type;
   return out;
}

char* putDigits(char* out, char type, uint64_t magnitude) {
   if (type == '\0' || type == 'd')
      return text::putNumber(out, magnitude);
   const int base = type == 'o' ? 8 : type == 'b' || type == 'B' ? 2 : 16;
   char* const end = std::to_chars(out, out + 64, magnitude, base).ptr;
   if (type == 'X')
      makeUpper(out, end);
   return end;
}

char* putInteger(char* out, const Style& style, bool negative, uint64_t magnitude) {
   if (style.type == 'c') {
      const char character = !negative && magnitude < 0x80 ? static_cast<char>(magnitude) : '?';
      return putStyled(out, style, std::string_view(&character, 1));
   }
   char* const digits = putPrefix(putSign(out, style, negative), style, magnitude);
   return padNumber(out, digits, putDigits(digits, style.type, magnitude), style);
}

// Floating-point numbers

bool isGeneral(char type) {
   return type == '\0' || type == 'g';
}

/** The digits that a style asks for; -1 for as many as it takes. */
int precisionOf(const Style& style, char type) {
   const bool asItTakes = type == '\0' || type == 'a';
   return style.precision >= 0 || asItTakes ? style.precision : 6;
}

/** A number with as many digits after the point. */
char* putFixed(char* out, char* limit, double magnitude, int precision) {
   constexpr int kMostExact = 9;
   text::FixedPoint fixed;
   const auto digits = static_cast<unsigned>(precision);
   if (precision > kMostExact || !text::toFixedPoint(magnitude, digits, fixed))
      return std::to_chars(out, limit, magnitude, std::chars_format::fixed, precision).ptr;
   out = text::putNumber(out, fixed.whole);
   if (precision == 0)
      return out;
   *out = '.';
   return text::putDigits(out + 1, fixed.fraction, digits);
}

/** The type of the magnitude matters to the shortest form alone. */
template <class Float>
char* putMagnitude(char* out, char* limit, char type, int precision, Float magnitude) {
   const double number = magnitude;
   switch (type) {
      case 'a':
         return precision < 0
                      ? std::to_chars(out, limit, number, std::chars_format::hex).ptr
                      : std::to_chars(out, limit, number, std::chars_format::hex, precision).ptr;
      case 'e':
         return std::to_chars(out, limit, number, std::chars_format::scientific, precision).ptr;
      case 'f':
         return putFixed(out, limit, number, precision);
      default:
         return precision < 0
                      ? putShortest(out, magnitude)
                      : std::to_chars(out, limit, number, std::chars_format::general, precision)
                              .ptr;
   }
}

/** How many of a number's digits count. */
int significantDigits(std::string_view digits) {
   const size_t first = digits.find_first_not_of("0.");
   if (first == digits.npos)
      return 1;
   const auto points =
         std::count(digits.begin() + static_cast<ptrdiff_t>(first), digits.end(), '.');
   return static_cast<int>(digits.size() - first) - static_cast<int>(points);
}

/** Gives a number the point and the zeros that the general form leaves out. */
char* completeDigits(char* digits, char* end, char type, int precision) {
   const std::string_view text(digits, static_cast<size_t>(end - digits));
   const size_t size = std::min(text.find(type == 'a' ? 'p' : 'e'), text.size());
   const bool hasPoint = text.find('.') != text.npos;
   int zeros = 0;
   if (isGeneral(type)) {
      zeros = std::max(precision - significantDigits(text.substr(0, size)), 0);
      if (!hasPoint && size == text.size())
         zeros = std::max(zeros, 1);
   }
   const size_t more = static_cast<size_t>(zeros) + (hasPoint ? 0 : 1);
   char* const mark = digits + size;
   std::memmove(mark + more, mark, text.size() - size);
   std::memset(mark, '0', more);
   if (!hasPoint)
      *mark = '.';
   return end + more;
}

template <class Float>
char* putFinite(char* out, char* limit, const Style& style, char type, Float magnitude) {
   const int precision = precisionOf(style, type);
   char* const end = putMagnitude(out, limit, type, precision, magnitude);
   return style.alternate ? completeDigits(out, end, type, precision) : end;
}

template <class Float>
char* putFloatingPoint(char* out, const Style& style, Float value) {
   const bool upper = style.type >= 'A' && style.type <= 'Z';
   const auto type = static_cast<char>(upper ? style.type - 'A' + 'a' : style.type);
   const bool finite = std::isfinite(value);
   char* const prefix = putSign(out, style, std::signbit(value));
   char* const digits = finite && type == 'a' ? putLiteral(prefix, "0x") : prefix;
   char* const end =
         finite ? putFinite(digits, out + numberRoom(style), style, type, std::fabs(value))
                : putBytes(digits, std::isnan(value) ? "nan" : "inf");
   if (upper)
      makeUpper(prefix, end);
   return finite ? padNumber(out, digits, end, style)
                 : pad(out, end, style, sideOf(style, TextKind::floating));
}

}  // namespace

char* putStyled(char* out, const Style& style, std::string_view value) {
   const size_t most = style.precision < 0 ? SIZE_MAX : static_cast<size_t>(style.precision);
   return pad(out, putHarmless(out, value, most), style, sideOf(style, TextKind::string));
}
char* putStyled(char* out, const Style& style, int64_t value) {
   const auto bits = static_cast<uint64_t>(value);
   return putInteger(out, style, value < 0, value < 0 ? 0 - bits : bits);
}
char* putStyled(char* out, const Style& style, uint64_t value) {
   return putInteger(out, style, false, value);
}
char* putStyled(char* out, const Style& style, double value) {
   return putFloatingPoint(out, style, value);
}
char* putStyled(char* out, const Style& style, float value) {
   return putFloatingPoint(out, style, value);
}

char* putMissing(char* out, const Style& style, TextKind kind) {
   *out = '-';
   return pad(out, out + 1, style, sideOf(style, kind));
}

char* putPadded(char* out, const Style& style, char side, std::string_view text) {
   std::copy(text.begin(), text.end(), out);
   return pad(out, Shown{text.size(), displayWidth(text)}, style, side);
}

}  // namespace vorel::detail
