#include "SafeText.h"

namespace {

/** The byte at `place`, 0 past the end. */
unsigned byteAt(std::string_view text, size_t place) {
   return place < text.size() ? static_cast<unsigned char>(text[place]) : 0;
}

/** How many bytes the valid UTF-8 character at the start of `text` has; 0 when there is none. */
size_t characterLength(std::string_view text) {
   const unsigned first = byteAt(text, 0);
   if (first < 0x80)
      return 1;
   if (first < 0xC2 || first > 0xF4)
      return 0;
   // Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
   const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
   const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
   if (byteAt(text, 1) < low || byteAt(text, 1) > high)
      return 0;
   const size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
   for (size_t place = 2; place < length; ++place) {
      if ((byteAt(text, place) & 0xC0) != 0x80)
         return 0;
   }
   return length;
}

/** Takes one character off the start of `text`; the result is empty for an invalid byte. */
std::string_view takeCharacter(std::string_view& text) {
   const std::string_view character = text.substr(0, characterLength(text));
   text.remove_prefix(character.empty() ? 1 : character.size());
   return character;
}

}  // namespace

std::string jsonText(std::string_view text) {
   static constexpr char kDigits[] = "0123456789abcdef";
   std::string result;
   while (!text.empty()) {
      const std::string_view character = takeCharacter(text);
      const unsigned code = byteAt(character, 0);
      if (character.empty()) {
         result += "\\ufffd";
      } else if (code < 0x20) {
         result += "\\u00";
         result += kDigits[code / 16];
         result += kDigits[code % 16];
      } else {
         if (code == '"' || code == '\\')
            result += '\\';
         result += character;
      }
   }
   return result;
}

std::string terminalText(std::string_view text) {
   std::string result;
   while (!text.empty()) {
      const std::string_view character = takeCharacter(text);
      const unsigned code = byteAt(character, 0);
      // U+0080 to U+009F are control characters as well.
      const bool control =
            code < 0x20 || code == 0x7F || (code == 0xC2 && byteAt(character, 1) < 0xA0);
      result += character.empty() || control ? "?" : character;
   }
   return result;
}
