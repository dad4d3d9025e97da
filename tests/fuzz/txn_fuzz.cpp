// Lives of a transactional buffer, made from the input, beside a plain string that must agree with
// it.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/render/Renderer.h>
#include "Faults.h"
#include "Input.h"
#include "Resources.h"

using TxnBuffer = vorel::NonBlockingCliTxnBuffer;

namespace {

/** A host's own kind of buffer, which does something before it grows. */
struct HostBuffer : TxnBuffer {
   std::function<void()> prepare;
   HostBuffer(size_t size, std::function<void()> prepare_)
         : TxnBuffer(size), prepare(std::move(prepare_)) {}
   void allocateSpace(size_t count) override {
      prepare();
      TxnBuffer::allocateSpace(count);
   }
};

/** All fields of a buffer and of its chunks. */
struct TxnState {
   std::vector<const char*> pointers;
   size_t sealedBytes, chunkSize;
   uint32_t txnCount;

   explicit TxnState(const TxnBuffer& buffer)
         : pointers{buffer.writePtr, buffer.endPtr, buffer.readPtr},
           sealedBytes(buffer.sealedBytes),
           chunkSize(buffer.chunkSize),
           txnCount(buffer.txnCount) {
      for (const auto& chunk : buffer.data)
         pointers.insert(pointers.end(), {chunk.base, chunk.start, chunk.end});
   }
   bool operator==(const TxnState&) const = default;
};

/**
 * Does operations to a buffer and to a string; now and then it begins anew with another buffer.
 * After each step it throws std::logic_error when the two disagree, an invariant does not hold, or
 * an unsent byte has moved.
 */
class TxnModel {
 public:
   explicit TxnModel(Input& input) : input_(input) {
      fcntl(pipe_.writer, F_SETPIPE_SZ, 4096);
      renew();
   }
   void step() {
      constexpr size_t kMostUnsent = 8000;
      if (output_.size() - sent_ <= kMostUnsent)
         operate();
      else if (open_.empty())
         extractPiece(true);
      else
         end();
      check();
   }
   /** Ends what is open, and sends everything. */
   void finish() {
      while (!open_.empty())
         end();
      while (sent_ < output_.size())
         extractPiece(true);
   }

 private:
   struct Open {
      TxnState before;
      size_t length, reservations;
      TxnBuffer::SavePoint savePoint;
      std::unique_ptr<TxnBuffer::Transaction> scoped;  ///< If there is no save point.
   };
   struct Reservation {
      TxnBuffer::Chunk* chunk;
      size_t offset, size;
   };

   uint32_t next(uint32_t bound) { return input_.next() % bound; }
   size_t someLength() { return next(40) == 0 ? next(6000) : next(40); }
   std::string someText(size_t length) {
      std::string text(length, ' ');
      for (char& c : text)
         c = static_cast<char>('a' + letter_++ % 25);
      return text;
   }

   void operate() {
      using Model = TxnModel;
      static constexpr void (Model::*kOperations[])() = {
            &Model::write,   &Model::write,     &Model::write,   &Model::render,
            &Model::render,  &Model::reserve,   &Model::reserve, &Model::allocateSpace,
            &Model::fillIn,  &Model::begin,     &Model::end,     &Model::end,
            &Model::extract, &Model::writeSome, &Model::receive, &Model::clear};
      (this->*kOperations[next(16)])();
   }

   /** Sends everything, or begins anew. */
   void clear() {
      const bool renewing = next(16) == 0;
      if (!renewing && next(4) != 0)
         return;
      finish();
      if (renewing)
         renew();
   }
   void renew() {
      const size_t size = next(8) == 0 ? 5000 : next(40);
      buffer_.emplace(size, [this] {
         require(buffer_->txnCount == open_.size(), "txnCount while growing");
         while (draining_ && sent_ < output_.size())
            extractPiece(true);
      });
      require(buffer_->rlen() == size, "the size of the first chunk");
      output_.clear();
      addresses_.clear();
      reservations_.clear();
      sent_ = 0;
   }

