#include <vorel/buffers/VorelBuffer.h>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include <vorel/interrupt/SigIntException.h>
#include "interrupt/FailedWrite.h"

size_t vorel_globalBufsize = 1048576;
int32_t vorel_ioFlushCount = 0;
int32_t vorel_bufferFullCount = 0;

namespace vorel {

namespace {

constexpr ZyFmt::Assertion kFdIsNotZero = {
      "fd != 0", "VorelBuffer", 21, "vorel::VorelBuffer::VorelBuffer(int, size_t, uint32_t)"};
constexpr char kAllocateSpace[] = "virtual void vorel::VorelBuffer::allocateSpace(size_t)";
constexpr ZyFmt::Assertion kRoomIsNeeded = {"rlen() < count", "VorelBuffer", 36, kAllocateSpace};
constexpr ZyFmt::Assertion kAreaIsLargeEnough = {"count <= rlen()", "VorelBuffer", 41,
                                                 kAllocateSpace};

struct Free {
   void operator()(char* memory) const { std::free(memory); }
};
using Area = std::unique_ptr<char, Free>;

Area allocateArea(size_t size) {
   if (size == 0)
      return nullptr;
   Area area(static_cast<char*>(std::malloc(size)));
   if (!area)
      throw std::bad_alloc();
   return area;
}

/** A plain increment, which may lose counts between threads, but without a data race. */
void increment(int32_t& counter) {
   std::atomic_ref<int32_t> shared(counter);
   const auto count = static_cast<uint32_t>(shared.load(std::memory_order_relaxed));
   shared.store(static_cast<int32_t>(count + 1), std::memory_order_relaxed);
}

}  // namespace

bool isSocketFd(int fd) {
   struct stat status;
   return fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode);
}

int getSocketCapacity(int fd) {
   if (!isSocketFd(fd))
      return -1;
   int capacity = -1;
   socklen_t length = sizeof capacity;
   if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &capacity, &length) < 0)
      std::printf("getsockopt errno %d\n", errno);
   return capacity;
}

int getSocketUsage(int fd) {
   int usage = -1;
   if (ioctl(fd, SIOCOUTQ, &usage) == -1)
      std::printf("ioctl SIOCOUTQ errno %d\n", errno);
   return usage;
}

VorelBuffer::VorelBuffer(int fd_, size_t size, uint32_t flags)
      : fd(fd_),
        base(nullptr),
        socketState(-1),
        socketCapacity(-1),
        activityLock(Orv::ActivityImplFacility::activityManagerSm()->activityLock()),
        destroying(false),
        skipRelock(true) {
   Area area = allocateArea(size);
   if (fd == 0)
      kFdIsNotZero.fail();
   if ((flags & (kResetInterrupt1 | kResetInterrupt2)) != 0)
      resetInterrupted();
   base = area.release();
   writePtr = base;
   endPtr = base + size;
}

VorelBuffer::~VorelBuffer() {
   destroying = true;
   if (base == nullptr)
      return;
   try {
      if (!isInterrupted())
         VorelBuffer::rawWrite(base, committed());
   } catch (...) {
      try {
         setInterrupted();
      } catch (...) {
         // Nobody is left to be told.
      }
   }
   std::free(base);
}

void VorelBuffer::rellock(bool release) {
   if (!release && skipRelock)
      return;
   pthread_mutex_t* const mutex = &activityLock.mutex;
   const int locked = pthread_mutex_lock(mutex);
   if (locked != 0 && locked != EDEADLK) {
      if (!release)  // once more: whoever gave the lock up must have it back
         skipRelock = pthread_mutex_lock(mutex) == 0;
      Orv::Lock::throwFailedLock(locked);
   }
   // Whether the lock was taken only just now, and not held before.
   skipRelock = locked == 0;
   if (!release)
      return;
   if (const int failed = pthread_mutex_unlock(mutex)) {
      if (skipRelock)  // once more: it was taken above only to be given up
         pthread_mutex_unlock(mutex);
      Orv::Lock::throwFailedUnlock(failed);
   }
}

void VorelBuffer::rawWrite(const char* data, size_t len) {
   if (len == 0)
      return;
   if (!destroying)
      raiseSigIntIfNeeded();
   increment(vorel_ioFlushCount);
   rellock(true);
   bool stopped = true;
   try {
      stopped = !writeAll(data, len);
   } catch (...) {
      rellock(false);
      throw;
   }
   rellock(false);
   if (destroying)
      return;
   // The flag that stopped the writing may have been reset while this waited for the lock.
   if (stopped)
      throw SigIntException();
   raiseSigIntIfNeeded();
}

bool VorelBuffer::writeAll(const char* data, size_t len) const {
   for (;;) {
      const ssize_t written = ::write(fd, data, len);
      if (written < 0) {
         const int error = errno;  // kept for whoever catches the exception
         interrupt::setInterruptedByWrite(error);
         errno = error;
         return false;
      }
      data += written;
      len -= static_cast<size_t>(written);
      if (len == 0 || written == 0)
         return true;
      if (!destroying && isInterrupted())
         return false;
   }
}

void VorelBuffer::flush() {
   if (base == nullptr)
      return;
   rawWrite(base, committed());
   writePtr = base;
}

void VorelBuffer::allocateSpace(size_t count) {
   if (rlen() >= count)
      kRoomIsNeeded.fail();
   increment(vorel_bufferFullCount);
   flush();
   writePtr = base;
   if (rlen() < count)
      kAreaIsLargeEnough.fail();
}

uint64_t VorelBuffer::fullness() {
   return base == nullptr ? 0 : committed() * 100 / static_cast<uint64_t>(endPtr - base);
}

bool VorelBuffer::wouldBlock() {
   if (socketState == -1) {
      socketState = isSocketFd(fd) ? 1 : 0;
      if (socketState == 1)
         socketCapacity = getSocketCapacity(fd);
   }
   if (socketState != 1)
      return true;
   // What the queue must keep free beside the committed bytes for a write to count as safe.
   constexpr int64_t kMargin = 1000;
   const int64_t limit = int64_t{socketCapacity} - kMargin - getSocketUsage(fd);
   return static_cast<int64_t>(committed()) > limit;
}

}  // namespace vorel
