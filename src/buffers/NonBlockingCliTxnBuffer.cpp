#include <vorel/buffers/NonBlockingCliTxnBuffer.h>

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace vorel {

namespace {

constexpr char kUnit[] = "NonBlockingCliTxnBuffer";
constexpr ZyFmt::Assertion kBackOwnsBlock = {"oldbase", kUnit, 51,
                                             "void vorel::NonBlockingCliTxnBuffer::dropBack()"};
constexpr ZyFmt::Assertion kSavePointIsFound = {
      "!data.empty()", kUnit, 199,
      "void vorel::NonBlockingCliTxnBuffer::cancelTransaction(const "
      "vorel::NonBlockingCliTxnBuffer::SavePoint&)"};
constexpr char kNextExtract[] = "size_t vorel::NonBlockingCliTxnBuffer::nextExtract(const char**)";
constexpr ZyFmt::Assertion kHasChunk = {"!data.empty()", kUnit, 107, kNextExtract};
constexpr ZyFmt::Assertion kNoTxnWhileSending = {
      "txnCount == 0 && \"can't write data while transactions are pending\"", kUnit, 115,
      kNextExtract};
constexpr ZyFmt::Assertion kReadsInFront = {"c.inRange( readPtr )", kUnit, 118, kNextExtract};
constexpr ZyFmt::Assertion kAreaEndsWithBack = {
      "endPtr == c.end", kUnit, 144, "void vorel::NonBlockingCliTxnBuffer::extract(size_t)"};
constexpr ZyFmt::Assertion kHasData = {
      "haveData()", kUnit, 153, "virtual ssize_t vorel::NonBlockingCliTxnBuffer::writeSome(int)"};

}  // namespace

NonBlockingCliTxnBuffer::NonBlockingCliTxnBuffer(size_t chunkSize_)
      : sealedBytes(0), chunkSize(chunkSize_), txnCount(0) {
   const Chunk& first = data.emplace_back(chunkSize);
   writePtr = readPtr = first.start;
   endPtr = first.end;
}

size_t NonBlockingCliTxnBuffer::usedInChunk(const Chunk& c) const {
   const char* const lower = &c == &data.front() ? readPtr : c.start;
   const char* const upper = &c == &data.back() ? writePtr : c.end;
   return static_cast<size_t>(upper - lower);
}

size_t NonBlockingCliTxnBuffer::usedSpace() const {
   return sealedBytes + usedInChunk(data.back());
}

void NonBlockingCliTxnBuffer::allocateSpace(size_t count) {
   if (count <= rlen())
      return;
   const size_t size = std::max(count, chunkSize);
   Chunk& back = data.back();
   const size_t used = usedInChunk(back);
   if (used == 0 && txnCount == 0) {
      // The empty chunk gets its new block in place: the queue has no need to allocate. In a
      // transaction it stays as it is, since a save point may name it.
      char* const block = new char[size];
      moveEmpty(data.size() - 1, block);
      back.base = block;
      back.end = block + size;
   } else {
      data.emplace_back(size);
      back.end = writePtr;
      sealedBytes += used;
   }
   writePtr = data.back().start;
   endPtr = data.back().end;
}

NonBlockingCliTxnBuffer::Chunk& NonBlockingCliTxnBuffer::reserve(size_t count) {
   const SavePoint before{&data.back(), writePtr, data.back().end};
   const Chunk* const front = &data.front();
   const char* const start = before.chunk->start;
   const char* const unsent = readPtr;
   const size_t used = usedSpace();
   try {
      // A block that allocateSpace has replaced cannot be brought back: where it will do so, the
      // queue gets its new chunk, which may fail, before.
      if (count > rlen() && txnCount == 0 && usedInChunk(data.back()) == 0)
         splitBack(writePtr);
      allocateSpace(count);
      if (Chunk* const place = emptyPlace();
          place != nullptr && (count == 0 || place == before.chunk)) {
         writePtr += count;
         place->end = data.back().start = writePtr;
         sealedBytes += count;
         return *place;
      }
      if (usedInChunk(data.back()) != 0)
         splitBack(writePtr);
      Chunk& reserved = data.back();
      splitBack(writePtr + count);
      return reserved;
   } catch (...) {
      // What an overriding allocateSpace has sent, written or replaced cannot be brought back.
      if (&data.front() == front && readPtr == unsent && usedSpace() == used &&
          before.chunk->start == start)
         takeBack(before);
      throw;
   }
}

void NonBlockingCliTxnBuffer::splitBack(char* at) {
   Chunk& back = data.back();
   data.emplace_back(&back, at);
   writePtr = at;
   sealedBytes += usedInChunk(back);
}

NonBlockingCliTxnBuffer::Chunk* NonBlockingCliTxnBuffer::emptyPlace() {
   if (data.size() == 1 || usedInChunk(data.back()) != 0)
      return nullptr;
   Chunk& last = data[data.size() - 2];
   return last.base == nullptr && usedInChunk(last) == 0 ? &last : nullptr;
}

void NonBlockingCliTxnBuffer::moveEmpty(size_t index, char* to) {
   char* const block = std::exchange(data[index].base, nullptr);
   data[index].start = data[index].end = to;
   while (index > 0 && data[index - 1].base == nullptr && usedInChunk(data[index - 1]) == 0) {
      --index;
      data[index].start = data[index].end = to;
   }
   if (index == 0)
      readPtr = to;
   if (index > 0 && data[index - 1].base == nullptr)
      data[index - 1].base = block;
   else
      delete[] block;
}

void NonBlockingCliTxnBuffer::giveBackEmpty(const Chunk* first) {
   for (size_t i = data.size() - 1; i > 0 && &data[i] != first; --i) {
      Chunk& chunk = data[i - 1];
      Chunk& next = data[i];
      if (chunk.base == nullptr || usedInChunk(chunk) != 0)
         continue;
      moveEmpty(i - 1, next.start);
      if (&next == &data.back()) {  // which nobody holds: it moves up
         chunk.base = std::exchange(next.base, nullptr);
         chunk.end = next.end;
         data.pop_back();
      }
   }
}

void NonBlockingCliTxnBuffer::dropBack() {
   if (data.back().base == nullptr)
      kBackOwnsBlock.fail();
   char* const block = std::exchange(data.back().base, nullptr);
   data.pop_back();
   if (data.empty() || data.back().base != nullptr)
      delete[] block;
   else
      data.back().base = block;
}

NonBlockingCliTxnBuffer::SavePoint NonBlockingCliTxnBuffer::startTransaction() {
   ++txnCount;
   return {&data.back(), writePtr, data.back().end};
}

void NonBlockingCliTxnBuffer::confirmTransaction(const SavePoint& sp) {
   if (--txnCount == 0)
      giveBackEmpty(sp.chunk);
}

void NonBlockingCliTxnBuffer::cancelTransaction(const SavePoint& sp) {
   takeBack(sp);
   --txnCount;
}

void NonBlockingCliTxnBuffer::takeBack(const SavePoint& sp) {
   while (&data.back() != sp.chunk) {
      dropBack();
      if (data.empty())
         kSavePointIsFound.fail();
      writePtr = endPtr = data.back().end;
      sealedBytes -= usedInChunk(data.back());
   }
   writePtr = sp.savedWritePtr;
   sp.chunk->end = sp.savedEnd;
   endPtr = sp.savedEnd;
}

bool NonBlockingCliTxnBuffer::haveData() {
   return usedSpace() != 0;
}

size_t NonBlockingCliTxnBuffer::nextExtract(const char** out) {
   if (data.empty())
      kHasChunk.fail();
   if (txnCount != 0)
      kNoTxnWhileSending.fail();
   if (!data.front().inRange(readPtr))
      kReadsInFront.fail();
   while (usedInChunk(data.front()) == 0 && data.size() > 1) {
      data.pop_front();
      readPtr = data.front().start;
   }
   *out = readPtr;
   return usedInChunk(data.front());
}

void NonBlockingCliTxnBuffer::extract(size_t count) {
   readPtr += count;
   Chunk& c = data.front();
   const bool isBack = data.size() == 1;
   if (!isBack)
      sealedBytes -= count;
   if (usedInChunk(c) != 0)
      return;
   if (isBack) {
      if (endPtr != c.end)
         kAreaEndsWithBack.fail();
      writePtr = readPtr = c.start = c.base;
   } else {
      data.pop_front();
      readPtr = data.front().start;
   }
}

ssize_t NonBlockingCliTxnBuffer::writeSome(int fd) {
   if (!haveData())
      kHasData.fail();
   const char* piece = nullptr;
   const size_t size = nextExtract(&piece);
   const ssize_t written = ::write(fd, piece, size);
   if (written > 0)
      extract(static_cast<size_t>(written));
   return written;
}

}  // namespace vorel
