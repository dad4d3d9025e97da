#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <string_view>

#include <vorel/document/Value.h>

namespace vorel {

namespace detail {

#pragma GCC visibility push(default)
/** The text of a duration, `2d 03:04:05`. */
class DurationText {
 public:
   /** `fraction` is in units of a second divided by ten to the power of `digits`, at most nine. */
   DurationText(bool negative, uint64_t seconds, uint64_t fraction, unsigned digits);
   operator std::string_view() const { return {text_, size_}; }

 private:
   char text_[48];
   size_t size_;
};
#pragma GCC visibility pop

}  // namespace detail

namespace detail {
/** A std::chrono::duration. Known by what it has, since its header takes long to compile. */
template <class T>
concept Duration = requires(const T& value) {
   typename T::rep;
   typename T::period;
   { T::period::num } -> std::convertible_to<intmax_t>;
   { T::period::den } -> std::convertible_to<intmax_t>;
   { value.count() } -> std::same_as<typename T::rep>;
};
}  // namespace detail

/** A duration: seconds as a number in JSON, days, hours, minutes and seconds in text. */
template <detail::Duration Duration>
struct Value<Duration> {
   using Rep = typename Duration::rep;
   using Period = typename Duration::period;
   static constexpr bool kWholeSeconds = Period::den == 1 && std::integral<Rep>;

   /** Seconds; beyond 64 bits, the most or least that these hold. */
   static auto data(const Duration& value) {
      if constexpr (kWholeSeconds) {
         int64_t seconds = 0;
         if (__builtin_mul_overflow(value.count(), Period::num, &seconds))
            seconds = value.count() < 0 ? std::numeric_limits<int64_t>::min()
                                        : std::numeric_limits<int64_t>::max();
         return seconds;
      } else {
         return static_cast<double>(value.count()) * static_cast<double>(Period::num) /
                static_cast<double>(Period::den);
      }
   }

   static detail::DurationText text(const Duration& value) {
      constexpr unsigned kDigits = digits();
      constexpr uint64_t kUnits = unitsPerSecond();
      __extension__ using Wide = unsigned __int128;
      const bool negative = value.count() < Rep{};
      Wide units;
      if constexpr (std::integral<Rep>) {
         const auto bits = static_cast<uint64_t>(value.count());
         units = Wide{negative ? 0 - bits : bits} * Period::num * kUnits / Period::den;
      } else {
         // What is no number or beyond all measure shows as the most.
         const double exact = (negative ? -data(value) : data(value)) * static_cast<double>(kUnits);
         units = exact < 1e28 ? static_cast<Wide>(exact) : Wide{UINT64_MAX} * kUnits;
      }
      const Wide seconds = units / kUnits;
      return {negative, seconds > UINT64_MAX ? UINT64_MAX : static_cast<uint64_t>(seconds),
              static_cast<uint64_t>(units % kUnits), kDigits};
   }

 private:
   /** How many digits a fraction of a second has: 3 for milliseconds, none for seconds. */
   static constexpr unsigned digits() {
      unsigned count = 0;
      for (intmax_t unit = 1; unit < Period::den && count < 9; unit *= 10)
         ++count;
      return count;
   }
   static constexpr uint64_t unitsPerSecond() {
      uint64_t units = 1;
      for (unsigned i = 0; i < digits(); ++i)
         units *= 10;
      return units;
   }
};

}  // namespace vorel
