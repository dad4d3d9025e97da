// The text formatter, and addArgs, which prints through it in text format.
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Recording.h"
#include "buffers/VorelBuffer.h"

using namespace vorel;

namespace {

using Arguments = std::array<uint64_t, kMaxConversions>;
using Outcome = std::pair<int, uint64_t>;  // a call's result and the argument that it left unread
using Function = int (Renderer::*)(const char*, va_list);

uint64_t pointerArg(const void* pointer) {
   return reinterpret_cast<uintptr_t>(pointer);
}

Outcome callWith(Function function, Renderer* to, const char* fmt, ...) {
   va_list list;
   va_start(list, fmt);
   const int result = (to->*function)(fmt, list);
   const auto next = va_arg(list, uint64_t);
   va_end(list);
   return {result, next};
}

Outcome call(Function function, Renderer& to, const char* fmt, const Arguments& a) {
   return callWith(function, &to, fmt, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9],
                   uint64_t{0});
}

Outcome print(Renderer& to, const char* fmt, const Arguments& args) {
   return call(&Renderer::vorel_vfprintf, to, fmt, args);
}

template <class Value>
std::string libraryText(const std::string& fmt, Value value) {
   const int length = std::snprintf(nullptr, 0, fmt.c_str(), value);
   EXPECT_GE(length, 0) << fmt;
   std::string text(static_cast<size_t>(length), '\0');
   std::snprintf(text.data(), text.size() + 1, fmt.c_str(), value);
   return text;
}

