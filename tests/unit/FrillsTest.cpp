#include <string>

#include <vorel/render/Renderer.h>
#include "Recording.h"

using namespace vorel;

namespace {

class FrillsTest : public InterruptingTest {};

TEST_F(FrillsTest, AnInterruptedThreadIsStoppedByAllButTheWrapper) {
   RecordingBuffer buffer(20);
   setInterrupted();
   for (OutputFormat_t format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      Renderer renderer(format, &buffer, true);
      EXPECT_THROW(renderer.addFrills("x"), SigIntException);
   }
   Renderer text(outputFormatText, &buffer, true);
   EXPECT_EQ(addVaFrills(text, "x"), 1);
   EXPECT_EQ(buffer.output(), "x");
}

TEST_F(FrillsTest, ATextThatCannotBeFormattedIsNotWritten) {
   const wchar_t* const foreign = L"\u20ac";  // no character of the "C" locale
   for (bool buffered : {true, false}) {
      RecordingBuffer buffer(20);
      Renderer renderer(outputFormatText, &buffer, buffered);
      EXPECT_LT(addVaFrills(renderer, "ab%ls", foreign), 0);
      EXPECT_FALSE(isInterrupted());
      EXPECT_THROW(renderer.addFrills("ab%ls", foreign), SigIntException);
      EXPECT_TRUE(isInterrupted());
      resetInterrupted();
      EXPECT_THROW(renderer.addAttributes("ab%ls", 1, foreign), SigIntException);
      EXPECT_TRUE(isInterrupted());
      resetInterrupted();
      EXPECT_EQ(buffer.calls, Calls{});
      EXPECT_EQ(buffer.output(), "");
   }
}

TEST(FrillsDeathTest, StopOnOtherFormatsAndWhenThereIsNoRoom) {
   RecordingBuffer buffer(3);
   for (OutputFormat_t format : {outputFormatUnknown, OutputFormat_t{3}}) {
      Renderer renderer(format, &buffer, true);
      EXPECT_DEATH(
            renderer.addFrills("x"),
            report("0", "Renderer", 503, "int vorel::Renderer::addFrills(const char*, ...)"));
      EXPECT_DEATH(
            addVaFrills(renderer, "x"),
            report("0", "Renderer", 375,
                   "int vorel::Renderer::addVaFrillsWrapper(const char*, int, __va_list_tag*)"));
   }
   buffer.stingy = true;
   Renderer text(outputFormatText, &buffer, true);
   EXPECT_DEATH(text.addFrills("%s", "abc"), noRoomReport());
   EXPECT_DEATH(addVaFrills(text, "%s", "abc"), noRoomReport());
   EXPECT_DEATH(text.addAttributes("%s", 1, "abc"), noRoomReport());
}

}  // namespace
