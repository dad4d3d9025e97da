#include <vorel/buffers/NonBlockingCliTxnBuffer.h>

#include <unistd.h>

#include <algorithm>

namespace vorel {

namespace {

using Chunks = std::deque<NonBlockingCliTxnBuffer::Chunk>;

/** Releases the block of the chunk at `index`, or gives it to the chunk before if that lies in it;
 * the chunk itself then has none. */
void giveUpBlock(Chunks& chunks, size_t index) {
   char* const block = chunks[index].base;
   chunks[index].base = nullptr;
   if (index > 0 && chunks[index - 1].base == nullptr)
      chunks[index - 1].base = block;
   else
      delete[] block;
}

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
      giveUpBlock(data, data.size() - 1);
      back.base = back.start = block;
      back.end = block + size;
   } else {
      data.emplace_back(size);
      back.end = writePtr;
      sealedBytes += used;
   }
   writePtr = data.back().start;
   endPtr = data.back().end;
   if (data.size() == 1)
      readPtr = writePtr;
}

NonBlockingCliTxnBuffer::Chunk& NonBlockingCliTxnBuffer::reserve(size_t count) {
   // A transaction of its own takes the reservation back when memory runs out half-way.
   Transaction attempt(this);
   const size_t before = data.size();
   const bool wasEmpty = usedInChunk(data.back()) == 0;
   allocateSpace(count);
   const bool grown = data.size() != before;
   if (const size_t used = usedInChunk(data.back()); used != 0) {
      data.emplace_back(&data.back(), writePtr);
      sealedBytes += used;
   }
   Chunk* reserved = &data.back();
   writePtr += count;
   data.emplace_back(reserved, writePtr);
   sealedBytes += count;
   attempt.confirm();

   if (grown && wasEmpty && txnCount == 0) {
      // The growth left the empty chunk behind for the attempt's sake: move up into its place.
      const size_t empty = data.size() - 3;
      giveUpBlock(data, empty);
      data[empty].start = reserved->start;
      data[empty].end = reserved->end;
      std::swap(reserved->base, data.back().base);
      reserved->start = data.back().start;
      reserved->end = data.back().end;
      data.pop_back();
      reserved = &data[empty];
      if (empty == 0)
         readPtr = reserved->start;
   }
   return *reserved;
}

void NonBlockingCliTxnBuffer::dropBack() {
   if (data.back().base == nullptr)
      __assert_fail("oldbase", "NonBlockingCliTxnBuffer", 51,
                    "void vorel::NonBlockingCliTxnBuffer::dropBack()");
   giveUpBlock(data, data.size() - 1);
   data.pop_back();
}

NonBlockingCliTxnBuffer::SavePoint NonBlockingCliTxnBuffer::startTransaction() {
   ++txnCount;
   return {&data.back(), writePtr, data.back().end};
}

void NonBlockingCliTxnBuffer::confirmTransaction(const SavePoint&) {
   --txnCount;
}

void NonBlockingCliTxnBuffer::cancelTransaction(const SavePoint& sp) {
   while (&data.back() != sp.chunk) {
      dropBack();
      if (data.empty())
         __assert_fail("!data.empty()", "NonBlockingCliTxnBuffer", 199,
                       "void vorel::NonBlockingCliTxnBuffer::cancelTransaction(const "
                       "vorel::NonBlockingCliTxnBuffer::SavePoint&)");
      writePtr = endPtr = data.back().end;
      sealedBytes -= usedInChunk(data.back());
   }
   --txnCount;
   writePtr = sp.savedWritePtr;
   sp.chunk->end = sp.savedEnd;
   endPtr = sp.savedEnd;
}

bool NonBlockingCliTxnBuffer::haveData() {
   return usedSpace() != 0;
}

size_t NonBlockingCliTxnBuffer::nextExtract(const char** out) {
   static constexpr char kFunction[] =
         "size_t vorel::NonBlockingCliTxnBuffer::nextExtract(const char**)";
   if (data.empty())
      __assert_fail("!data.empty()", "NonBlockingCliTxnBuffer", 107, kFunction);
   if (txnCount != 0)
      __assert_fail("txnCount == 0 && \"can't write data while transactions are pending\"",
                    "NonBlockingCliTxnBuffer", 115, kFunction);
   if (!data.front().inRange(readPtr))
      __assert_fail("c.inRange( readPtr )", "NonBlockingCliTxnBuffer", 118, kFunction);
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
         __assert_fail("endPtr == c.end", "NonBlockingCliTxnBuffer", 144,
                       "void vorel::NonBlockingCliTxnBuffer::extract(size_t)");
      writePtr = readPtr = c.start = c.base;
   } else {
      data.pop_front();
      readPtr = data.front().start;
   }
}

ssize_t NonBlockingCliTxnBuffer::writeSome(int fd) {
   if (!haveData())
      __assert_fail("haveData()", "NonBlockingCliTxnBuffer", 153,
                    "virtual ssize_t vorel::NonBlockingCliTxnBuffer::writeSome(int)");
   const char* piece = nullptr;
   const size_t size = nextExtract(&piece);
   const ssize_t written = ::write(fd, piece, size);
   if (written > 0)
      extract(static_cast<size_t>(written));
   return written;
}

}  // namespace vorel
