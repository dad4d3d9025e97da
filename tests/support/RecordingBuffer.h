// A buffer that records, and calls of a renderer with argument lists of their own.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <vorel/buffers/PrintBuffer.h>
#include <vorel/interrupt/SigIntException.h>
#include <vorel/render/Renderer.h>

using Calls = std::vector<std::string>;

/**
 * Records each call as "allocate 5", "write abc" or "flush", and collects the output.
 *
 * Its area has `size` bytes, or as many as were asked for when that is more. Each area is a block
 * of its own, freed by the next call that makes room, so that the address sanitizer sees a writer
 * that goes past its end or keeps a pointer into it.
 */
class RecordingBuffer : public vorel::PrintBuffer {
 public:
   Calls calls;
   size_t failingCall = 0;  ///< Number of the call that throws SigIntException; the first is 1.

   explicit RecordingBuffer(size_t size) : size_(size) { renew(size); }

   std::string output() const {
      return sent_ + std::string(area_.get(), static_cast<size_t>(writePtr - area_.get()));
   }

   void allocateSpace(size_t count) override {
      record("allocate " + std::to_string(count));
      renew(std::max(count, size_));
   }
   void flush() override {
      record("flush");
      renew(size_);
   }
   void rawWrite(const char* data, size_t len) override {
      record("write " + std::string(data, len));
      sent_.append(data, len);
   }
   bool wouldBlock() override {
      record("wouldBlock");
      return true;
   }
   uint64_t fullness() override { return 42; }

 private:
   void record(const std::string& call) {
      calls.push_back(call);
      if (calls.size() == failingCall)
         throw vorel::SigIntException();
   }
   void renew(size_t size) {
      if (area_ != nullptr)
         sent_ = output();
      area_ = std::make_unique<char[]>(size);
      std::memset(area_.get(), '~', size);
      writePtr = area_.get();
      endPtr = writePtr + size;
   }

   size_t size_;
   std::unique_ptr<char[]> area_;
   std::string sent_;
};

inline int addVaFrills(vorel::Renderer& to, const char* fmt, ...) {
   va_list args;
   va_start(args, fmt);
   const int result = to.addVaFrillsWrapper(fmt, 0, args);
   va_end(args);
   return result;
}

/** A call's result and the word of its argument list that it left unread. */
using Outcome = std::pair<int, uint64_t>;

inline Outcome callWith(vorel::Renderer* to, int (vorel::Renderer::*function)(const char*, va_list),
                        const char* fmt, ...) {
   va_list args;
   va_start(args, fmt);
   const int result = (to->*function)(fmt, args);
   const auto next = va_arg(args, uint64_t);
   va_end(args);
   return {result, next};
}
/** The same with the arguments in a tuple or an array. */
Outcome callWith(vorel::Renderer& to, auto function, const char* fmt, const auto& args) {
   return std::apply([&](auto... each) { return callWith(&to, function, fmt, each...); }, args);
}
