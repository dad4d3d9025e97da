#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>

// Copying and filling of short stretches, which is most of what rendering does: a call of the C
// library's functions costs more there than the work itself.
namespace vorel::text {

namespace copy {

/** Copies from half to all of 2 * Half bytes, as two halves that may overlap. */
template <size_t Half>
void halves(char* out, const char* from, size_t size) {
   char first[Half];
   char last[Half];
   std::memcpy(first, from, Half);
   std::memcpy(last, from + size - Half, Half);
   std::memcpy(out, first, Half);
   std::memcpy(out + size - Half, last, Half);
}

/** Copies 16 to 48 bytes, as three thirds that may overlap: without a branch, since descriptions
 * and the like have all these sizes. */
inline void thirds(char* out, const char* from, size_t size) {
   constexpr size_t kThird = 16;
   const size_t middle = std::min(size - kThird, kThird);
   char parts[3][kThird];
   std::memcpy(parts[0], from, kThird);
   std::memcpy(parts[1], from + middle, kThird);
   std::memcpy(parts[2], from + size - kThird, kThird);
   std::memcpy(out, parts[0], kThird);
   std::memcpy(out + middle, parts[1], kThird);
   std::memcpy(out + size - kThird, parts[2], kThird);
}

template <size_t Half>
void fillHalves(char* out, char c, size_t size) {
   std::memset(out, c, Half);
   std::memset(out + size - Half, c, Half);
}

}  // namespace copy

/** Copies a text, and returns its end. */
inline char* put(char* out, std::string_view text) {
   const char* const from = text.data();
   const size_t size = text.size();
   if (size > 48) {
      std::memcpy(out, from, size);
   } else if (size >= 16) {
      copy::thirds(out, from, size);
   } else if (size >= 8) {
      copy::halves<8>(out, from, size);
   } else if (size >= 4) {
      copy::halves<4>(out, from, size);
   } else if (size != 0) {
      out[0] = from[0];
      out[size / 2] = from[size / 2];
      out[size - 1] = from[size - 1];
   }
   return out + size;
}

/** Fills with one character, and returns the end. */
inline char* fill(char* out, char c, size_t size) {
   if (size > 32)
      std::memset(out, c, size);
   else if (size >= 16)
      copy::fillHalves<16>(out, c, size);
   else if (size >= 8)
      copy::fillHalves<8>(out, c, size);
   else if (size >= 4)
      copy::fillHalves<4>(out, c, size);
   else if (size != 0)
      out[0] = out[size / 2] = out[size - 1] = c;
   return out + size;
}

}  // namespace vorel::text
