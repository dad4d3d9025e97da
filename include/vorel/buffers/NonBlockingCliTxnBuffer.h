#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>

#include <vorel/buffers/PrintBuffer.h>

#pragma GCC visibility push(default)

namespace vorel {

namespace assertions {
inline constexpr ZyFmt::Assertion kNoTxnAtEnd = {
      "txnCount == 0", "NonBlockingCliTxnBuffer", 317,
      "virtual vorel::NonBlockingCliTxnBuffer::~NonBlockingCliTxnBuffer()"};
inline constexpr ZyFmt::Assertion kNeverFlushed = {
      "!\"you cannot flush this buffer, just let it grow\"", "NonBlockingCliTxnBuffer", 97,
      "virtual void vorel::NonBlockingCliTxnBuffer::flush()"};
inline constexpr ZyFmt::Assertion kNeverUnbuffered = {
      "!\"unbuffered writes unsupported by NonBlockingCliTxnBuffer\"", "NonBlockingCliTxnBuffer",
      253, "virtual void vorel::NonBlockingCliTxnBuffer::rawWrite(const char*, size_t)"};
inline constexpr ZyFmt::Assertion kNeverAskedToBlock = {
      "!\"flush is not supported by NonBlockingCliTxnBuffer\"", "NonBlockingCliTxnBuffer", 256,
      "virtual bool vorel::NonBlockingCliTxnBuffer::wouldBlock()"};
}  // namespace assertions

/**
 * A buffer for writers that must never block: it grows in chunks of memory, and its owner sends
 * the chunks piece by piece. Output can be taken back (transactions) and filled in later
 * (reservations). Content is never moved or copied.
 *
 * A chunk's life: it is opened at the back, where writers fill it; closed at the write position,
 * when more room is needed than it has; split into two that share its block, for a reservation;
 * dropped, when it is the empty back or when a transaction that opened it is cancelled; and sent,
 * from the front on. An empty chunk may stand anywhere; the sending side steps over it. An open
 * transaction keeps empty chunks in place. The end of the outermost one releases their blocks, and
 * drops those that only the write area follows. What stays, as do the chunks of reserve(0), is an
 * empty chunk without a block.
 *
 * Invariants between operations:
 * 1. There is at least one chunk.
 * 2. The write area ends where the back chunk ends: writePtr <= endPtr == data.back().end. The back
 *    chunk owns its block. A chunk that owns none lies in the block of the next one that owns one.
 * 3. A chunk's unsent bytes run from readPtr, if it is the front chunk, otherwise from its start,
 *    up to writePtr, if it is the back chunk, otherwise to its end.
 * 4. sealedBytes is the number of unsent bytes in all chunks but the back chunk.
 *
 * Memory that runs out is reported as std::bad_alloc, and the buffer is then what it was. One
 * thread at a time uses a buffer; the interrupt flags play no part. A renderer over it must be
 * `buffered`. The fields are written by the buffer alone.
 */
class NonBlockingCliTxnBuffer : public PrintBuffer {
 public:
   /** A region of output bytes, which may own the block of memory that it lies in. */
   struct Chunk {
      char* base;   ///< The block, from new[]; null when another chunk owns it.
      char* start;  ///< First byte of the region.
      char* end;    ///< One past its last byte.

      explicit Chunk(size_t size) : base(new char[size]), start(base), end(base + size) {}
      /** Takes the part of `from` that begins at `split`, and the block. */
      Chunk(Chunk* from, char* split) : base(from->base), start(split), end(from->end) {
         from->base = nullptr;
         from->end = split;
      }
      Chunk(const Chunk&) = delete;
      Chunk& operator=(const Chunk&) = delete;
      ~Chunk() { delete[] base; }

      bool inRange(const char* p) const { return base <= p && p <= end; }
   };

   /** The state that a transaction returns to when it is cancelled. */
   struct SavePoint {
      Chunk* chunk;  ///< The back chunk at the time.
      char* savedWritePtr;
      char* savedEnd;  ///< That chunk's end at the time.
   };

   /** A transaction that is cancelled when it is left without having been confirmed. */
   class Transaction {
    public:
      NonBlockingCliTxnBuffer* owner;  ///< Null once confirmed or cancelled.
      SavePoint savePoint;

      explicit Transaction(NonBlockingCliTxnBuffer* buffer)
            : owner(buffer), savePoint(buffer->startTransaction()) {}
      Transaction(const Transaction&) = delete;
      Transaction& operator=(const Transaction&) = delete;
      ~Transaction() {
         if (owner != nullptr)
            cancel();
      }

