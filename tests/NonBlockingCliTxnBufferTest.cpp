#include "buffers/NonBlockingCliTxnBuffer.h"

#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>

#include "Recording.h"
#include "TxnModel.h"
#include "buffers/VorelBuffer.h"
#include "render/RendererV2.h"

using namespace vorel;

namespace {

void put(TxnBuffer& buffer, const std::string& text) {
   std::memcpy(buffer.getBuffer(text.size()), text.data(), text.size());
   buffer.writePtr += text.size();
}

void fill(const TxnBuffer::Chunk& chunk, char c) {
   std::fill(chunk.start, chunk.end, c);
}

std::string nextPiece(TxnBuffer& buffer) {
   const char* piece = nullptr;
   const size_t size = buffer.nextExtract(&piece);
   return {piece, size};
}

std::string drain(TxnBuffer& buffer) {
   std::string all = contentOf(buffer), sent;
   for (std::string piece; !(piece = nextPiece(buffer)).empty(); buffer.extract(piece.size()))
      sent += piece;
   EXPECT_EQ(sent, all);
   EXPECT_EQ(contentOf(buffer), "");
   return sent;
}

uint64_t numberFrom(const char* variable, uint64_t otherwise) {
   const char* const text = std::getenv(variable);
   return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

TEST(NonBlockingCliTxnBuffer, AChunkIsClosedSplitReplacedAndUsedAgain) {
   TxnBuffer buffer(16);
   EXPECT_EQ(buffer.fullness(), 0U);
   put(buffer, "0123456789");
   buffer.allocateSpace(20);
   EXPECT_EQ(buffer.rlen(), 20U);
   EXPECT_EQ(nextPiece(buffer), "0123456789");
   buffer.extract(10);
   EXPECT_EQ(buffer.data.size(), 1U);
   put(buffer, "abc");
   EXPECT_EQ(drain(buffer), "abc");
   EXPECT_EQ(buffer.rlen(), 20U);

   put(buffer, "0123456");
   const TxnBuffer::Chunk& shared = buffer.reserve(4);
   EXPECT_EQ(buffer.rlen(), 9U);
   buffer.allocateSpace(10);  // the empty back chunk leaves its block to the reservation
   EXPECT_EQ(buffer.data.size(), 3U);
   EXPECT_EQ(buffer.rlen(), 16U);
   const TxnBuffer::Chunk& larger = buffer.reserve(30);  // in place of the empty chunk
   EXPECT_EQ(buffer.data.size(), 4U);
   put(buffer, "end");
   fill(shared, 'x');
   fill(larger, 'y');
   EXPECT_EQ(drain(buffer), "0123456xxxx" + std::string(30, 'y') + "end");
}

// Seed and length are printed first, so that they are known after a crash, too.
TEST(NonBlockingCliTxnBuffer, AgreesWithAStringWhateverIsDone) {
   const auto seed = static_cast<uint32_t>(numberFrom("VOREL_TXN_SEED", 1));
   const uint64_t steps = numberFrom("VOREL_TXN_STEPS", sanitizing("thread") ? 30000 : 300000);
   const std::string length =
         "VOREL_TXN_SEED=" + std::to_string(seed) + " VOREL_TXN_STEPS=" + std::to_string(steps);
   std::cout << length << std::endl;
   struct {
      std::mt19937 engine;
      uint32_t next() { return static_cast<uint32_t>(engine()); }
   } source{std::mt19937(seed)};
   const long before = liveBlocks();
   {
      TxnModel model(source);
      for (uint64_t i = 1; i <= steps; ++i) {
         try {
            model.step();
         } catch (const std::logic_error& broken) {
            FAIL() << broken.what() << ", broken in step " << i << " of " << length;
         }
      }
   }
   EXPECT_EQ(liveBlocks(), before);
}

void print(RendererV2& renderer) {
   const bool json = renderer.format == outputFormatJson;
   const std::string longName(300, 'n');
   renderer.start();
   renderer.startList("interfaces");
   for (const char* name : {"lo", "eth0", "", longName.c_str()}) {
      const Attr32Info nameInfo("name", name), mtu("mtu", 1500U);
      const Attr64Info load("load", .5), bytes("bytes", UINT64_MAX);
      const char fmt[] = "%-20s mtu %u load %.1f bytes %lu\n";
      renderer.startListEntry();
      renderer.addFrills("\n%s\n", "--------");
      if (json)
         renderer.addAttributes(fmt, 4, &nameInfo, &mtu, &load, &bytes);
      else
         renderer.addAttributes(fmt, 4, name, 1500U, .5, UINT64_MAX);
      renderer.endListEntry();
   }
   renderer.endList();
   renderer.startDict("by number");
   for (int i = -300; i < 300; ++i) {
      const Attr32Info value("value", i);
      renderer.startDictEntry(value);
      if (json)
         renderer.addArgs("%d of %s;", &value, &value);
      else
         renderer.addArgs("%d of %s;", i, "300");
      renderer.startObj("quoted");
      renderer.writeQuotedString(R"(say "yes" or \"no\")");
      renderer.endObj();
      renderer.endDictEntry();
   }
   renderer.endDict();
   renderer.end();
}

TEST(NonBlockingCliTxnBuffer, GetsTheBytesThatTheBlockingBufferGets) {
   for (const OutputFormat_t format : {outputFormatText, outputFormatJson}) {
      Pipe pipe;
      {
         VorelBuffer blocking(pipe.writer, 1000, 0);
         RendererV2 renderer(format, &blocking, true);
         print(renderer);
      }
      const std::string expected = pipe.finish();
      EXPECT_GT(expected.size(), 10000U);
      for (const size_t chunkSize : {0U, 1U, 7U, 64U, 1000000U}) {
         TxnBuffer buffer(chunkSize);
         RendererV2 renderer(format, &buffer, true);
         print(renderer);
         EXPECT_EQ(drain(buffer), expected) << chunkSize;
      }
   }
}

TEST(NonBlockingCliTxnBufferDeathTest, StopsOnMisuse) {
   const auto stops = [](int line, const char* expression, const std::string& type,
                         const char* operation, const std::function<void(TxnBuffer&)>& misuse) {
      TxnBuffer buffer(16);
      EXPECT_DEATH(misuse(buffer), report(expression, "NonBlockingCliTxnBuffer", line,
                                          type + "vorel::NonBlockingCliTxnBuffer::" + operation));
   };
   stops(97, R"(!"you cannot flush this buffer, just let it grow")", "virtual void ", "flush()",
         [](auto& b) { b.flush(); });
   stops(253, R"(!"unbuffered writes unsupported by NonBlockingCliTxnBuffer")", "virtual void ",
         "rawWrite(const char*, size_t)", [](auto& b) { b.rawWrite("x", 1); });
   stops(256, R"(!"flush is not supported by NonBlockingCliTxnBuffer")", "virtual bool ",
         "wouldBlock()", [](auto& b) { b.wouldBlock(); });
   stops(317, "txnCount == 0", "virtual ", "~NonBlockingCliTxnBuffer()",
         [](auto&) { TxnBuffer(1).startTransaction(); });
   stops(107, "!data.empty()", "size_t ", "nextExtract(const char**)", [](auto& b) {
      b.data.clear();
      nextPiece(b);
   });
   stops(115, R"(txnCount == 0 && "can't write data while transactions are pending")", "size_t ",
         "nextExtract(const char**)", [](auto& b) {
            b.startTransaction();
            put(b, "x");
            b.writeSome(1);
         });
   stops(118, "c.inRange( readPtr )", "size_t ", "nextExtract(const char**)", [](auto& b) {
      b.readPtr = b.endPtr + 1;
      nextPiece(b);
   });
   stops(153, "haveData()", "virtual ssize_t ", "writeSome(int)", [](auto& b) { b.writeSome(1); });
   stops(144, "endPtr == c.end", "void ", "extract(size_t)", [](auto& b) {
      put(b, "x");
      --b.endPtr;
      b.extract(1);
   });
   stops(199, "!data.empty()", "void ",
         "cancelTransaction(const vorel::NonBlockingCliTxnBuffer::SavePoint&)", [](auto& b) {
            b.cancelTransaction({nullptr, nullptr, nullptr});
         });
   stops(51, "oldbase", "void ", "dropBack()", [](auto& b) {
      b.data.back().base = nullptr;
      b.dropBack();
   });
}

}  // namespace
