// What the renderer does beside its output, which document_fuzz.cpp compares with a model.
#include <vorel/render/Renderer.h>

#include <string>

#include <vorel/plain/PlainC.h>
#include "Recording.h"

using namespace vorel;

namespace {

template <class Info>
struct Tagged : Info {
   explicit Tagged(AttrType_t tag) { this->type = tag; }
};

TEST(Renderer, ForwardsToItsBufferAndDestroysSilently) {
   for (OutputFormat_t format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      RecordingBuffer buffer(10);
      {
         Renderer renderer(format, &buffer, true);
         EXPECT_TRUE(renderer.wouldBlock());
         EXPECT_EQ(renderer.fullness(), 42U);
         renderer.ioflush();
         renderer.start();
      }
      EXPECT_EQ(buffer.calls, (Calls{"wouldBlock", "flush"}));
      EXPECT_EQ(buffer.output(), format == outputFormatText ? "" : "{");
   }
}

TEST(Renderer, FormatsByName) {
   EXPECT_EQ(stringToOutputFormat("text"), outputFormatText);
   EXPECT_EQ(stringToOutputFormat("json"), outputFormatJson);
   for (const char* word : {"", "JSON", "Text", "json ", "text ", "tex", "attr"})
      EXPECT_EQ(stringToOutputFormat(word), outputFormatUnknown) << word;
   EXPECT_EQ(stringToOutputFormat(nullptr), outputFormatUnknown);
}

TEST(RendererDeathTest, StopsOnUnknownKeysAndWhenThereIsNoRoom) {
   RecordingBuffer buffer(3);
   Renderer renderer(outputFormatJson, &buffer, true);
   const auto expect = [&](auto run, int line, const std::string& function) {
      EXPECT_DEATH(run(renderer),
                   report("0", "Renderer", line, "void vorel::Renderer::" + function));
      Renderer text(outputFormatText, &buffer, true);
      run(text);  // which does not look at the key
   };
   expect([](Renderer& r) { r.startDictEntry(Tagged<Attr32Info>(attrBool)); }, 157,
          "startDictEntry(const vorel::Attr32Info&)");
   expect([](Renderer& r) { r.startDictEntry(Tagged<Attr64Info>(attrString)); }, 171,
          "startDictEntry(const vorel::Attr64Info&)");
   expect([](Renderer& r) { r.startSimpleDictEntry(Tagged<Attr32Info>(attrUint64)); }, 192,
          "startSimpleDictEntry(const vorel::Attr32Info&)");
   expect([](Renderer& r) { r.startSimpleDictEntry(Tagged<Attr64Info>(attrInt32)); }, 206,
          "startSimpleDictEntry(const vorel::Attr64Info&)");
   EXPECT_EQ(buffer.calls, Calls{});
   EXPECT_EQ(buffer.output(), "");
   buffer.stingy = true;
   EXPECT_DEATH(renderer.startList("ab"), noRoomReport());
   const Attr32Info bare("", true);
   EXPECT_DEATH(renderer.addAttributesJson(1, &bare), noRoomReport());
}

}  // namespace
