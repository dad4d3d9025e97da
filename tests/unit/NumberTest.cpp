#include <vorel/text/Number.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

namespace {

template <class Number>
std::string textOf(Number number) {
   char text[vorel::text::kNumberRoom<Number>];
   return {text, vorel::text::putNumber(text, number)};
}

TEST(Number, DoublesPrintAsPrintfPrintsThem) {
   std::mt19937_64 random(20240817);
   for (int i = 0; i < 700000; ++i) {
      const uint64_t bits = random();
      const int choice = static_cast<int>(bits % 128);
      // Any bit pattern; ties, half way between two numbers of six digits, and their neighbours;
      // and mostly the exponents where digits before the point, fraction and rounding all matter.
      double number = std::bit_cast<double>(bits);
      if (i % 8 == 1) {
         const double tie = static_cast<double>(bits >> 11 >> choice % 40) / 128;
         number = std::nextafter(tie, std::array{tie, 0.0, HUGE_VAL}[bits % 3]);
      } else if (i % 8 != 0) {
         number = std::ldexp(static_cast<double>(bits >> 11), choice - 104);
      }
      char expected[400];
      std::snprintf(expected, sizeof expected, "%f", number);
      ASSERT_EQ(textOf(number), expected) << std::hexfloat << number;
      ASSERT_EQ(textOf(-number), std::signbit(number) ? expected + 1 : "-" + std::string(expected));
   }
}

template <class Integer>
void expectIntegers() {
   for (uint64_t magnitude = 1; magnitude != 0;
        magnitude = magnitude > UINT64_MAX / 10 ? 0 : magnitude * 10) {
      for (uint64_t bits :
           {magnitude - 1, magnitude, 0 - magnitude, 1 - magnitude, magnitude + magnitude / 7}) {
         const auto number = static_cast<Integer>(bits);
         EXPECT_EQ(textOf(number), std::to_string(number));
      }
   }
}

TEST(Number, IntegersOfEveryLengthFitTheirRoom) {
   expectIntegers<int32_t>();
   expectIntegers<uint32_t>();
   expectIntegers<uint64_t>();
}

}  // namespace
