// Values under random styles. Numbers print as {fmt} prints them, strings as a model says that
// knows the columns of some characters; and nothing is written beyond the room that is asked for.
#include <fmt/format.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include <vorel/document/Text.h>

#include "Input.h"

using namespace vorel::detail;
using vorel::Style;

namespace {

/** A style in its parts. */
struct Words {
   std::string fill, align, flags, zero, width, precision, type;

   std::string text() const { return fill + align + flags + zero + width + precision + type; }
};

Words takeWords(Input& input, std::string_view types, bool isNumber, bool hasPrecision) {
   const auto oneOf = [&](const std::vector<std::string>& of) {
      return of[input.below(of.size())];
   };
   Words words;
   words.align = oneOf({"", "", "<", ">", "^"});
   if (!words.align.empty())
      words.fill = oneOf({"", "*", "x", "\u3042", "\U0001f600"});
   if (isNumber) {
      words.flags = oneOf({"", "+", "-", " "}) + oneOf({"", "#"});
      words.zero = oneOf({"", "0"});
   }
   if (input.below(3) != 0)
      words.width = std::to_string(1 + input.below(30));
   if (hasPrecision && input.below(2) != 0)
      words.precision = "." + std::to_string(input.below(100) == 0 ? 400 : input.below(25));
   words.type = types.substr(input.below(types.size() + 1)).substr(0, 1);
   return words;
}

/** What {fmt} prints, for which alignment does not end the filling with zeros. */
template <class Value>
std::string formatted(Words words, Value value) {
   words.zero = words.align.empty() ? words.zero : "";
   return fmt::format(fmt::runtime("{:" + words.text() + "}"), value);
}

/** Whether `put(out, style)` puts this into `room(style)` bytes. */
template <class Room, class Put>
void check(const Words& words, const std::string& expected, Room room, Put put) {
   constexpr char kUntouched = '\x7e';
   Style style;
   const bool parsed = parseStyle(words.text(), style);
   std::string out(room(style) + 32, kUntouched);
   const auto size = static_cast<size_t>(put(out.data(), style) - out.data());
   const bool inside = out.find_first_not_of(kUntouched, room(style)) == out.npos;
   if (!parsed || !inside || out.substr(0, size) != expected)
      throw std::logic_error("{:" + words.text() + "} gives " + out + ", not " + expected);
}

template <class Number>
void checkNumber(const Words& words, Number value, const std::string& expected) {
   check(words, expected, numberRoom,
         [&](char* out, const Style& style) { return putStyled(out, style, value); });
}

void checkIntegers(Input& input) {
   __extension__ using Wide = __int128;  // signed, as {fmt} knows no sign of unsigned numbers
   const uint64_t value = input.word() >> input.below(64);
   const Words words = takeWords(input, "dxXobB", true, false);
   checkNumber(words, value, formatted(words, static_cast<Wide>(value)));
   checkNumber(words, static_cast<int64_t>(value), formatted(words, static_cast<int64_t>(value)));

   Words other = takeWords(input, "", false, false);
   const std::string character(1, value > 31 && value < 127 ? static_cast<char>(value) : '?');
   const std::string expected = formatted(other, character);
   other.type = "c";
   checkNumber(other, value, expected);

   other.type.clear();
   Words missing = other;
   missing.align = other.align.empty() ? ">" : other.align;
   check(other, formatted(missing, "-"), numberRoom,
         [](char* out, const Style& style) { return putMissing(out, style, TextKind::floating); });
}

template <class Float>
void checkFloating(Input& input, Float value) {
   Words words = takeWords(input, "aAeEfFgG", true, true);
   if (words.type == "a" || words.type == "A")
      words.zero.clear();  // {fmt} puts them before the prefix
   Words other = words;
   if (!std::isfinite(value)) {
      other.zero.clear();
      other.align = words.align.empty() ? ">" : words.align;
   }
   checkNumber(words, value, formatted(other, value));

   const std::string shortest = formatted({}, value);
   checkNumber({}, value, shortest);
   Float back = 0;
   std::from_chars(shortest.data(), shortest.data() + shortest.size(), back);
   if (back != value && !std::isnan(value))
      throw std::logic_error("read back otherwise: " + shortest);
}

double takeDouble(Input& input) {
   const uint64_t bits = input.word();
   const double power = std::pow(10, static_cast<int>(input.below(60)) - 30);
   switch (input.below(4)) {
      case 0:
         return std::bit_cast<double>(bits);
      case 1:  // where exponents begin to be written, and where rounding makes a digit more
         return std::bit_cast<double>(std::bit_cast<uint64_t>(power) + bits % 3 - 1);
      case 2:
         return std::vector<double>{NAN, -HUGE_VAL, -0.0, 9.9e-5}[bits % 4];
      default:  // few digits
         return -static_cast<double>(bits >> input.below(64)) / power;
   }
}

/** A text, and what is shown of it: one character, or ASCII. */
struct Piece {
   std::string text, shown;
   size_t columns;  // of each character
};

const std::vector<Piece> kPieces = [] {
   std::vector<Piece> pieces = {{"ten and ten characters", "ten and ten characters", 1},
                                {"\xff", "?", 1},
                                {"\x80", "?", 1},
                                {"\xc0\x80", "??", 1},
                                {"\xe3\x81|", "??|", 1},
                                {"\xed\xa0\x80", "???", 1},
                                {"\xf4\x90\x80\x80", "????", 1}};
   const auto add = [&](size_t columns, std::string_view texts, bool harmless = true) {
      for (const char c : texts) {
         if (!isContinuation(c))
            pieces.push_back({"", "", columns});
         pieces.back().text += c;
         pieces.back().shown = harmless ? pieces.back().text : "?";
      }
   };
   add(1,
       "\u00a0\u00ad\u10ff\u1160\u2029\u202f\u2065\u206a\u2328\u232b\u2e7f\u303f\ua4d0\uabff"
       "\ud7a4\uf8ff\ufb00\ufe1a\ufe70\uff61\uffe7\U0001f2ff\U0001f650\U0001fa00\U0010ffff");
   add(2,
       "\u1100\u115f\u2329\u232a\u2e80\u303e\u3040\ua4cf\uac00\ud7a3\uf900\ufaff\ufe10\ufe19"
       "\ufe30\ufe6f\uff00\uff60\uffe0\uffe6\U0001f300\U0001f64f\U0001f900\U00020000\U0003fffd");
   add(0, "\u0300\u0488\u200b\u200d\u2060\ufeff\u20dd\u302a\u3099\U000e0100");
   add(1, {"\0\x1f\x7f\u0080\u009f\u202a\u202e\u2066\u2069", 19}, false);
   return pieces;
}();

void checkString(Input& input) {
   const Words words = takeWords(input, "s", false, true);
   const size_t most = words.precision.empty() ? SIZE_MAX : std::stoul(words.precision.substr(1));
   std::string text, shown;
   size_t columns = 0, width = 0;
   bool cut = false;
   for (size_t count = input.below(20); count != 0; --count) {
      const Piece& piece = kPieces[text.empty() ? 0 : input.below(kPieces.size())];
      const size_t size = piece.shown[0] < 0 ? piece.shown.size() : 1;  // of a character
      text += piece.text;
      for (size_t at = 0; at != piece.shown.size(); at += size) {
         width += piece.columns;
         cut = cut || columns + piece.columns > most;
         columns += cut ? 0 : piece.columns;
         shown += cut ? "" : piece.shown.substr(at, size);
      }
   }
   std::string expected = formatted(words, std::string(columns, '\1'));
   expected.replace(std::min(expected.find('\1'), expected.size()), columns, shown);
   const auto room = [&](const Style& style) { return text.size() + paddingRoom(style); };
   check(words, expected, room, [&](char* out, const Style& style) {
      return putStyled(out, style, std::string_view(text));
   });
   check(words, expected, room, [&](char* out, const Style& style) {
      return putPadded(out, style, sideOf(style, TextKind::string), shown);
   });
   if (displayWidth(text) != width)
      throw std::logic_error("another width: " + text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   while (!input.empty()) {
      checkIntegers(input);
      const double number = takeDouble(input);
      checkFloating(input, number);
      checkFloating(input, static_cast<float>(number));
      checkString(input);
   }
   return 0;
}