   void write() {
      const std::string text = someText(someLength());
      draining_ = open_.empty() && next(4) == 0;
      std::memcpy(buffer_->getBuffer(text.size()), text.data(), text.size());
      draining_ = false;
      buffer_->writePtr += text.size();
      output_ += text;
   }
   void render() {
      const std::string text = someText(someLength());
      vorel::Renderer renderer(vorel::outputFormatText, &*buffer_, true);
      if (next(2) == 0) {
         renderer.startObj(text.c_str());
         output_ += '"' + text + "\":{";
      } else {
         renderer.addFrills("<%s>\n", text.c_str());
         output_ += "<" + text + ">\n";
      }
   }

   /** Does what may allocate, at times with each of the allocations failing before. */
   template <typename Operation>
   void grow(Operation operation) {
      if (next(4) != 0)
         return operation();
      const TxnState before(*buffer_);
      failEachAllocation(operation, [&](long leaked) {
         require(leaked == 0 && TxnState(*buffer_) == before, "a failure changes nothing");
         check();
      });
   }
   void allocateSpace() {
      const size_t size = someLength(), before = buffer_->rlen(), chunks = buffer_->data.size();
      const bool replaced = open_.empty() && buffer_->usedInChunk(buffer_->data.back()) == 0;
      grow([&] { buffer_->allocateSpace(size); });
      require(buffer_->data.size() == chunks + (size > before && !replaced),
              "an empty chunk is replaced");
      require(buffer_->rlen() == (size <= before ? before : std::max(size, buffer_->chunkSize)),
              "the size of a new chunk");
   }
   void reserve() {
      const size_t size = someLength();
      const char* const position = size <= buffer_->rlen() ? buffer_->writePtr : nullptr;
      TxnBuffer::Chunk* chunk = nullptr;
      draining_ = open_.empty() && next(4) == 0;
      if (draining_)
         chunk = &buffer_->reserve(size);
      else
         grow([&] { chunk = &buffer_->reserve(size); });
      require(chunk->start == buffer_->writePtr - size && chunk->end == buffer_->writePtr &&
                    (position == nullptr || draining_ || position == chunk->start),
              "a reservation covers the bytes at the write position");
      draining_ = false;
      reservations_.push_back({chunk, output_.size(), size});
      const std::string unfilled(size, 'z');
      std::memcpy(chunk->start, unfilled.data(), size);
      output_ += unfilled;
   }
   void fillIn() {
      if (reservations_.empty())
         return;
      const Reservation& reservation =
            reservations_[next(static_cast<uint32_t>(reservations_.size()))];
      const std::string text = someText(reservation.size);
      require(reservation.chunk->end == reservation.chunk->start + text.size(),
              "a reservation keeps its size");
      std::memcpy(reservation.chunk->start, text.data(), text.size());
      output_.replace(reservation.offset, text.size(), text);
   }

   void begin() {
      constexpr size_t kDeepest = 5;
      if (open_.size() == kDeepest)
         return;
      Open open{TxnState(*buffer_), output_.size(), reservations_.size(), {}, nullptr};
      if (next(2) == 0)
         open.scoped = std::make_unique<TxnBuffer::Transaction>(&*buffer_);
      else
         open.savePoint = buffer_->startTransaction();
      open_.push_back(std::move(open));
   }
   void end() {
      if (open_.empty())
         return;
      Open open = std::move(open_.back());
      open_.pop_back();
      if (next(3) == 0) {
         const Faults noMemory({{Fault::kAllocation, 0}});
         open.scoped != nullptr ? open.scoped->confirm()
                                : buffer_->confirmTransaction(open.savePoint);
         return;
      }
      if (open.scoped == nullptr)
         buffer_->cancelTransaction(open.savePoint);
      else if (next(2) == 0)
         open.scoped->cancel();
      open.scoped = nullptr;
      require(TxnState(*buffer_) == open.before, "a cancel restores the state");
      output_.resize(open.length);
      addresses_.resize(std::min(addresses_.size(), open.length));
      reservations_.resize(open.reservations);
   }

