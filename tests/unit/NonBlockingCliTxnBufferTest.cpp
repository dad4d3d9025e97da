// What stops the process, and what piles up; all else is checked against a model, by txn_fuzz.cpp.
#include <vorel/buffers/NonBlockingCliTxnBuffer.h>

#include <functional>

#include "Recording.h"

using TxnBuffer = vorel::NonBlockingCliTxnBuffer;

namespace {

void put(TxnBuffer& buffer, const std::string& text) {
   std::memcpy(buffer.getBuffer(text.size()), text.data(), text.size());
   buffer.writePtr += text.size();
}

std::string nextPiece(TxnBuffer& buffer) {
   const char* piece = nullptr;
   const size_t size = buffer.nextExtract(&piece);
   return {piece, size};
}

TEST(NonBlockingCliTxnBuffer, TransactionsThatCommitNothingLeaveNothing) {
   TxnBuffer buffer(16);
   for (size_t i = 0; i < 1000; ++i) {
      TxnBuffer::Transaction transaction(&buffer);
      i % 2 == 0 ? buffer.allocateSpace(20 + i) : static_cast<void>(buffer.reserve(0));
      transaction.confirm();
   }
   EXPECT_LE(buffer.data.size(), 2U);
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
