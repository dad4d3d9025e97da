#include <vorel/document/Json.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include <vorel/document/Utf8.h>
#include "document/Floating.h"

namespace vorel::detail {

namespace {

char* putEscape(char* out, unsigned char c) {
   const auto two = [out](char letter) {
      out[0] = '\\';
      out[1] = letter;
      return out + 2;
   };
   switch (c) {
      case '"':
      case '\\':
         return two(static_cast<char>(c));
      case '\b':
         return two('b');
      case '\f':
         return two('f');
      case '\n':
         return two('n');
      case '\r':
         return two('r');
      case '\t':
         return two('t');
      default:
         out = putLiteral(out, "\\u00");
         *out++ = static_cast<char>('0' + (c >> 4));
         *out++ = "0123456789abcdef"[c & 15];
         return out;
   }
}

/** Copies what stands as it is, up to the first character that may not, or up to where less than
 * sixteen bytes are left. */
void copyPlain(char*& out, const char*& from, const char* end) {
   while (end - from >= 16) {
      const __m128i block = load(from);
      store(out, block);
      const int special = _mm_movemask_epi8(PlainInJson::of(block)) ^ 0xffff;
      const int plain = special == 0 ? 16 : std::countr_zero(static_cast<unsigned>(special));
      out += plain;
      from += plain;
      if (special != 0)
         return;
   }
}

/** Copies characters of three bytes, such as most of East Asia's, as long as they are valid and at
 * least four bytes are left. */
void copyThreeBytes(char*& out, const char*& from, const char* end) {
   while (end - from >= 4) {
      uint32_t word = 0;
      std::memcpy(&word, from, sizeof word);
      const uint32_t lead = word & 0xff;
      const bool shaped = (word & 0x00c0c0f0) == 0x008080e0;
      const bool second = (word & 0x2000) != 0;  // from 0xa0 on
      // E0 must not be overlong, nor ED a surrogate.
      if (!shaped || (lead == 0xe0 && !second) || (lead == 0xed && second))
         return;
      std::memcpy(out, &word, sizeof word);
      out += 3;
      from += 3;
   }
}

char* putCharacter(char* out, const char*& from, const char* end) {
   const auto c = static_cast<unsigned char>(*from);
   const size_t length = decodeUtf8(from, static_cast<size_t>(end - from)).size;
   const char* const at = from;
   from += length == 0 ? 1 : length;
   if (length == 0)
      return putLiteral(out, "\\ufffd");
   if (c < 0x20 || c == '"' || c == '\\')
      return putEscape(out, c);
   return putBytes(out, {at, length});
}

}  // namespace

char* putEscaped(char* out, const char* from, size_t size) {
   const char* const end = from + size;
   while (from != end) {
      copyPlain(out, from, end);
      copyThreeBytes(out, from, end);
      if (from != end)
         out = putCharacter(out, from, end);
   }
   return out;
}

char* putFloating(char* out, double value) {
   return std::isfinite(value) ? putShortest(out, value) : putJson(out, nullptr);
}
char* putFloating(char* out, float value) {
   return std::isfinite(value) ? putShortest(out, value) : putJson(out, nullptr);
}

}  // namespace vorel::detail
