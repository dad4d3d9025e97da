// Renderers and printers beside what the fuzz targets check, which is most of their output.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <array>
#include <bit>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>

#include <vorel/render/Printer.h>
#include <vorel/render/PrinterV2.h>
#include "RecordingBuffer.h"
#include "Resources.h"

using namespace vorel;

namespace {

using Arguments = std::array<uint64_t, kMaxConversions + 1>;

int engine(Renderer& to, int count, ...) {
   va_list args;
   va_start(args, count);
   const int result = to.addJsonAttributes(nullptr, count, args);
   va_end(args);
   return result;
}

/** Expects the call to end by an exception with the thread marked, and takes the mark back. */
void expectInterrupted(auto call) {
   EXPECT_THROW(call(), SigIntException);
   EXPECT_TRUE(isInterrupted());
   resetInterrupted();
}

TEST(Renderer, AnInterruptedThreadIsStoppedByAllButTheEngines) {
   const Attr32Info a("a", 1), b("", "x");
   Attr32Info plain;
   plain.value.asInt32 = -5;
   setInterrupted();
   for (const auto format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      RecordingBuffer buffer(100);
      Renderer to(format, &buffer, true);
      EXPECT_THROW(to.addFrills("x"), SigIntException);
      EXPECT_THROW(to.addAttributes("%d", 1, &a), SigIntException);
      EXPECT_THROW(to.addAttributesJson(1, &a), SigIntException);
      EXPECT_THROW(to.addArgs("%d%d%d%d%d%d%d%d%d%d%d"), SigIntException);
      EXPECT_TRUE(to.firstItem);
      // These do not look at the format either.
      EXPECT_EQ(engine(to, 3, &a, &plain, &b), 3);
      EXPECT_EQ(callWith(&to, &Renderer::addJsonAttributesNoArgCount, "%d", &a, 0).first, 5);
      EXPECT_EQ(callWith(&to, &Renderer::vorel_vfprintf, "%d", 7, 0).first, 1);
      EXPECT_EQ(buffer.output(), R"("a":1,-5,"x","a":17)");
      EXPECT_TRUE(to.wouldBlock() && to.fullness() == 42);
      EXPECT_EQ(buffer.calls, Calls{"wouldBlock"});
      to.format = outputFormatText;
      EXPECT_EQ(addVaFrills(to, "!"), 1);
   }
   resetInterrupted();
}

/** What vorel_vfprintf prints, its result, and the argument that it left unread. */
using Printed = std::tuple<std::string, int, uint64_t>;

Printed print(const std::string& fmt, const Arguments& args, bool buffered) {
   RecordingBuffer buffer(100);
   Renderer renderer(outputFormatJson, &buffer, buffered);
   const auto [result, next] = callWith(renderer, &Renderer::vorel_vfprintf, fmt.c_str(), args);
   EXPECT_TRUE(renderer.firstItem);
   return {buffer.output(), result, next};
}

TEST(Renderer, FormatsThatTheCLibraryWouldReadOtherwise) {
   const uint64_t kWide = 0xffffffff00000005, kNext = 77;
   const uint64_t text = std::bit_cast<uint64_t>(+"text"), pi = floatArg(3.14159);
   const struct {
      const char* fmt;
      Arguments args;  // up to kNext, which must not be read
      const char* output;
      int result;
   } cases[] = {
         {"%d%d%d%d%d%d%d%d%d%%%%%d", {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, kNext}, "123456789%%0", 3},
         {"%d%% of %5", {kNext}, "%d%% of %5", 10},       // one left open
         {"%-5%%s% .3l%|", {text, kNext}, "%text%|", 7},  // two that print a percent sign
         {"%05s|%+c|%#-5s|% 2c", {text, 'c', text, 'c', kNext}, " text|c|text | c", 3},
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
         {"%*%%s", {text, kNext}, "%*%%s", 5},
         {"%hld %lhd", {1, 2, kNext}, "%hld %lhd", 5},
         // Read at the width that the scanner found.
         {"%Lf %LE", {pi, pi, kNext}, "3.141590 3.141590E+00", 13},
         {"%zu %ju %td %qd %Ld", {kWide, kWide, kWide, kWide, kWide, kNext}, "5 5 5 5 5", 2},
         {"%lo %llo %#lo", {kWide, UINT64_MAX, kWide, kNext}, "5 37777777777 05", 3},
         {"%hs %lls %zc %lp", {text, text, 'z', 0, kNext}, "text text z (nil)", 6},
   };
   for (const auto& [fmt, args, output, result] : cases)
      for (const bool buffered : {false, true})
         EXPECT_EQ(print(fmt, args, buffered), Printed(output, result, kNext)) << fmt;

   std::string percents;  // which grow when a piece is handed to the C library
   for (int i = 0; i < 3000; ++i)
      percents += "\\%";
   const std::string tail = percents + "%d" + std::string(9000000, 'a');  // more than the stack
   for (const bool buffered : {false, true})
      EXPECT_TRUE(print("%d" + tail, {1, 'd', kNext}, buffered) ==
                  Printed("1" + percents + "100" + tail.substr(6002), 9006003, kNext));
}

TEST(Renderer, APieceThatFailsIsNotWrittenAndMarksTheThread) {
   const wchar_t* const foreign = L"\u20ac";  // no character of the "C" locale
   for (const bool buffered : {true, false}) {
      RecordingBuffer buffer(20);
      Renderer to(outputFormatText, &buffer, buffered);
      EXPECT_LT(addVaFrills(to, "ab%ls", foreign), 0);
      EXPECT_FALSE(isInterrupted());
      expectInterrupted([&] { to.addFrills("ab%ls", foreign); });
      expectInterrupted([&] { to.addAttributes("ab%ls", 1, foreign); });
      EXPECT_EQ(buffer.calls, Calls{});
      expectInterrupted([&] { to.addArgs("a%d|b%lc|c%d", 1, *foreign, 2); });
      expectInterrupted([&] { to.addArgs("%d%99999999999d", 1, 2); });
      expectInterrupted([&] { to.addArgs("%d|%.2147483648f%d", 1, floatArg(1), 2); });
      EXPECT_EQ(buffer.output(), "a111");
   }
}

/** A string of 2 GiB, which is more than INT_MAX characters, in a file of 16 MiB. */
std::shared_ptr<char> giantString() {
   constexpr size_t kBlock = size_t{16} << 20, kSize = kBlock << 7;
   const Descriptor file(memfd_create("giant", MFD_CLOEXEC));
   EXPECT_EQ(ftruncate(file, kBlock), 0);
   const auto map = [](char* where, size_t size, int flags, int fd) {
      void* const mapped = mmap(where, size, PROT_READ | PROT_WRITE, flags, fd, 0);
      EXPECT_NE(mapped, MAP_FAILED);
      return static_cast<char*>(mapped);
   };
   char* const start = map(nullptr, kSize + kBlock, MAP_PRIVATE | MAP_ANONYMOUS, -1);
   for (size_t at = 0; at < kSize; at += kBlock)
      map(start + at, kBlock, MAP_SHARED | MAP_FIXED, file);
   std::memset(start, 'g', kBlock);
   return {start, [](char* string) { munmap(string, kSize + kBlock); }};
}

TEST(Renderer, APieceBeyondIntMaxFailsToo) {
   if (sanitizing("thread"))
      GTEST_SKIP() << "The sanitizer's shadow of the string takes several times its 2 GiB.";
   const auto giant = giantString();
   const Attr32Info text("t", giant.get()), bare("", giant.get()), number(giant.get(), 1);
   const Attr32Info good("a", 1);
   for (const bool buffered : {true, false}) {
      RecordingBuffer buffer(100);
      Renderer to(outputFormatJson, &buffer, buffered);
      const auto fails = [&](auto call) {
         to.firstItem = true;
         expectInterrupted(call);
      };
      fails([&] { to.startObj(giant.get()); });
      fails([&] { to.startSimpleDictEntry(text); });
      fails([&] { to.addAttributesJson(1, &text); });
      fails([&] { to.addAttributes("", 1, &bare); });
      fails([&] { engine(to, 1, &number); });
      EXPECT_EQ(buffer.calls, Calls{});
      fails([&] { to.addArgs("%d %s", &good, &text); });
      // Without a count, only a failure of the last item is noticed.
      to.addArgs("%s %d", &text, &good);
      to.format = outputFormatText;
      fails([&] { to.addArgs(giant.get()); });
      EXPECT_TRUE(buffer.output() == R"("a":1,,,"a":1)");
   }
}

TEST(Renderer, ADecimalCommaOfTheProcessStaysOutOfJson) {
   namespace fs = std::filesystem;
   std::string folder = (fs::temp_directory_path() / "vorel-locale-XXXXXX").string();
   ASSERT_NE(mkdtemp(folder.data()), nullptr);
   std::ofstream(folder + "/source") << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
                                        "grouping 3\nEND LC_NUMERIC\n";
   // Complains that the locale has no other category, and makes it all the same.
   std::system(("cd " + folder + " && localedef -c -i ./source ./comma >complaints 2>&1").c_str());
   setenv("LOCPATH", folder.c_str(), 1);
   ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr) << "localedef made no locale";
   RecordingBuffer buffer(100);
   const Attr32Info a("a", 1234567.5F);
   const Attr64Info b("", -1e18);
   Renderer(outputFormatJson, &buffer, true).addAttributesJson(2, &a, &b);
   Renderer text(outputFormatText, &buffer, true);
   text.addAttributes(" %.1f", 1, 1.5);
   text.addAttributes(" %'d", 1, 1234);
   std::setlocale(LC_NUMERIC, "C");
   unsetenv("LOCPATH");
   fs::remove_all(folder);
   EXPECT_EQ(buffer.output(), "\"a\":1234567.500000,-1000000000000000000.000000 1,5 1.234");
}

