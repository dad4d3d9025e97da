// What the tests share: a buffer that records, descriptors, and expected assertion reports.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
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
   bool stingy = false;     ///< Makes no room at all.

   explicit RecordingBuffer(size_t size) : size_(size) { renew(size); }

   std::string output() const {
      return sent_ + std::string(area_.get(), static_cast<size_t>(writePtr - area_.get()));
   }

   void allocateSpace(size_t count) override {
      record("allocate " + std::to_string(count));
      if (!stingy)
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

/** For tests that mark their thread interrupted. */
class InterruptingTest : public testing::Test {
 protected:
   ~InterruptingTest() override { vorel::resetInterrupted(); }
};

/** A descriptor that is closed with its owner. */
struct Descriptor {
   int fd;
   explicit Descriptor(int fd_ = -1) : fd(fd_) {}
   Descriptor(const Descriptor&) = delete;
   Descriptor& operator=(const Descriptor&) = delete;
   ~Descriptor() { close(); }
   operator int() const { return fd; }
   void close() {
      if (fd >= 0)
         ::close(fd);
      fd = -1;
   }
};

struct Pipe {
   Descriptor reader, writer;

   /** A pipe, or what else `make` makes of two ends. */
   explicit Pipe(int (*make)(int ends[2]) = [](int* ends) { return pipe2(ends, O_CLOEXEC); }) {
      int ends[2] = {-1, -1};
      EXPECT_EQ(make(ends), 0);
      reader.fd = ends[0];
      writer.fd = ends[1];
   }
   /** What is there, or comes first, of at most `size` bytes; nothing at the end. */
   std::string readSome(size_t size = 65536) const {
      std::string part(size, '\0');
      const ssize_t got = ::read(reader, part.data(), size);
      part.resize(got > 0 ? static_cast<size_t>(got) : 0);
      return part;
   }
   /** All bytes up to the end, which comes when the writer is closed, but no more than `size`. */
   std::string read(size_t size = SIZE_MAX) const {
      std::string all, part;
      while (!(part = readSome(std::min(size - all.size(), size_t{65536}))).empty())
         all += part;
      return all;
   }
   std::string finish() {
      writer.close();
      return read();
   }
   /** The count of bytes that wait in the pipe. */
   int pending() const {
      int count = -1;
      EXPECT_EQ(ioctl(reader, FIONREAD, &count), 0);
      return count;
   }
};

inline pthread_mutex_t* activityMutex() {
   return &Orv::ActivityImplFacility::activityManagerSm()->activityLock().mutex;
}

/** Whether the calling thread holds the activity lock. */
inline bool holdsLock() {
   const int result = pthread_mutex_lock(activityMutex());
   if (result == 0)
      pthread_mutex_unlock(activityMutex());
   return result == EDEADLK;
}

/** Holds the activity lock for its life, or does not. */
inline std::shared_ptr<pthread_mutex_t> hold(bool holding) {
   if (!holding)
      return nullptr;
   pthread_mutex_lock(activityMutex());
   return {activityMutex(), pthread_mutex_unlock};
}

/** Calls addVaFrillsWrapper with an argument list of its own. */
inline int addVaFrills(vorel::Renderer& to, const char* fmt, ...) {
   va_list args;
   va_start(args, fmt);
   const int result = to.addVaFrillsWrapper(fmt, 0, args);
   va_end(args);
   return result;
}

/** A call's result and the word of its argument list that it left unread. */
using Outcome = std::pair<int, uint64_t>;

/** Calls a member function with an argument list of its own. */
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

/** Whether the tests are built with one of the sanitizers. */
inline bool sanitizing(const std::string& sanitizer) {
   return std::string(TEST_SANITIZERS).find(sanitizer) != std::string::npos;
}

/** A regular expression for the report of a broken assertion. */
inline std::string report(const std::string& expression, const std::string& unit, int line,
                          const std::string& function) {
   std::string pattern;
   for (char c : unit + ":" + std::to_string(line) + ": " + function + ": Assertion `" +
                       expression + "' failed") {
      if (std::strchr("\\^$.|?*+()[]{}", c) != nullptr)
         pattern += '\\';
      pattern += c;
   }
   return pattern;
}

/** The report of a write area that stays too small. */
inline std::string noRoomReport() {
   return report("endPtr - writePtr >= ptrdiff_t( required )", "ZyStrings/StringBuffer", 94,
                 "char* ZyFmt::DynamicBufferInterface::getBuffer(size_t)");
}
