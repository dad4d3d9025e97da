#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Copying text and finding out on the way whether all of it can stand as it is. Sixteen bytes at a
// time, and without branches that depend on what the bytes are.
namespace vorel::detail {

/** What stands in JSON as it is. (ASCII only: what else is valid takes a closer look.) */
struct PlainInJson {
   static __m128i of(__m128i bytes) {
      const __m128i printable = _mm_cmpgt_epi8(bytes, _mm_set1_epi8(0x1f));  // signed: not >= 0x80
      const __m128i escaped = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                           _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
      return _mm_andnot_si128(escaped, printable);
   }
};

/** What stands in text as it is, each a column wide. */
struct PlainInText {
   static __m128i of(__m128i bytes) {
      const __m128i printable = _mm_cmpgt_epi8(bytes, _mm_set1_epi8(0x1f));
      return _mm_andnot_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(0x7f)), printable);
   }
};

inline __m128i load(const char* from) {
   return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}
inline void store(char* out, __m128i bytes) {
   _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
}

/** Copies from one to two of `Word` as two that may overlap, and returns both, repeated. */
template <class Word>
__m128i copyEnds(char* out, const char* from, size_t size) {
   Word first;
   Word last;
   std::memcpy(&first, from, sizeof first);
   std::memcpy(&last, from + size - sizeof last, sizeof last);
   std::memcpy(out, &first, sizeof first);
   std::memcpy(out + size - sizeof last, &last, sizeof last);
   if constexpr (sizeof(Word) == 8)
      return _mm_set_epi64x(static_cast<int64_t>(last), static_cast<int64_t>(first));
   else
      return _mm_set1_epi64x(static_cast<int64_t>(uint64_t{last} << 32 | first));
}

/** Copies `size` bytes; returns whether all of them are plain. */
template <class Plain>
[[gnu::always_inline]] inline bool copyChecked(char* out, const char* from, size_t size) {
   __m128i plain;
   if (size >= 16) {
      // Three blocks that may overlap do for up to 48 bytes.
      const size_t last = size - 16;
      const size_t middle = std::min(last, size_t{16});
      const __m128i a = load(from);
      const __m128i b = load(from + middle);
      const __m128i c = load(from + last);
      store(out, a);
      store(out + middle, b);
      store(out + last, c);
      plain = _mm_and_si128(_mm_and_si128(Plain::of(a), Plain::of(b)), Plain::of(c));
      for (size_t at = 32; at < last; at += 16) {
         const __m128i block = load(from + at);
         store(out + at, block);
         plain = _mm_and_si128(plain, Plain::of(block));
      }
   } else if (size >= 8) {
      plain = Plain::of(copyEnds<uint64_t>(out, from, size));
   } else if (size >= 4) {
      plain = Plain::of(copyEnds<uint32_t>(out, from, size));
   } else if (size != 0) {
      const char first = from[0];
      const char middle = from[size / 2];
      const char last = from[size - 1];
      out[0] = first;
      out[size / 2] = middle;
      out[size - 1] = last;
      const auto byte = [](char c) { return static_cast<uint32_t>(static_cast<unsigned char>(c)); };
      const uint32_t word = byte(first) << 24 | byte(middle) << 16 | byte(last) << 8 | byte(last);
      plain = Plain::of(_mm_set1_epi32(static_cast<int32_t>(word)));
   } else {
      return true;
   }
   return _mm_movemask_epi8(plain) == 0xffff;
}

}  // namespace vorel::detail
