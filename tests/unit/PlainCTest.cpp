#include <vorel/plain/PlainC.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include "RecordingBuffer.h"
#include "Resources.h"

using namespace vorel;

namespace {

struct Deinit {
   void operator()(vorel_Renderer* handle) const { deinitPrinter(handle); }
};
using Handle = std::unique_ptr<vorel_Renderer, Deinit>;

/** A document with all there is. */
void printDocument(vorel_Renderer* to) {
   start(to);
   EXPECT_GE(addFrills(to, "%s:\n", 0, "Title"), 0);
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

TEST(PlainC, WritesEachPieceAtOnce) {
   const Pipe packets(
         [](int* ends) { return socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends); });
   const auto writes = [&] {
      Calls all;
      for (std::string packet; !(packet = packets.readSome()).empty();)
         all.push_back(packet);
      return all;
   };
   setInterrupted();
   const Handle json(initPrinter(packets.writer, outputFormatJson));
   EXPECT_FALSE(isInterrupted());
   start(json.get());
   end(json.get());
   EXPECT_EQ(writes(), (Calls{"{", "}", "\n"}));
   printDocument(json.get());
   EXPECT_EQ(writes(), (Calls{"{", "\"list\":[", "{", "}", "]", ",", "\"model\":{", "}", ",",
                              "\"dict\":{", "\"k\":", "{", "}", "}", "}", "\n"}));
   const Handle text(initPrinter(packets.writer, outputFormatText));
   printDocument(text.get());
   EXPECT_EQ(writes(), (Calls{"Title:\n"}));
   setInterruptedForTest();
   EXPECT_EQ(addFrills(text.get(), "%d", 0, 1), -1);
   EXPECT_EQ(addFrills(json.get(), "%d", 0, 1), 0);
   EXPECT_EQ(writes(), Calls{});
   resetInterruptedForTest();

   RecordingBuffer buffer(10);
   Renderer buffered(outputFormatText, &buffer, true);
   ioflush(&buffered);
   EXPECT_EQ(buffer.calls, Calls{"flush"});
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
