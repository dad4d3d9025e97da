#include "text/Number.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <string_view>

namespace {

/** Whether `number` and its negative print as "%f" prints them. */
void expectLikePrintf(double number) {
   for (double value : {number, -number}) {
      char expected[400];
      const int length = std::snprintf(expected, sizeof expected, "%f", value);
      char actual[vorel::text::kNumberRoom<double>];
      const char* const end = vorel::text::putNumber(actual, value);
      ASSERT_EQ(std::string_view(actual, static_cast<size_t>(end - actual)),
                std::string_view(expected, static_cast<size_t>(length)))
            << std::hexfloat << value;
   }
}

TEST(Number, DoublesPrintAsPrintfPrintsThem) {
   std::mt19937_64 random(20240817);
   for (int i = 0; i < 500000; ++i) {  // each with either sign
      const uint64_t bits = random();
      // Any bit pattern, and, more often, the exponents where digits before the point, fraction and
      // rounding all matter.
      const double mantissa = static_cast<double>(bits >> 11);
      const double number = i % 8 == 0 ? std::bit_cast<double>(bits)
                                       : std::ldexp(mantissa, static_cast<int>(bits % 110) - 95);
      ASSERT_NO_FATAL_FAILURE(expectLikePrintf(number));
   }
}

TEST(Number, TiesAndTheirNeighboursRoundAsPrintfRoundsThem) {
   // An odd multiple of 1/128 lies half way between two numbers of six digits.
   const double most = std::numeric_limits<double>::max();
   for (int i = 1; i < 100000; i += 2) {
      for (double whole : {0.0, 999999.0, 35184372088831.0}) {
         const double tie = whole + i / 128.0;
         for (double number : {tie, std::nextafter(tie, 0), std::nextafter(tie, most)})
            ASSERT_NO_FATAL_FAILURE(expectLikePrintf(number));
      }
   }
}

TEST(Number, SpecialDoublesPrintAsPrintfPrintsThem) {
   using Limits = std::numeric_limits<double>;
   for (double number : {0.0, 1.0, 0.5, 1.5, 0.1, 1e-6, 5e-7, 4.9999999e-7, 0.9999995, 0.9999994,
                         999999.9999995, 1e22, 1e300, Limits::max(), Limits::min(),
                         Limits::denorm_min(), Limits::infinity(), Limits::quiet_NaN()})
      ASSERT_NO_FATAL_FAILURE(expectLikePrintf(number));
   // Around every power of two: where one way of converting gives over to the next.
   for (int exponent = -1074; exponent < 1024; ++exponent) {
      const double power = std::ldexp(1.0, exponent);
      for (double number : {power, std::nextafter(power, 0), power * 1.75})
         ASSERT_NO_FATAL_FAILURE(expectLikePrintf(number));
   }
}

template <class Integer>
void expectIntegers() {
   for (uint64_t magnitude = 1; magnitude != 0;
        magnitude = magnitude > UINT64_MAX / 10 ? 0 : magnitude * 10) {
      for (uint64_t bits :
           {magnitude - 1, magnitude, 0 - magnitude, 1 - magnitude, magnitude + magnitude / 7}) {
         const auto number = static_cast<Integer>(bits);
         char actual[vorel::text::kNumberRoom<Integer>];
         char* const end = vorel::text::putNumber(actual, number);
         EXPECT_EQ(std::string_view(actual, static_cast<size_t>(end - actual)),
                   std::to_string(number));
      }
   }
}

TEST(Number, IntegersOfEveryLengthFitTheirRoom) {
   expectIntegers<int32_t>();
   expectIntegers<uint32_t>();
   expectIntegers<uint64_t>();
}

}  // namespace
