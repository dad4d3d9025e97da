#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorel::detail {

// Looking into text while the program is compiled. Not the functions of std::string_view: they pass
// characters by reference, and g++ with -fsanitize=undefined takes the address of a character in a
// literal for no constant.

/** The first place of `c` from `begin` on; npos if there is none. */
constexpr size_t findIn(std::string_view text, char c, size_t begin = 0) {
   for (size_t i = begin; i < text.size(); ++i)
      if (text.data()[i] == c)
         return i;
   return std::string_view::npos;
}
constexpr bool isIn(std::string_view text, char c) {
   return findIn(text, c) != std::string_view::npos;
}
constexpr bool isSame(std::string_view a, std::string_view b) {
   if (a.size() != b.size())
      return false;
   for (size_t i = 0; i < a.size(); ++i)
      if (a.data()[i] != b.data()[i])
         return false;
   return true;
}

/** A character as UTF-8 encodes it. */
struct Character {
   uint32_t code = 0;
   size_t size = 0;  ///< In bytes; 0 when the bytes are not valid UTF-8.
};

constexpr bool isContinuation(char c) {
   return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

/** Decodes the character at the start of `size` bytes, at least one. Valid is what the Unicode
 * Standard's table of well-formed byte sequences lists: no overlong form, no surrogate, nothing
 * beyond U+10FFFF. */
constexpr Character decodeUtf8(const char* at, size_t size) {
   const auto byte = [at](size_t i) { return static_cast<uint32_t>(static_cast<uint8_t>(at[i])); };
   const uint32_t lead = byte(0);
   if (lead < 0x80)
      return {lead, 1};
   const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
   if (lead < 0xc2 || lead > 0xf4 || size < length)
      return {};
   uint32_t code = lead & (0xffU >> (length + 1));
   for (size_t i = 1; i < length; ++i) {
      if (!isContinuation(at[i]))
         return {};
      code = code << 6 | (byte(i) & 0x3f);
   }
   const bool overlong = code < (length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U);
   if (overlong || (code >= 0xd800 && code < 0xe000) || code > 0x10ffff)
      return {};
   return {code, length};
}

}  // namespace vorel::detail
