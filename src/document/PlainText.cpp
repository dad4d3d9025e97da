#include <algorithm>

#include <vorel/document/CheckedCopy.h>
#include <vorel/document/Text.h>
#include <vorel/text/Number.h>

namespace vorel::detail {

namespace {

/** Puts blanks, whole blocks of them: up to fifteen more than `count`. */
void putBlanks(char* out, size_t count) {
   for (size_t i = 0; i < count; i += kBlock)
      store(out + i, _mm_set1_epi8(' '));
}

template <class Number>
char* putDecimal(char* out, Number value, size_t width, char side) {
   if (side == '<') {
      char* const end = text::putNumber(out, value);
      putBlanks(end, width);
      return std::max(end, out + width);
   }
   const bool negative = std::is_signed_v<Number> && value < 0;
   const auto bits = static_cast<uint64_t>(value);
   const size_t size = text::countDigits(negative ? 0 - bits : bits) + (negative ? 1 : 0);
   putBlanks(out, width);
   return text::putNumber(out + (width > size ? width - size : 0), value);
}

}  // namespace

char* putPlainString(char* out, std::string_view value, size_t width, char side) {
   const size_t size = value.size();
   const size_t before = side == '>' && width > size ? width - size : 0;
   putBlanks(out, width);
   if (copyChecked<PlainInText>(out + before, value.data(), size)) [[likely]]
      return out + std::max(size, width);
   Style style;
   style.width = static_cast<int>(width);
   style.align = side;
   return putStyled(out, style, value);
}

char* putPlainDecimal(char* out, int32_t value, size_t width, char side) {
   return putDecimal(out, value, width, side);
}
char* putPlainDecimal(char* out, uint32_t value, size_t width, char side) {
   return putDecimal(out, value, width, side);
}
char* putPlainDecimal(char* out, int64_t value, size_t width, char side) {
   return putDecimal(out, value, width, side);
}
char* putPlainDecimal(char* out, uint64_t value, size_t width, char side) {
   return putDecimal(out, value, width, side);
}

}  // namespace vorel::detail
