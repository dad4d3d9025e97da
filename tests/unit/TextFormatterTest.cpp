// The text formatter and addArgs: chosen formats, and those that end a call or stop the process.
// Random ones, and the scanner by itself, are the fuzz target's.
#include <array>
#include <bit>
#include <string>
#include <tuple>

#include <vorel/buffers/VorelBuffer.h>
#include "Recording.h"

using namespace vorel;

namespace {

using Arguments = std::array<uint64_t, kMaxConversions + 1>;

/** What vorel_vfprintf prints, its result, and the argument that it left unread. */
using Printed = std::tuple<std::string, int, uint64_t>;

Printed print(const std::string& fmt, const Arguments& args, bool buffered) {
   RecordingBuffer buffer(100);
   Renderer renderer(outputFormatJson, &buffer, buffered);
   const auto [result, next] = callWith(renderer, &Renderer::vorel_vfprintf, fmt.c_str(), args);
   EXPECT_TRUE(renderer.firstItem);
   return {buffer.output(), result, next};
}

class TextFormatterTest : public InterruptingTest {};

TEST_F(TextFormatterTest, WhatTheCLibraryWouldReadOtherwise) {
   const uint64_t kWide = 0xffffffff00000005, kNext = 77;
   const uint64_t text = std::bit_cast<uint64_t>(+"text"), pi = floatArg(3.14159);
   const struct {
      const char* fmt;
      Arguments args;  // up to kNext, which must not be read
      const char* output;
      int result;
   } cases[] = {
         {"a=%d b=%s\n", {3, text, kNext}, "a=3 b=text\n", 8},
         {"%d%d%d%d%d%d%d%d%d%%%%%d", {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, kNext}, "123456789%%0", 3},
         {"%d%% of %5", {kNext}, "%d%% of %5", 10},       // one left open
         {"%-5%%s% .3l%|", {text, kNext}, "%text%|", 7},  // two that print a percent sign
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
      for (bool buffered : {false, true})
         EXPECT_EQ(print(fmt, args, buffered), Printed(output, result, kNext)) << fmt;
}

TEST_F(TextFormatterTest, AFailingPieceEndsTheCallAndMarksTheThread) {
   const uint64_t euro = 0x20ac;  // which the "C" locale does not have
   const struct {
      const char* fmt;
      Arguments args;
      const char* output;
   } cases[] = {
         {"a%d|b%lc|c%d", {1, euro, 2}, "a1"},
         {"%d%99999999999d", {1, 2}, "1"},
         {"%d|%.2147483648f%d", {1, floatArg(1), 2}, "1"},
   };
   for (const auto& [fmt, args, output] : cases) {
      RecordingBuffer buffer(10);
      Renderer renderer(outputFormatText, &buffer, true);
      EXPECT_THROW(renderer.addArgs(fmt, args[0], args[1], args[2]), SigIntException) << fmt;
      EXPECT_EQ(buffer.output(), output);
      EXPECT_TRUE(isInterrupted());
      resetInterrupted();
   }
}

TEST_F(TextFormatterTest, FormatsLongerThanTheStack) {
   std::string percents;  // which grow when a piece is handed to the C library
   for (int i = 0; i < 3000; ++i)
      percents += "\\%";
   const std::string after(9000000, 'a');
   const std::string fmt = "%d" + percents + "%d" + after;
   for (bool buffered : {false, true}) {
      const auto [printed, result, next] = print(fmt, {1, 2}, buffered);
      EXPECT_EQ(result, percents.size() + 1 + after.size());
      EXPECT_TRUE(printed == "1" + percents + "2" + after);
   }
}

TEST_F(TextFormatterTest, AddArgsTakesOneRecordOrOneValuePerConversion) {
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
   EXPECT_EQ(callWith(&text, &Renderer::addJsonAttributesNoArgCount, "%d", &mtu, 0).first, 9);
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

TEST(TextFormatterDeathTest, StopsOnUnknownTagsAndFormatsAndTooManyConversions) {
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
   for (const char* fmt : {"%d%d%d%d%d%d%d%d%d%d%d", "%d%d%d%d%d%d%d%d%d%d%%"})
      EXPECT_DEATH(json.addArgs(fmt, &good),
                   report("0", "Renderer", 622,
                          "int vorel::getArgLenList(const char*, int*, int*, bool*)"));
   EXPECT_DEATH(unknown.addArgs("x"),
                report("0", "Renderer", 479, "void vorel::Renderer::addArgs(const char*, ...)"));
   EXPECT_EQ(pipe.finish(), "\"a\":1,");
}

}  // namespace
