#include <memory>
#include <utility>

#include <vorel/render/Printer.h>
#include <vorel/render/PrinterV2.h>
#include "Recording.h"

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

TEST_F(PrinterTest, WriteQuotedStringCopiesRunsAndEscapesUnescapedQuotes) {
   const struct {
      const char* text;
      const char* output;
      Calls calls;  // with an area of one byte, which no run of two or more fits
   } cases[] = {
         {"", "", {}},
         {R"(ab"cde)", R"(ab\"cde)", {"allocate 2", "allocate 2", "allocate 3"}},
         {R"("")", R"(\"\")", {"allocate 2", "allocate 2"}},
         {R"(a\"b)", R"(a\"b)", {"allocate 4"}},
         {R"(a\\"b)", R"(a\\\"b)", {"allocate 3", "allocate 2", "allocate 1"}},
         {R"(\x"b)", R"(\x\"b)", {"allocate 2", "allocate 2", "allocate 1"}},
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
