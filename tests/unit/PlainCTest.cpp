#include <vorel/plain/PlainC.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "RecordingBuffer.h"

using namespace vorel;

namespace {

TEST(PlainC, FunctionsCallWhatTheirNamesSay) {
   RecordingBuffer buffer(0);
   Renderer json(outputFormatJson, &buffer, false), text(outputFormatText, &buffer, false);
   for (vorel_Renderer* const to : {&json, &text}) {
      start(to);
      EXPECT_EQ(addFrills(to, "%s:\n", 0, "Title"), to == &text ? 7 : 0);
      startList(to, "list");
      startListEntry(to);
      endListEntry(to);
      endList(to);
      startSubmodel(to, "model");
      endSubmodel(to);
      startDict(to, "dict");
      startSimpleDictEntry(to, "k");
      startListEntry(to);
      endListEntry(to);
      endSimpleDictEntry(to);
      endDict(to);
      ioflush(to);
      end(to);
   }
   buffer.failingCall = buffer.calls.size() + 1;
   EXPECT_EQ(addFrills(&text, "%s", 0, "end"), -1);
   EXPECT_EQ(
         buffer.calls,
         (Calls{
               "write {",      "write \"list\":[",  "write {",        "write }", "write ]",
               "write ,",      "write \"model\":{", "write }",        "write ,", "write \"dict\":{",
               "write \"k\":", "write {",           "write }",        "write }", "flush",
               "write }",      "write \n",          "write Title:\n", "flush",   "write end"}));

   setInterruptedForTest();
   vorel_Renderer* const printer = initPrinter(1, outputFormatText);
   EXPECT_FALSE(isInterrupted());
   EXPECT_FALSE(printer->buffered);
   EXPECT_EQ(printer->format, outputFormatText);
   deinitPrinter(printer);
}

TEST(PlainC, FormatsByName) {
   EXPECT_EQ(stringToOutputFormat("text"), outputFormatText);
   EXPECT_EQ(stringToOutputFormat("json"), outputFormatJson);
   for (const char* word : {"", "JSON", "Text", "json ", "text ", "tex", "attr"})
      EXPECT_EQ(stringToOutputFormat(word), outputFormatUnknown) << word;
   EXPECT_EQ(stringToOutputFormat(nullptr), outputFormatUnknown);
}

TEST(PlainC, EndReachesTheLibrary) {
   using End = void (*)(vorel_Renderer*);
   const auto find = [](const char* library, const char* name) {
      void* const loaded = dlopen(library, RTLD_NOW);
      EXPECT_NE(loaded, nullptr) << dlerror();
      return loaded == nullptr ? nullptr : reinterpret_cast<End>(dlsym(loaded, name));
   };
   RecordingBuffer buffer(10);
   Renderer json(outputFormatJson, &buffer, true);
   for (const End function :
        {End{end}, find(VOREL_LIBRARY, "end"), find(PLAIN_PLUGIN, "endFromPlugin")}) {
      ASSERT_NE(function, nullptr);
      function(&json);
   }
   EXPECT_EQ(buffer.output(), "}\n}\n}\n");
}

}  // namespace
