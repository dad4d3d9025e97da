#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <vorel/document/Utf8.h>

namespace vorel {

/** How the text of a value looks: what stands behind the colon of a field, as in std::format. */
struct Style {
   char fill[4] = {' ', '\0', '\0', '\0'};  ///< One character, as UTF-8.
   uint8_t fillSize = 1;                    ///< Its bytes.
   char align = '\0';                       ///< '<', '>', '^'; NUL for the side of the type.
   char sign = '\0';                        ///< '+', '-', ' '; NUL for none.
   bool alternate = false;
   bool zero = false;
   int width = 0;       ///< In columns of the display; 0 for none.
   int precision = -1;  ///< Columns of a string, digits of a number; -1 for none.
   char type = '\0';    ///< NUL for the type's own.
};

namespace detail {

/** What a value's text is, as far as styles are concerned. */
enum class TextKind : uint8_t { integer, floating, string, boolean, character };

constexpr bool isAlign(char c) {
   return c == '<' || c == '>' || c == '^';
}

/** The most that width and precision may be. */
constexpr int kMostColumns = 9999;

/** Reads a number of digits, not more than kMostColumns; -1 when there are none or it is larger. */
constexpr int parseCount(std::string_view& text) {
   int count = -1;
   while (!text.empty() && text[0] >= '0' && text[0] <= '9') {
      count = (count < 0 ? 0 : count) * 10 + (text[0] - '0');
      if (count > kMostColumns)
         return -1;
      text.remove_prefix(1);
   }
   return count;
}

/** Takes what is one of `choices` off the front of `text`; NUL if nothing is. */
constexpr char takeOneOf(std::string_view& text, std::string_view choices) {
   if (text.empty() || !isIn(choices, text[0]))
      return '\0';
   const char taken = text[0];
   text.remove_prefix(1);
   return taken;
}

/** Reads a style, `[[fill]align][sign][#][0][width][.precision][type]`; false when it is none. */
constexpr bool parseStyle(std::string_view text, Style& style) {
   if (text.empty())
      return true;
   const size_t fillSize = decodeUtf8(text.data(), text.size()).size;
   if (fillSize != 0 && fillSize < text.size() && isAlign(text[fillSize])) {
      for (size_t i = 0; i < fillSize; ++i)
         style.fill[i] = text[i];
      style.fillSize = static_cast<uint8_t>(fillSize);
      text.remove_prefix(fillSize);
   }
   style.align = takeOneOf(text, "<>^");
   style.sign = takeOneOf(text, "+- ");
   style.alternate = takeOneOf(text, "#") != '\0';
   style.zero = takeOneOf(text, "0") != '\0';
   if (!text.empty() && text[0] >= '1' && text[0] <= '9') {
      style.width = parseCount(text);
      if (style.width < 0)
         return false;
   }
   if (takeOneOf(text, ".") != '\0') {
      style.precision = parseCount(text);
      if (style.precision < 0)
         return false;
   }
   style.type = takeOneOf(text, "dxXobBcaAeEfFgGs");
   return text.empty();
}

/** Whether a style can be that of a text of this kind. */
constexpr bool styleFits(const Style& style, TextKind kind) {
   const auto typeIsIn = [&style](std::string_view types) {
      return style.type == '\0' || isIn(types, style.type);
   };
   const bool numeric = style.sign != '\0' || style.alternate || style.zero;
   switch (kind) {
      case TextKind::integer:
         return style.precision < 0 && typeIsIn("dxXobBc") && !(style.type == 'c' && numeric);
      case TextKind::floating:
         return typeIsIn("aAeEfFgG");
      case TextKind::string:
      case TextKind::boolean:
         return typeIsIn("s") && !numeric;
      case TextKind::character:
         return typeIsIn("c") && !numeric && style.precision < 0;
   }
   return false;
}

/** The side on which a text of this kind stands: '<', '>' or '^'. */
constexpr char sideOf(const Style& style, TextKind kind) {
   if (style.align != '\0')
      return style.align;
   const bool number = kind == TextKind::integer || kind == TextKind::floating;
   return number && style.type != 'c' ? '>' : '<';
}

}  // namespace detail

}  // namespace vorel