      /** Keeps the output. To be called at most once, and not after cancel. */
      void confirm() {
         owner->confirmTransaction(savePoint);
         owner = nullptr;
      }
      /** Takes the output back. To be called at most once, and not after confirm. */
      void cancel() {
         owner->cancelTransaction(savePoint);
         owner = nullptr;
      }
   };

   char* readPtr;       ///< The next byte to be sent, in the front chunk.
   size_t sealedBytes;  ///< Unsent bytes in all chunks but the back chunk.
   size_t chunkSize;    ///< The least size in bytes of a new block.
   uint32_t txnCount;   ///< Open transactions.
   std::deque<Chunk> data;

   /** `chunkSize` is in bytes; the first chunk is allocated at once. */
   explicit NonBlockingCliTxnBuffer(size_t chunkSize);
   NonBlockingCliTxnBuffer(const NonBlockingCliTxnBuffer&) = delete;
   NonBlockingCliTxnBuffer& operator=(const NonBlockingCliTxnBuffer&) = delete;
   /** Discards what has not been sent. No transaction may be open. */
   ~NonBlockingCliTxnBuffer() override {
      if (txnCount != 0)
         assertions::kNoTxnAtEnd.fail();
   }

   // Not supported; they stop the process.
   void flush() override { assertions::kNeverFlushed.fail(); }
   void rawWrite(const char*, size_t) override { assertions::kNeverUnbuffered.fail(); }
   bool wouldBlock() override { assertions::kNeverAskedToBlock.fail(); }
   /** Always 0. */
   uint64_t fullness() override { return 0; }

   /** Opens a new chunk of max(count, chunkSize) bytes, unless `count` bytes are free. */
   void allocateSpace(size_t count) override;

   /** Sends what it can of the next piece with one write, and returns that write's result, with
    * errno when it is negative: then, or when it is 0, nothing has changed. Stops the process when
    * there is nothing to send or a transaction is open. Leaves the activity lock alone. A reader
    * that has gone raises SIGPIPE, unless the host ignores it. */
   virtual ssize_t writeSome(int fd);
   /** Whether there are unsent bytes. */
   virtual bool haveData();

   /** Gives the next contiguous piece to send and returns its size, 0 when there is none. Its bytes
    * stay where they are until they are sent. No transaction may be open. */
   size_t nextExtract(const char** out);
   /** Marks `count` bytes of that piece, not more than it has, as sent. */
   void extract(size_t count);

   /** Unsent bytes in one chunk, and in all; constant time. */
   size_t usedInChunk(const Chunk& c) const;
   size_t usedSpace() const;

   /** Transactions nest, and end in the reverse order; nothing is sent while one is open. A save
    * point serves for one confirm or cancel. */
   SavePoint startTransaction();
   /** Keeps what was written since. Never fails. */
   void confirmTransaction(const SavePoint& sp);
   /** Takes back all that was written since. Reservations made since are gone. */
   void cancelTransaction(const SavePoint& sp);

   /** Sets the next `count` bytes of the output aside. The caller fills in the chunk that is
    * returned, from `start` to `end`, before they are sent. It is valid until then, or until a
    * transaction that it was made in is cancelled; one of no bytes, whose place others of no bytes
    * share, until the next send. Calls allocateSpace once, in the caller's transactions. */
   Chunk& reserve(size_t count);

   /** Removes the back chunk; a block that it shares goes to the chunk before it. A step of
    * cancelTransaction, which afterwards sets the pointers and sealedBytes right. */
   void dropBack();

 private:
   /** Appends what lies from `at` on as the new back chunk; the bytes up to there count as written.
    * When it throws, nothing has changed. */
   void splitBack(char* at);
   /** The empty chunk before an empty back chunk, in the same block, or null. */
   Chunk* emptyPlace();
   /** Moves the empty chunk at `index`, and those before it in its block, to the beginning `to` of
    * the next chunk. Releases the block, or gives it to the chunk before that lies in it. */
   void moveEmpty(size_t index, char* to);
   /** Releases the blocks of empty chunks from `first` on, and drops those before the back. A chunk
    * without a block stays where it is: whoever reserved it may still hold it. */
   void giveBackEmpty(const Chunk* first);
   /** Goes back to a save point, whose chunk must still be there. */
   void takeBack(const SavePoint& sp);
};

}  // namespace vorel

#pragma GCC visibility pop
