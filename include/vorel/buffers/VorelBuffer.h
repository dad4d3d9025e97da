#pragma once

#include <cstddef>
#include <cstdint>

#include <vorel/buffers/PrintBuffer.h>

#pragma GCC visibility push(default)

extern "C" {
/** Write-area size in bytes of printers that are given none; read when a printer is built. */
extern size_t vorel_globalBufsize;
/** How often bytes were handed to a descriptor, and how often a write area was full. Statistics:
 * never reset, and concurrent buffers may lose counts. */
extern int32_t vorel_ioFlushCount;
extern int32_t vorel_bufferFullCount;
}

namespace vorel {

/** Whether `fd` is a socket; false when it cannot be examined. */
bool isSocketFd(int fd);
/** Send-buffer size in bytes of the socket `fd`; -1 when it is no socket or cannot be asked (the
 * latter is reported on standard output). */
int getSocketCapacity(int fd);
/** Bytes in the send queue of the socket `fd`; -1, reported on standard output, when the kernel
 * does not tell. */
int getSocketUsage(int fd);

/**
 * A write area of fixed size in front of a descriptor that is written with blocking calls.
 *
 * The host framework's activity lock is given up for exactly the duration of the writing. A write
 * that fails marks the calling thread interrupted and SigIntException is thrown, whatever the flag
 * is by then; errno still tells why. A full area is written out to make room; a request for more
 * than the whole area stops the process. With size 0 there is no area, and rawWrite alone may be
 * used.
 *
 * Invariants: the area is [base, endPtr); base <= writePtr <= endPtr; the committed bytes are
 * [base, writePtr). The fields are written by the buffer alone.
 */
class VorelBuffer : public PrintBuffer {
 public:
   int32_t fd;              ///< Never 0.
   char* base;              ///< From malloc; null when built with size 0.
   int32_t socketState;     ///< -1 not examined, 0 no socket, 1 socket.
   int32_t socketCapacity;  ///< Send-buffer size, -1 when unknown; valid for a socket only.
   Orv::Lock& activityLock;
   bool destroying;  ///< From the start of the destructor on: the interrupt flag does not count.
   bool skipRelock;  ///< The next rellock(false) is not to take the lock.

   /** Bits of `flags`: either resets the interrupt flag of the constructing thread. */
   static constexpr uint32_t kResetInterrupt1 = 1;
   static constexpr uint32_t kResetInterrupt2 = 2;

   /** `fd` stays the caller's and must not be 0; `size` is in bytes. Writes nothing. Throws
    * std::bad_alloc when there is no memory for the area. */
   VorelBuffer(int fd, size_t size, uint32_t flags);
   VorelBuffer(const VorelBuffer&) = delete;
   VorelBuffer& operator=(const VorelBuffer&) = delete;
   /** Writes out what is committed unless the calling thread is interrupted. Never throws: bytes
    * that cannot be written are dropped and the thread is marked interrupted, if memory allows. */
   ~VorelBuffer() override;

   /** Writes out what is committed; when that throws, all of it stays committed, what has been
    * written included. */
   void flush() override;
   /** Writes `len` bytes, all of them unless a write takes nothing. SigIntException is thrown when
    * a write fails or the thread is interrupted, before, while or after it writes. */
   void rawWrite(const char* data, size_t len) override;
   /** False only for a socket whose send buffer takes the committed bytes with room to spare. */
   bool wouldBlock() override;
   /** 0 without an area. */
   uint64_t fullness() override;
   void allocateSpace(size_t count) override;

   /** Gives the activity lock up (`release`) or takes it back, if the thread held it. A lock or
    * unlock that fails throws the host framework's exception; the lock is then held as it was
    * before it was given up, unless the mutex fails twice. */
   void rellock(bool release);

 private:
   size_t committed() const { return static_cast<size_t>(writePtr - base); }
   /** Returns false when a failed write or the interrupt flag has stopped it. */
   bool writeAll(const char* data, size_t len) const;
};

}  // namespace vorel

#pragma GCC visibility pop
