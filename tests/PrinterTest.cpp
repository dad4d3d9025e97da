#include <memory>
#include <utility>

#include "Recording.h"
#include "render/Printer.h"
#include "render/PrinterV2.h"

using namespace vorel;

namespace {

class PrinterTest : public InterruptingTest {};

TEST_F(PrinterTest, Configuration) {
   Pipe pipe;
   PrinterConfig config;
   EXPECT_TRUE(initPrinterConfig(config, pipe.writer, outputFormatJson));
   EXPECT_TRUE(config.fd == pipe.writer && config.format == outputFormatJson);
   EXPECT_TRUE(config.resetInterrupt1 && !config.resetInterrupt2 && config.buffered);
   EXPECT_EQ(config.bufsize, 0U);

   const size_t defaultSize = std::exchange(vorel_globalBufsize, 3000);
   EXPECT_EQ(defaultSize, 1048576U);
   const struct {
      PrinterConfig config;
      size_t area;
   } cases[] = {{config, 3000},
                {{pipe.writer, outputFormatText, false, true, true, 4096}, 4096},
                {{pipe.writer, outputFormatText, true, true, false, 4096}, 0},
                {{pipe.writer, outputFormatText, false, false, true, 1}, 1}};
   for (const auto& [given, area] : cases) {
      setInterrupted();
      const Printer printer(given);
      EXPECT_EQ(isInterrupted(), !given.resetInterrupt1 && !given.resetInterrupt2);
      EXPECT_EQ(printer.ownBuffer.rlen(), area);
      EXPECT_EQ(printer.buffered, given.buffered);
      EXPECT_EQ(printer.format, given.format);
   }
   setInterrupted();
   const PrinterV2 second(pipe.writer, outputFormatJson);
   vorel_globalBufsize = defaultSize;
   EXPECT_TRUE(isInterrupted() && second.buffered && second.flags.empty());
   EXPECT_EQ(second.ownBuffer.rlen(), 3000U);
}

TEST_F(PrinterTest, EveryClassReportsItsAllocationAndRelease) {
   const auto& tracking = *Orv::PtrInterface::orvAllocTrackTypeInfo_;
   const auto live = [&] { return tracking.allocations - tracking.deallocations; };
   const uint64_t before = live();
   {
      Pipe pipe;
      using Object = std::unique_ptr<Orv::PtrInterface>;
      const Object objects[] = {
            Object(new VorelBuffer(pipe.writer, 10, 0)),
            Object(new Renderer(outputFormatJson, nullptr, true)),
            Object(new RendererV2(outputFormatJson, nullptr, true)),
            Object(new Printer(pipe.writer, outputFormatJson, false, false, true, 10)),
            Object(new PrinterV2(pipe.writer, outputFormatJson))};
      const std::unique_ptr<ZyFmt::DynamicBufferInterface> area(
            new VorelBuffer(pipe.writer, 10, 0));
      const Printer notAllocated(pipe.writer, outputFormatJson, false, false, true, 10);
      EXPECT_EQ(live(), before + 6);
   }
   EXPECT_EQ(live(), before);

   const size_t impossible = SIZE_MAX / 2;
   EXPECT_THROW(new VorelBuffer(1, impossible, 0), std::bad_alloc);
   const size_t defaultSize = std::exchange(vorel_globalBufsize, impossible);
   EXPECT_THROW(new Printer(1, outputFormatJson, false, false, true, 0), std::bad_alloc);
   EXPECT_THROW(new PrinterV2(1, outputFormatJson), std::bad_alloc);
   vorel_globalBufsize = defaultSize;
   if (!sanitizing("address") && !sanitizing("thread")) {  // whose operator new stops the process
      EXPECT_THROW(TrackedAllocation::operator new(impossible), std::bad_alloc);
   }
   EXPECT_EQ(live(), before);
}

TEST_F(PrinterTest, WriteQuotedStringCopiesRunsAndEscapesUnescapedQuotes) {
   const struct {
      const char* text;
      const char* output;
      Calls calls;  // with an area of one byte, which no run of two or more fits
   } cases[] = {
         {"", "", {}},
         {"a", "a", {}},
         {R"(ab"cde)", R"(ab\"cde)", {"allocate 2", "allocate 2", "allocate 3"}},
         {R"(")", R"(\")", {"allocate 2"}},
         {R"("")", R"(\"\")", {"allocate 2", "allocate 2"}},
         {R"(a\"b)", R"(a\"b)", {"allocate 4"}},
         {R"(a\\"b)", R"(a\\\"b)", {"allocate 3", "allocate 2", "allocate 1"}},
         {R"(a\\\"b)", R"(a\\\"b)", {"allocate 6"}},
         {R"(\x"b)", R"(\x\"b)", {"allocate 2", "allocate 2", "allocate 1"}},
         {R"(\"")", R"(\"\")", {"allocate 2", "allocate 2"}},
         {"ab\\", "ab\\", {"allocate 3"}},
         {"\n\x80\x01", "\n\x80\x01", {"allocate 3"}},
   };
   for (OutputFormat_t format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      for (const auto& [text, output, calls] : cases) {
         RecordingBuffer buffer(1);
         RendererV2 renderer(format, &buffer, false);
         renderer.writeQuotedString(text);
         EXPECT_EQ(buffer.output(), output);
         EXPECT_EQ(buffer.calls, calls) << text;
         EXPECT_TRUE(renderer.firstItem);
      }
   }
}

}  // namespace
