// The calls that every operation makes on its buffer, its output, its result and its effect on the
// comma, all predicted from the contract of the write area by a small model; and the structure
// operations when the buffer throws or stops the process.
#include "render/Renderer.h"

#include <functional>
#include <string>
#include <vector>

#include "RendererModel.h"
#include "plain/PlainC.h"

using namespace vorel;

namespace {

template <class Info>
struct Tagged : Info {
   explicit Tagged(AttrType_t tag) { this->type = tag; }
};

int addThreeOrFive(Renderer& to) {
   Attr32Info hidden("hidden", 1);
   const Attr32Info name("name", "eth0"), mtu("mtu", 576U), up("", true);
   hidden.suppressed = true;
   const char* const fmt = "Name: %s  Mtu: %u  Up: %s\n";
   return to.format == outputFormatText
                ? to.addAttributes(fmt, 3, "eth0", 576U, "yes")
                : to.addAttributes(fmt, 5, &hidden, &name, &mtu, &up, &hidden);
}
int addTrueOfAnotherValue(Renderer& to) {
   Attr32Info info("flag", true);
   info.value.asBool = 256;
   return to.addAttributesJson(1, &info);
}
int addNothing(Renderer& to) {
   Attr32Info hidden("hidden", 1);
   hidden.suppressed = true;
   return to.addAttributesJson(1, &hidden) + to.addAttributesJson(0) + to.addAttributesJson(-1);
}

const std::string kLong(600, 'l');  // also longer than what is put together without the heap
const char* const kNull = nullptr;  // prints as the C library prints it

const std::vector<Step> kSteps = {
      plain(kKeeps, &Renderer::start, {"{"}),
      frill("Heading"),
      frill(""),
      opens(&Renderer::startList, "items", R"("items":[)"),
      plain(kOpens, &Renderer::startListEntry, {"{"}),
      member("i", INT32_MIN, R"("i":-2147483648)"),
      member("u", UINT32_MAX, R"("u":4294967295)"),
      member<Attr64Info>("l", UINT64_MAX, R"("l":18446744073709551615)"),
      member("f", 1.5F, R"("f":1.500000)"),
      member<Attr64Info>("d", -0.1, R"("d":-0.100000)"),
      member("s", "a\"b", R"("s":"a"b")"),
      member("t", true, R"("t":true)"),
      member("n", false, R"("n":false)"),
      {kItems, addTrueOfAnotherValue, {R"("flag":true)"}},
      plain(kCloses, &Renderer::endListEntry, {"}"}),
      plain(kClosesLate, &Renderer::endList, {"]"}),
      opens(&Renderer::startList, "", R"("":[)"),
      member("", -7, "-7"),
      member("", 7U, "7"),
      member<Attr64Info>("", uint64_t{8}, "8"),
      member("", -0.25F, "-0.250000"),
      member<Attr64Info>("", 1e19, "10000000000000000000.000000"),
      member("", "x", R"("x")"),
      {kItems, addNothing, {}},
      member("", true, "true"),
      member("", false, "false"),
      plain(kClosesLate, &Renderer::endList, {"]"}),
      opens(&Renderer::startList, "empty", R"("empty":[)"),
      plain(kClosesLate, &Renderer::endList, {"]"}),
      opens(&Renderer::startDict, "ids", R"("ids":{)"),
      entry<Attr32Info>(&Renderer::startDictEntry, INT32_MIN, R"("-2147483648":{)"),
      {kItems, addNothing, {}},
      plain(kCloses, &Renderer::endDictEntry, {"}"}),
      entry<Attr64Info>(&Renderer::startDictEntry, UINT64_MAX, R"("18446744073709551615":{)"),
      plain(kCloses, &Renderer::endDictEntry, {"}"}),
      plain(kCloses, &Renderer::endDict, {"}"}),
      opens(&Renderer::startSubmodel, "flags", R"("flags":{)"),
      entry<Attr32Info>(&Renderer::startSimpleDictEntry, UINT32_MAX, R"("4294967295":)"),
      member("", true, "true"),
      plain(kCloses, &Renderer::endSimpleDictEntry, {}),
      entry<Attr64Info>(&Renderer::startSimpleDictEntry, UINT64_MAX, R"("18446744073709551615":)"),
      inText(plain(kOpens, &Renderer::startObj, {"{"})),
      inText(plain(kCloses, &Renderer::endObj, {"}"})),
      plain(kCloses, &Renderer::endSimpleDictEntry, {}),
      plain(kCloses, &Renderer::endSubmodel, {"}"}),
      inText(opens(&Renderer::startSimpleObj, "simple", R"("simple":)")),
      member("", kLong.c_str(), "\"" + kLong + "\""),
      inText(opens(&Renderer::startObj, "intf", R"("intf":{)")),
      {kItems,  // the result is the length of "mtu":576
       addThreeOrFive,
       {R"("name":"eth0")", R"("mtu":576)", "true"},
       "Name: eth0  Mtu: 576  Up: yes\n"},
      member(kLong.c_str(), 1, "\"" + kLong + "\":1"),
      frill(kLong),
      wrappedFrill("wrapped"),
      wrappedFrill(kLong),
      inText(opens(&Renderer::startObj, kNull, "\"(null)\":{")),
      member(kNull, kNull, "\"(null)\":\"(null)\""),
      member(kNull, 1, "\"(null)\":1"),
      member("s", kNull, "\"s\":\"(null)\""),
      entry<Attr32Info>(&Renderer::startDictEntry, kNull, "\"(null)\":{"),
      plain(kCloses, &Renderer::endDictEntry, {"}"}),
      inText(plain(kCloses, &Renderer::endObj, {"}"})),
      plain(kKeeps, &Renderer::end, {"}", "\n"}),
};

TEST(Renderer, EveryOperationMakesThePredictedCalls) {
   for (OutputFormat_t format : {outputFormatUnknown, outputFormatText, outputFormatJson}) {
      EXPECT_EQ(compare(kSteps, {format, false, 0}), "");
      for (size_t size = 0; size < 1400 && !HasFailure(); size += size < 80 || size > 590 ? 1 : 37)
         EXPECT_EQ(compare(kSteps, {format, true, size}), "");
   }
}

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
