#include "document/Display.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include <vorel/document/CheckedCopy.h>
#include <vorel/document/Text.h>
#include <vorel/document/Utf8.h>

#include "document/WidthTable.h"

namespace vorel::detail {

namespace {

/** A character, or a byte that is part of none, and the columns that it takes. */
struct Symbol {
   size_t bytes;
   unsigned columns;
   bool harmless;  // else it is shown as a question mark
};

Symbol symbolAt(const char* at, const char* end) {
   const Character character = decodeUtf8(at, static_cast<size_t>(end - at));
   if (character.size == 0)
      return {1, 1, false};
   const uint32_t code = character.code;
   const uint32_t index = kWidthBlockOf[code / kWidthBlock] * kWidthBlock + code % kWidthBlock;
   const uint64_t word = kWidthBlocks[index / 32];
   const auto columns = static_cast<unsigned>(word >> index % 32 * 2) & 3;
   return columns == kHarmful ? Symbol{character.size, 1, false}
                              : Symbol{character.size, columns, true};
}

bool isPlain(char c) {
   return c >= ' ' && c < '\x7f';
}

/** Copies plain characters, at most `most`, and returns how many. */
size_t copyPlain(char* out, const char* from, size_t most) {
   size_t at = 0;
   for (; most - at >= 16; at += 16) {
      const __m128i block = load(from + at);
      store(out + at, block);
      const auto others =
            static_cast<unsigned>(_mm_movemask_epi8(PlainInText::of(block))) ^ 0xffffU;
      if (others != 0)
         return at + static_cast<size_t>(std::countr_zero(others));
   }
   for (; at < most && isPlain(from[at]); ++at)
      out[at] = from[at];
   return at;
}

/** Copies a character; four bytes in one go, if they are there. */
char* copySymbol(char* out, const char* from, size_t bytes, const char* end) {
   if (end - from >= 4)
      std::memcpy(out, from, 4);
   else
      std::memmove(out, from, bytes);
   return out + bytes;
}

}  // namespace

Shown putHarmless(char* out, std::string_view text, size_t mostColumns) {
   const char* from = text.data();
   const char* const end = from + text.size();
   char* at = out;
   size_t left = mostColumns;
   while (from != end) {
      if (isPlain(*from)) {
         const size_t plain = copyPlain(at, from, std::min(static_cast<size_t>(end - from), left));
         if (plain == 0)
            break;
         from += plain;
         at += plain;
         left -= plain;
         continue;
      }
      const Symbol symbol = symbolAt(from, end);
      if (symbol.columns > left)
         break;
      if (symbol.harmless)
         at = copySymbol(at, from, symbol.bytes, end);
      else
         *at++ = '?';
      from += symbol.bytes;
      left -= symbol.columns;
   }
   return {static_cast<size_t>(at - out), mostColumns - left};
}

size_t displayWidth(std::string_view text) {
   const char* const end = text.data() + text.size();
   size_t columns = 0;
   for (const char* at = text.data(); at != end;) {
      const Symbol symbol = symbolAt(at, end);
      columns += symbol.columns;
      at += symbol.bytes;
   }
   return columns;
}

}  // namespace vorel::detail
