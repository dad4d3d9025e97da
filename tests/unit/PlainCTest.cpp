#include <vorel/plain/PlainC.h>

#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <vorel/buffers/VorelBuffer.h>
#include <vorel/render/Printer.h>
#include "Recording.h"

using namespace vorel;

namespace {

struct Deinit {
   void operator()(vorel_Renderer* handle) const { deinitPrinter(handle); }
};
using Handle = std::unique_ptr<vorel_Renderer, Deinit>;

class PlainCTest : public InterruptingTest {};

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

TEST_F(PlainCTest, WritesEachPieceAtOnce) {
   int ends[2];
   ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
   const Descriptor reader(ends[0]), writer(ends[1]);
   const auto writes = [&] {
      Calls packets;
      char packet[100];
      for (ssize_t got = 0; (got = read(reader, packet, sizeof packet)) > 0;)
         packets.emplace_back(packet, static_cast<size_t>(got));
      return packets;
   };
   setInterrupted();
   const Handle json(initPrinter(writer, outputFormatJson));
   EXPECT_FALSE(isInterrupted());
   start(json.get());
   end(json.get());
   EXPECT_EQ(writes(), (Calls{"{", "}", "\n"}));
   printDocument(json.get());
   EXPECT_EQ(writes(), (Calls{"{", "\"list\":[", "{", "}", "]", ",", "\"model\":{", "}", ",",
                              "\"dict\":{", "\"k\":", "{", "}", "}", "}", "\n"}));
   const Handle text(initPrinter(writer, outputFormatText));
   printDocument(text.get());
   EXPECT_EQ(writes(), (Calls{"Title:\n"}));
   setInterruptedForTest();
   EXPECT_EQ(addFrills(text.get(), "%d", 0, 1), -1);
   EXPECT_EQ(addFrills(json.get(), "%d", 0, 1), 0);
   EXPECT_EQ(writes(), Calls{});
}

/** A buffer that, while it makes room for a text, makes the text longer. */
struct LengtheningBuffer : RecordingBuffer {
   char text[100] = "123456789";
   int error = 0;
   LengtheningBuffer() : RecordingBuffer(5) {}
   void allocateSpace(size_t count) override {
      RecordingBuffer::allocateSpace(count);
      std::strcat(text, "123456789");
      errno = error;
   }
};

TEST_F(PlainCTest, ASecondFailureForLackOfAReaderIsNotFatal) {
   LengtheningBuffer buffer;
   Renderer text(outputFormatText, &buffer, true);
   buffer.error = EPIPE;
   EXPECT_EQ(addFrills(&text, "%s", 0, buffer.text), -1);
   EXPECT_EQ(buffer.calls, (Calls{"allocate 10", "allocate 19"}));
   EXPECT_THROW(text.addFrills("%s", buffer.text), SigIntException);
}

TEST(PlainCDeathTest, AnyOtherSecondFailureIsReported) {
   const std::string stop =
         report("0", "PlainC", 196, "int addFrills(vorel::Renderer*, const char*, int, ...)");
   LengtheningBuffer buffer;
   Renderer text(outputFormatText, &buffer, true), aside(outputFormatText, &buffer, false);
   buffer.error = ENOSPC;
   Pipe pipe;
   // In the "C" locale there is no such character.
   EXPECT_DEATH((dup2(pipe.writer, STDOUT_FILENO), addFrills(&aside, "%lc", 0, wint_t{0x20ac})),
                stop);
   EXPECT_DEATH((dup2(pipe.writer, STDOUT_FILENO), addFrills(&text, "%s", 0, buffer.text)), stop);
   EXPECT_EQ(pipe.finish(),
             std::string("vorel '%lc' longer than buffer (error: ") + std::strerror(EILSEQ) +
                   ")\nvorel '%s' longer than buffer (error: " + std::strerror(ENOSPC) + ")\n");
}

TEST_F(PlainCTest, EndReachesTheLibrary) {
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
