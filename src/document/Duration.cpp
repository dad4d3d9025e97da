#include <vorel/document/Duration.h>

#include <vorel/text/Number.h>

namespace vorel::detail {

DurationText::DurationText(bool negative, uint64_t seconds, uint64_t fraction, unsigned digits) {
   constexpr uint64_t kMinute = 60;
   constexpr uint64_t kHour = 60 * kMinute;
   constexpr uint64_t kDay = 24 * kHour;
   char* out = text_;
   if (negative)
      *out++ = '-';
   if (seconds >= kDay) {
      out = text::putNumber(out, seconds / kDay);
      *out++ = 'd';
      *out++ = ' ';
   }
   out = text::putDigits(out, seconds % kDay / kHour, 2);
   *out++ = ':';
   out = text::putDigits(out, seconds % kHour / kMinute, 2);
   *out++ = ':';
   out = text::putDigits(out, seconds % kMinute, 2);
   if (digits != 0) {
      *out++ = '.';
      out = text::putDigits(out, fraction, digits);
   }
   size_ = static_cast<size_t>(out - text_);
}

}  // namespace vorel::detail