   void extract() {
      if (open_.empty())
         extractPiece(false);
   }
   void extractPiece(bool whole) {
      const char* piece = nullptr;
      const size_t size = buffer_->nextExtract(&piece);
      require((size != 0) == (sent_ < output_.size()), "there is a piece while there is data");
      require(output_.compare(sent_, size, piece, size) == 0, "the piece comes next");
      const size_t count = whole ? size : next(static_cast<uint32_t>(size) + 1);
      const bool emptied = buffer_->data.size() == 1 && count == size;
      buffer_->extract(count);
      require(!emptied || buffer_->writePtr == buffer_->data.back().base, "a block is used again");
      markSent(count);
   }
   void writeSome() {
      if (!open_.empty() || !buffer_->haveData())
         return;
      const char* piece = nullptr;
      const size_t size = buffer_->nextExtract(&piece);
      const ssize_t written = buffer_->writeSome(pipe_.writer);
      const size_t count = written > 0 ? static_cast<size_t>(written) : 0;
      // A pipe takes up to PIPE_BUF bytes whole or not at all.
      require(count == size || (count > 0 && size > PIPE_BUF) || (written == -1 && errno == EAGAIN),
              "the result of the write");
      inPipe_.append(output_, sent_, count);
      markSent(count);
   }
   void markSent(size_t count) {
      sent_ += count;
      // A reservation of no bytes goes with those before it.
      while (!reservations_.empty() &&
             reservations_.front().offset + (reservations_.front().size != 0) <= sent_)
         reservations_.pop_front();
   }
   void receive() {
      const std::string received = pipe_.readSome(1 + next(200));
      require(inPipe_.compare(0, received.size(), received) == 0, "what was written arrives");
      inPipe_.erase(0, received.size());
   }

   /** Every invariant of the buffer, its accounts, and its content. */
   void check() {
      TxnBuffer& buffer = *buffer_;
      require(!buffer.data.empty(), "there is a chunk");
      require(buffer.endPtr == buffer.data.back().end, "the write area ends with the back chunk");
      size_t at = sent_, last = 0;
      for (size_t i = 0; i < buffer.data.size(); ++i) {
         const TxnBuffer::Chunk& chunk = buffer.data[i];
         const bool isBack = i + 1 == buffer.data.size();
         const char* const lower = i == 0 ? buffer.readPtr : chunk.start;
         const char* const upper = isBack ? buffer.writePtr : chunk.end;
         require(chunk.start <= lower && lower <= upper && upper <= chunk.end,
                 "unsent bytes lie in their chunk");
         if (chunk.base != nullptr)
            require(chunk.base <= chunk.start, "a chunk lies in its block");
         else
            require(!isBack && chunk.end == buffer.data[i + 1].start,
                    "a chunk without a block is followed by the rest of it");
         last = static_cast<size_t>(upper - lower);
         require(buffer.usedInChunk(chunk) == last, "usedInChunk");
         require(isBack || last != 0 || chunk.base == nullptr || buffer.txnCount != 0,
                 "transactions leave no empty chunk behind");
         require(output_.compare(at, last, lower, last) == 0, "content");
         while (addresses_.size() < at + last)
            addresses_.push_back(lower + (addresses_.size() - at));
         require(last == 0 || (addresses_[at] == lower && addresses_[at + last - 1] == upper - 1),
                 "content stays where it was written");
         at += last;
      }
      require(at == output_.size(), "all content is there");
      const size_t unsent = at - sent_;
      require(buffer.sealedBytes == unsent - last, "sealedBytes");
      require(buffer.usedSpace() == unsent, "usedSpace");
      require(buffer.haveData() == (unsent != 0), "haveData");
      require(buffer.fullness() == 0, "fullness");
      require(buffer.txnCount == open_.size(), "txnCount");
   }

   Input& input_;
   const Pipe pipe_{[](int* ends) { return pipe2(ends, O_NONBLOCK | O_CLOEXEC); }};
   std::optional<HostBuffer> buffer_;
   bool draining_ = false;                 ///< The buffer sends everything before it grows.
   std::string output_;                    ///< What this buffer's life has put out.
   size_t sent_ = 0;                       ///< How much of it has been sent.
   std::vector<const char*> addresses_;    ///< Of each byte of the output, as last seen.
   std::deque<Reservation> reservations_;  ///< Unsent ones.
   std::vector<Open> open_;
   std::string inPipe_;
   uint32_t letter_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   TxnModel model(input);
   while (!input.empty())
      model.step();
   model.finish();
   return 0;
}