TEST(Renderer, PrintersAreBuiltAsTheyAreConfigured) {
   PrinterConfig config;
   EXPECT_TRUE(initPrinterConfig(config, 1, outputFormatJson));
   EXPECT_TRUE(config.fd == 1 && config.format == outputFormatJson && config.bufsize == 0);
   EXPECT_TRUE(config.resetInterrupt1 && !config.resetInterrupt2 && config.buffered);

   const size_t defaultSize = std::exchange(vorel_globalBufsize, 3000);
   EXPECT_EQ(defaultSize, 1048576U);
   const struct {
      PrinterConfig config;
      size_t area;
   } cases[] = {{config, 3000},
                {{1, outputFormatText, false, true, true, 4096}, 4096},
                {{1, outputFormatText, true, true, false, 4096}, 0},
                {{1, outputFormatText, false, false, true, 1}, 1}};
   for (const auto& [given, area] : cases) {
      setInterrupted();
      const Printer printer(given);
      EXPECT_EQ(isInterrupted(), !given.resetInterrupt1 && !given.resetInterrupt2);
      EXPECT_EQ(printer.ownBuffer.rlen(), area);
      EXPECT_EQ(printer.buffered, given.buffered);
      EXPECT_EQ(printer.format, given.format);
   }
   setInterrupted();
   const PrinterV2 second(1, outputFormatJson);
   EXPECT_TRUE(isInterrupted() && second.buffered && second.flags.empty());
   EXPECT_EQ(second.ownBuffer.rlen(), 3000U);
   vorel_globalBufsize = defaultSize;
   resetInterrupted();
}

}  // namespace