/** Read-only memory for formats, with nothing behind their ends. */
class ReadOnlyMemory {
 public:
   explicit ReadOnlyMemory(size_t pages)
         : size_(pages * kPage),
           start_(static_cast<char*>(
                 mmap(nullptr, size_ + kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {}
   ReadOnlyMemory(const ReadOnlyMemory&) = delete;
   ReadOnlyMemory& operator=(const ReadOnlyMemory&) = delete;
   ~ReadOnlyMemory() { munmap(start_, size_ + kPage); }

   const char* hold(const std::string& fmt) {
      EXPECT_EQ(mprotect(start_, size_, PROT_READ | PROT_WRITE), 0);
      char* const at = start_ + size_ - (fmt.size() + 1);
      std::memcpy(at, fmt.c_str(), fmt.size() + 1);
      EXPECT_EQ(mprotect(start_, size_, PROT_READ), 0);
      return at;
   }

 private:
   static constexpr size_t kPage = 4096;
   size_t size_;
   char* start_;
};

class TextFormatterTest : public InterruptingTest {
 protected:
   std::mt19937_64 random{20240607};
   ReadOnlyMemory memory{4};

   size_t below(size_t limit) { return random() % limit; }
   bool oneIn(size_t count) { return below(count) == 0; }

   /** What is printed, and the result: the same unbuffered, in a small area and in a large one.
    * `next` must be the argument that is left unread. */
   std::pair<std::string, int> printEachWay(const std::string& fmt, const Arguments& args,
                                            uint64_t next) {
      const char* const held = memory.hold(fmt);
      std::pair<std::string, int> printed;
      for (const size_t area : {size_t{0}, size_t{3}, size_t{4000}}) {
         RecordingBuffer buffer(area);
         Renderer renderer(outputFormatJson, &buffer, area != 0);
         const auto [result, left] = print(renderer, held, args);
         EXPECT_TRUE(result < 0 || left == next) << fmt;
         EXPECT_TRUE(renderer.firstItem);
         if (area == 0)
            printed = {buffer.output(), result};
         EXPECT_EQ(printed, std::pair(buffer.output(), result)) << fmt << " in " << area;
      }
      return printed;
   }

   std::string literal() {
      constexpr const char* kLiterals[] = {"", "", " ", ", rate ", "%%", "d%%s", "\n", "\\n"};
      return kLiterals[below(std::size(kLiterals))];
   }
   std::string flagsAndNumbers() {
      const auto number = [this] { return std::to_string(below(oneIn(20) ? 700 : 30)); };
      std::string chosen;
      while (oneIn(2))
         chosen += "-+ #0'"[below(6)];
      if (oneIn(2))
         chosen += number();
      if (oneIn(2))
         chosen += '.' + (oneIn(4) ? "" : number());
      return chosen;
   }
   double floating() {
      constexpr double kChosen[] = {0.0, -0.0, 0.5, 9.9999995, 1e15, 123456.75, 1e-5, -2.5};
      const uint64_t bits = random();
      double any = 0;  // of any magnitude, now and then no number
      std::memcpy(&any, &bits, sizeof any);
      if (oneIn(3))
         return any;
      return oneIn(2) ? kChosen[below(std::size(kChosen))]
                      : static_cast<double>(static_cast<int64_t>(bits) >> below(63)) / 64;
   }

   /** A piece of a format, its argument, and what the C library prints. */
   struct Piece {
      std::string fmt;
      uint64_t arg;
      std::string text;
   };
   /** Leaves out what the C library reads otherwise: "%Lf", "%zu", "%lo" and the like. */
   Piece piece(const std::string& after) {
      constexpr std::string_view kLetters = "diouxXdiouxXcspeEfFgGf";
      constexpr std::string_view kModifiers[] = {"", "h", "hh", "l", "ll"};
      constexpr const wchar_t* kWide[] = {L"", L"w", L"wide string"};
      constexpr const char* kNarrow[] = {"", "x", "\xc3\xa9%d\\", "longer than some of the areas"};
      const char letter = kLetters[below(kLetters.size())];
      const bool isWide = oneIn(3);
      std::string fmt = literal() + "%" + flagsAndNumbers();
      const auto make = [&](std::string_view modifier, uint64_t arg, auto value) {
         ((fmt += modifier) += letter) += after;
         return Piece{fmt, arg, libraryText(fmt, value)};
      };
      if (letter == 'p') {
         const uint64_t arg = oneIn(2) ? 0 : random();
         return make("", arg, arg);
      }
      if (letter == 's') {
         const uint64_t arg = isWide ? pointerArg(kWide[below(std::size(kWide))])
                                     : pointerArg(kNarrow[below(std::size(kNarrow))]);
         return make(isWide ? "l" : "", arg, arg);
      }
      if (letter == 'c') {
         const uint64_t arg = isWide ? below(128) : random();
         return make(isWide ? "l" : "", arg, static_cast<int>(arg));
      }
      if (std::strchr("diouxX", letter) == nullptr) {
         const double value = floating();
         return make(isWide ? "l" : "", floatArg(value), value);
      }
      const size_t modifier = below(letter == 'o' ? 3 : 5);
      const uint64_t arg = oneIn(3) ? below(9) - 4 : random() >> below(64);
      return modifier < 3 ? make(kModifiers[modifier], arg, static_cast<int>(arg))
                          : make(kModifiers[modifier], arg, arg);
   }

   /** What a buffer that starts with `size` free bytes is asked for. */
   static Calls allocations(size_t size, const std::vector<size_t>& lengths) {
      Calls calls;
      size_t free = size;
      const auto allocate = [&](size_t count) {
         calls.push_back("allocate " + std::to_string(count));
         free = std::max(count, size);
      };
      for (const size_t length : lengths) {
         if (free == 0)
            allocate(1);
         if (length >= free)
            allocate(length + 1);
         free -= length;
      }
      return calls;
   }
};

TEST_F(TextFormatterTest, AgreesWithTheCLibrary) {
   for (int round = 0; round < 10000; ++round) {
      std::string fmt, output;
      Arguments args{};
      Calls writes;
      std::vector<size_t> lengths;
      const size_t count = 1 + below(kMaxConversions - 1);  // and a "%%" behind the last
      for (size_t i = 0; i < count; ++i) {
         const Piece made = piece(i == count - 1 ? literal() : "");
         fmt += made.fmt;
         args[i] = made.arg;
         output += made.text;
         writes.push_back("write " + made.text);
         lengths.push_back(made.text.size());
      }
      const char* const held = memory.hold(fmt);
      const auto expected = std::pair(static_cast<int>(lengths.back()), args[count]);
      for (const size_t size : {size_t{0}, below(8), below(200), size_t{20000}}) {
         RecordingBuffer buffer(size);
         Renderer renderer(outputFormatText, &buffer, true);
         ASSERT_EQ(print(renderer, held, args), expected) << fmt;
         ASSERT_EQ(buffer.output(), output) << fmt;
         ASSERT_EQ(buffer.calls, allocations(size, lengths)) << fmt << " in " << size;
      }
      RecordingBuffer buffer(0);
      Renderer renderer(outputFormatText, &buffer, false);
      ASSERT_EQ(print(renderer, held, args), expected) << fmt;
      ASSERT_EQ(buffer.calls, writes) << fmt;
   }
}

TEST_F(TextFormatterTest, WhatTheCLibraryWouldReadOtherwise) {
   const uint64_t kWide = 0xffffffff00000005, kNext = 77;
   const uint64_t text = pointerArg("text"), pi = floatArg(3.14159);
   const struct {
      const char* fmt;
      Arguments args;  // up to kNext, which must not be read
      const char* output;
      int result;
   } cases[] = {
         // Without a conversion, or with one left open, a format is printed as it stands.
         {"", {kNext}, "", 0},
         {"100%%", {kNext}, "100%%", 5},
         {"a=\\%d", {kNext}, "a=\\%d", 5},
         {"%a b=%d", {kNext}, "%a b=%d", 7},
         {"abc%", {kNext}, "abc%", 4},
         {"%d%% of %5", {kNext}, "%d%% of %5", 10},
         {"%s %l", {kNext}, "%s %l", 5},
         // One piece per conversion; the result is the last one's.
         {"a=%d b=%s\n", {3, text, kNext}, "a=3 b=text\n", 8},
         {"%d%%%%x%d", {7, 8, kNext}, "7%%x8", 4},
         // A percent sign behind a backslash is no conversion.
         {"\\%d=%d\\%s", {7, kNext}, "\\%d=7\\%s", 8},
         {"%d \\\\%n%%%d", {1, 2, kNext}, "1 \\\\%n%2", 7},
         {"\\%%d", {7, kNext}, "\\%7", 3},
         // More than one argument, or none, to the C library: as it stands, its argument taken.
         {"%*d|%d", {1, 2, kNext}, "%*d|2", 2},
         {"%.*f|%.1f", {1, pi, kNext}, "%.*f|3.1", 4},
         {"%1$d %d%%", {1, 2, kNext}, "%1$d 2%", 3},
         {"%n items: %d", {text, 2, kNext}, "%n items: 2", 7},
         {"%hhn%%d.", {text, kNext}, "%hhn%%d.", 8},
         {"%y %s %d", {1, kNext}, "%y %s %d", 8},
         {"%5%%s", {text, kNext}, "%5%%s", 5},
         {"%hld %lhd", {1, 2, kNext}, "%hld %lhd", 5},
         // Read at the width that the scanner found.
         {"%Lf %LE", {pi, pi, kNext}, "3.141590 3.141590E+00", 13},
         {"%zu %ju %td %qd %Ld", {kWide, kWide, kWide, kWide, kWide, kNext}, "5 5 5 5 5", 2},
         {"%lo %llo %#lo", {kWide, kWide, kWide, kNext}, "5 5 05", 3},
         {"%hhd %hd %d %ld", {300, 65537, kWide, kWide, kNext}, "44 1 5 -4294967291", 12},
         {"%hs %lls %zc %lp", {text, text, 'z', 0, kNext}, "text text z (nil)", 6},
         {"%.1f %s", {floatArg(1.5), 0, kNext}, "1.5 (null)", 7},
   };
   for (const auto& [fmt, args, output, result] : cases)
      EXPECT_EQ(printEachWay(fmt, args, kNext), std::pair(std::string(output), result)) << fmt;
}

TEST_F(TextFormatterTest, AFailingPieceEndsTheCallAndMarksTheThread) {
   const uint64_t euro = 0x20ac;  // which the "C" locale does not have
   const struct {
      const char* fmt;
      Arguments args;
      const char* output;
   } cases[] = {
         {"%lc", {euro}, ""},
         {"a%d|b%lc|c%d", {1, euro, 2}, "a1"},
         {"%d%99999999999d", {1, 2}, "1"},
         {"%d%2147483648s", {1, pointerArg("")}, "1"},
         {"%d|%.2147483648f%d", {1, floatArg(1), 2}, "1"},
   };
   for (const auto& [fmt, args, output] : cases) {
      EXPECT_EQ(printEachWay(fmt, args, 0), std::pair(std::string(output), -1)) << fmt;
      RecordingBuffer buffer(10);
      Renderer renderer(outputFormatText, &buffer, true);
      EXPECT_THROW(renderer.addArgs(fmt, args[0], args[1], args[2]), SigIntException) << fmt;
      EXPECT_TRUE(isInterrupted());
      resetInterrupted();
   }
}

TEST_F(TextFormatterTest, FormatsLongerThanTheStack) {
   std::string percents;  // which grow when a piece is handed to the C library
   for (int i = 0; i < 3000; ++i)
      percents += "\\%";
   const std::string after(9000000, 'a');
   ReadOnlyMemory longMemory(3000);
   const char* const fmt = longMemory.hold("%d" + percents + "%d" + after);
   for (bool buffered : {false, true}) {
      RecordingBuffer buffer(100);
      Renderer renderer(outputFormatText, &buffer, buffered);
      EXPECT_EQ(print(renderer, fmt, {1, 2}).first, percents.size() + 1 + after.size());
      EXPECT_TRUE(buffer.output() == "1" + percents + "2" + after);
   }
}

/** Whatever the bytes are, no argument is read that was not passed, nothing is written through one,
 * and nothing is touched beyond the format and the area: the sanitizers watch. */
TEST_F(TextFormatterTest, RandomBytes) {
   constexpr std::string_view kFrequent = "%%%%%%dioucsxXpeEfFgGlllhjztLqnaCSm*$.-+ #0'1234\\";
   std::wstring string = L"a narrow string and wide ones";  // of which each argument is another
   for (int round = 0; round < 10000; ++round) {
      std::string fmt;
      int percents = 0;
      const auto isDigit = [](char c) { return '0' <= c && c <= '9'; };
      for (size_t length = below(40); length != 0; --length) {
         char c = oneIn(8) ? static_cast<char>(1 + below(255)) : kFrequent[below(kFrequent.size())];
         if (c == '%' && ++percents > kMaxConversions)
            c = '-';
         if (isDigit(c) && !fmt.empty() && isDigit(fmt.back()))
            c = '.';  // so that the output stays small
         fmt += c;
      }
      Arguments args;
      for (size_t i = 0; i < args.size(); ++i)
         args[i] = fmt.find('s') != fmt.npos || oneIn(2) ? pointerArg(&string[i]) : random();
      int sizes[kMaxConversions], ends[kMaxConversions] = {};
      bool floats[kMaxConversions];
      const int count = getArgLenList(fmt.c_str(), sizes, ends, floats);
      const bool asItStands = count == 0 || ends[count - 1] == 0;
      const auto read = static_cast<size_t>(asItStands ? 0 : count);
      const auto printed = printEachWay(fmt, args, read < args.size() ? args[read] : 0);
      ASSERT_TRUE(!asItStands || printed.first == fmt) << fmt;
      ASSERT_EQ(string, L"a narrow string and wide ones") << fmt;

      const Attr32Info a("a", 1), b("", "x"), c("c", 1.5F), d("", true);
      args = {pointerArg(&a), pointerArg(&b), pointerArg(&c), pointerArg(&d), pointerArg(&b),
              pointerArg(&a), pointerArg(&c), pointerArg(&a), pointerArg(&d), pointerArg(&b)};
      for (bool buffered : {false, true}) {
         RecordingBuffer counted(5), uncounted(5);
         Renderer expected(outputFormatJson, &counted, buffered);
         Renderer json(outputFormatJson, &uncounted, buffered);
         const int result =
               expected.addAttributesJson(count, &a, &b, &c, &d, &b, &a, &c, &a, &d, &b);
         ASSERT_EQ(call(&Renderer::addJsonAttributesNoArgCount, json, memory.hold(fmt), args).first,
                   result)
               << fmt;
         ASSERT_EQ(uncounted.calls, counted.calls) << fmt;
         ASSERT_EQ(uncounted.output(), counted.output()) << fmt;
      }
   }
}

class AddArgsTest : public InterruptingTest {};

TEST_F(AddArgsTest, OneRecordOrOneValuePerConversion) {
   const Attr32Info name("name", "eth0"), mtu("mtu", 576U), up("up", true);
   Attr32Info hidden("h", 1);
   hidden.suppressed = true;
   RecordingBuffer buffer(100);
   Renderer json(outputFormatJson, &buffer, true);
   for (const char* none : {"", "Done\n", "100%%", "a=\\%d", "%a b=%d"})
      json.addArgs(none);
   json.addArgs("%d", &hidden);
   EXPECT_EQ(buffer.output(), "");
   EXPECT_TRUE(json.firstItem);
   json.addArgs("Name: %s  Mtu: %u  Up: %s\n", &name, &mtu, &up);
   json.addArgs("%lu%d open %", &hidden, &mtu, &name);
   EXPECT_FALSE(json.firstItem);

   // The engine looks neither at the format of the renderer nor at the flag.
   Renderer text(outputFormatText, &buffer, true);
   setInterrupted();
   EXPECT_EQ(callWith(&Renderer::addJsonAttributesNoArgCount, &text, "%d", &mtu, 0).first, 9);
   for (OutputFormat_t format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      Renderer renderer(format, &buffer, true);
      EXPECT_THROW(renderer.addArgs("%d%d%d%d%d%d%d%d%d%d%d"), SigIntException);
   }
   resetInterrupted();
   text.addArgs(" Load: %.2f  Mtu: %u  Up: %s\n", floatArg(0.125), 576, "yes");
   EXPECT_EQ(buffer.output(), R"("name":"eth0","mtu":576,"up":true,"mtu":576,"name":"eth0")"
                              R"("mtu":576 Load: 0.12  Mtu: 576  Up: yes)"
                              "\n");
}

TEST(AddArgsDeathTest, StopsOnUnknownTagsAndFormatsAndTooManyConversions) {
   const Attr32Info good("a", 1);
   Attr32Info bad("b", 1);
   bad.type = static_cast<AttrType_t>(7);
   Pipe pipe;
   VorelBuffer buffer(pipe.writer, 0, 0);
   Renderer json(outputFormatJson, &buffer, false), unknown(outputFormatUnknown, &buffer, false);
   EXPECT_DEATH(
         json.addArgs("%d %d", &good, &bad),
         report("0", "Renderer", 810,
                "int vorel::Renderer::addJsonAttributesNoArgCount(const char*, __va_list_tag*)"));
   EXPECT_DEATH(
         json.addArgs("%d%d%d%d%d%d%d%d%d%d%d", &good),
         report("0", "Renderer", 622, "int vorel::getArgLenList(const char*, int*, int*, bool*)"));
   EXPECT_DEATH(unknown.addArgs("x"),
                report("0", "Renderer", 479, "void vorel::Renderer::addArgs(const char*, ...)"));
   EXPECT_EQ(pipe.finish(), "\"a\":1,");
}

}  // namespace
