#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Recording.h"

using namespace vorel;

namespace {

/** A conversion as text: its size, "f" if it is floating, and where its piece ends. */
std::string entry(int size, bool isFloat, size_t end) {
   return " " + std::to_string(size) + (isFloat ? "f@" : "@") + std::to_string(end);
}

/** Scans. The result is the count and the entries; all others must be as they were. */
std::string scan(const std::string& fmt) {
   constexpr int kUntouched = -77;
   int sizes[kMaxConversions], ends[kMaxConversions], count = 0;
   bool floats[2][kMaxConversions];  // neither value of a bool tells that it is untouched
   for (bool before : {false, true}) {
      std::fill(std::begin(sizes), std::end(sizes), kUntouched);
      std::fill(std::begin(ends), std::end(ends), kUntouched);
      std::fill(std::begin(floats[before]), std::end(floats[before]), before);
      count = getArgLenList(fmt.c_str(), sizes, ends, floats[before]);
   }
   std::string result = std::to_string(count);
   bool used = true;
   for (int i = 0; i < kMaxConversions; ++i) {
      used = used && sizes[i] != kUntouched;
      EXPECT_EQ(sizes[i] != kUntouched, used);
      EXPECT_EQ(ends[i] != kUntouched, used);
      EXPECT_EQ(floats[false][i] == floats[true][i], used);
      if (used)
         result += entry(sizes[i], floats[false][i], static_cast<size_t>(ends[i]));
   }
   return result;
}

/**
 * The same by searching: for a percent sign that is not directly behind a backslash, then for the
 * first character that ends the conversion; an l directly before it makes an integer long. Empty
 * when more than kMaxConversions are started.
 */
std::string model(std::string_view fmt) {
   struct Closed {
      int size;
      bool isFloat;
      size_t end;
   };
   constexpr auto isIn = [](char c, std::string_view set) { return set.find(c) != set.npos; };
   std::vector<Closed> closed;
   int count = 0;
   for (std::string_view rest = fmt;;) {
      size_t percent = rest.find('%');
      while (percent != rest.npos && percent != 0 && rest[percent - 1] == '\\')
         percent = rest.find('%', percent + 1);
      if (percent == rest.npos)
         break;
      if (++count > kMaxConversions)
         return "";
      rest.remove_prefix(percent + 1);
      const size_t close = rest.find_first_of("%cdeEfFgGiopsuxX");
      if (close == rest.npos)
         break;
      const char letter = rest[close];
      const bool isLong = close != 0 && rest[close - 1] == 'l' && isIn(letter, "diuxX");
      rest.remove_prefix(close + 1);
      if (letter == '%')
         --count;
      else
         closed.push_back({isLong || isIn(letter, "speEfFgG") ? 8 : 4, isIn(letter, "eEfFgG"),
                           fmt.size() - rest.size()});
   }
   if (!closed.empty())
      closed.back().end = fmt.size();
   std::string result = std::to_string(count);
   for (const auto& [size, isFloat, end] : closed)
      result += entry(size, isFloat, end);
   return result;
}

TEST(FormatScannerTest, Conversions) {
   const struct {
      const char* result;
      std::vector<const char*> formats;
   } cases[] = {
         {"0", {"", "100%% done", "%a b=%d", "\\%d", "\\\\%d", "%\\%d"}},
         {"1", {"abc%", "%5", "%l", "%ll", "%n", "%\\"}},
         {"1 4@2", {"%d", "%i", "%o", "%u", "%x", "%X", "%c"}},
         {"1 4@3", {"%zu", "%jd", "%td", "%qd", "%Ld", "%lo", "%lc", "%*d", "%Cd"}},
         {"1 4@4", {"%hhd", "%llo", "%llc", "%l5d", "%d%%", "\\%%d"}},
         {"1 8@2", {"%s", "%p"}},
         {"1 8@3", {"%ld", "%li", "%lu", "%lx", "%lX", "%ls", "%lp"}},
         {"1 8@4", {"%lld", "%llx", "%hld", "%.*s"}},
         {"1 8@5", {"%llld"}},
         {"1 8f@2", {"%e", "%E", "%f", "%F", "%g", "%G"}},
         {"1 8f@3", {"%lf", "%Lf", "%ag"}},
         {"1 8f@5", {"%5.2f"}},
         {"1 4@6", {"%\\d\\%d"}},
         {"2 4@4", {"%d%5"}},
         {"2 8@8 4@20", {"Name: %s  Count: %d\n"}},
         {"2 8@5 4@10", {"a=%lu,b=%d"}},
         {"2 8@3 4@5", {"%lu%d"}},
         {"2 4@2 4@7", {"%d%%x%d"}},
         {"2 4@4 4@12", {"%n items: %d"}},
         {"10 4@2 4@4 4@6 4@8 4@10 4@12 4@14 4@16 4@18 4@24", {"%d%d%d%d%d%d%d%d%d%%%%%d"}},
   };
   for (const auto& [result, formats] : cases) {
      for (const char* fmt : formats) {
         EXPECT_EQ(scan(fmt), result) << fmt;
         EXPECT_EQ(model(fmt), result) << "the model, with " << fmt;
      }
   }
}

TEST(FormatScannerTest, AgreesWithTheModel) {
   constexpr std::string_view kCharacters =
         "%%%%%%%%%%%\\\\\\llllllddiuxXscpeEfFgGo*.5-hjzLqnaCSm \n";
   std::mt19937 random(20240607);
   for (int scanned = 0; scanned < 200000;) {
      std::string fmt(random() % 40, '\0');
      for (char& c : fmt)
         c = kCharacters[random() % kCharacters.size()];
      const std::string expected = model(fmt);
      if (expected.empty())
         continue;
      ++scanned;
      ASSERT_EQ(scan(fmt), expected) << fmt;
   }
}

TEST(FormatScannerDeathTest, StopsAtTheEleventhPercentSign) {
   for (const char* fmt : {"%d%d%d%d%d%d%d%d%d%d%d", "%d%d%d%d%d%d%d%d%d%d%%"}) {
      EXPECT_DEATH(scan(fmt), report("0", "Renderer", 622,
                                     "int vorel::getArgLenList(const char*, int*, int*, bool*)"));
   }
}

}  // namespace
