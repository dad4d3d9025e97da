#include "buffers/VorelBuffer.h"

#include <linux/sockios.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>
#include <thread>

#include "Recording.h"

// An impossible allocation is to fail as it does without the sanitizers.
extern "C" const char* __asan_default_options() {
   return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
   return "allocator_may_return_null=1";
}

using namespace vorel;

namespace {

pthread_mutex_t* activityMutex() {
   return &Orv::ActivityImplFacility::activityManagerSm()->activityLock().mutex;
}

bool holdsLock() {
   const int result = pthread_mutex_lock(activityMutex());
   if (result == 0)
      pthread_mutex_unlock(activityMutex());
   return result == EDEADLK;
}

/** Holds the activity lock for its life, or does not. */
std::shared_ptr<pthread_mutex_t> hold(bool holding) {
   if (!holding)
      return nullptr;
   pthread_mutex_lock(activityMutex());
   return {activityMutex(), pthread_mutex_unlock};
}

void commit(VorelBuffer& buffer, const std::string& text) {
   std::memcpy(buffer.writePtr, text.data(), text.size());
   buffer.writePtr += text.size();
}

/** The error of a call that must end with SigIntException, as errno tells it then. */
int errorOf(const std::function<void()>& call) {
   errno = 0;
   try {
      call();
   } catch (const SigIntException&) {
      return errno;
   }
   return -1;
}

std::atomic<int> signalsSeen{0};

class VorelBufferTest : public InterruptingTest {
 protected:
   static void SetUpTestSuite() {
      std::signal(SIGPIPE, SIG_IGN);
      struct sigaction action = {};  // no SA_RESTART: a signal interrupts a write
      action.sa_handler = [](int) { ++signalsSeen; };
      sigaction(SIGUSR1, &action, nullptr);
   }

   int flushes() const { return vorel_ioFlushCount - flushesBefore_; }
   int fulls() const { return vorel_bufferFullCount - fullsBefore_; }

 private:
   int flushesBefore_ = vorel_ioFlushCount;
   int fullsBefore_ = vorel_bufferFullCount;
};

TEST_F(VorelBufferTest, BytesLeaveWhenTheAreaIsFullFlushedOrDestroyed) {
   Pipe pipe;
   {
      VorelBuffer buffer(pipe.writer, 101, 0);
      buffer.flush();
      EXPECT_EQ(flushes(), 0);
      commit(buffer, std::string(61, 'a'));
      EXPECT_EQ(buffer.fullness(), 60U);
      EXPECT_EQ(buffer.getBuffer(40), buffer.base + 61);
      EXPECT_EQ(pipe.pending(), 0);
      EXPECT_EQ(buffer.getBuffer(50), buffer.base);
      EXPECT_EQ(buffer.rlen(), 101U);
      EXPECT_EQ(pipe.pending(), 61);
      EXPECT_EQ(flushes(), 1);
      EXPECT_EQ(fulls(), 1);
      commit(buffer, "b");
      buffer.flush();
      EXPECT_EQ(buffer.rlen(), 101U);
      commit(buffer, "c");
      EXPECT_EQ(pipe.pending(), 62);
   }
   EXPECT_EQ(flushes(), 3);
   EXPECT_EQ(fulls(), 1);
   EXPECT_EQ(pipe.finish(), std::string(61, 'a') + "bc");
}

TEST_F(VorelBufferTest, WithoutAnAreaEachPieceIsWrittenAtOnce) {
   Pipe pipe;
   {
      VorelBuffer buffer(pipe.writer, 0, 0);
      EXPECT_EQ(buffer.base, nullptr);
      EXPECT_EQ(buffer.fullness(), 0U);
      EXPECT_EQ(buffer.getBuffer(0), nullptr);
      buffer.flush();
      buffer.rawWrite("one", 3);
      EXPECT_EQ(pipe.pending(), 3);
      setInterrupted();
      buffer.rawWrite("two", 0);
      EXPECT_THROW(buffer.rawWrite("two", 3), SigIntException);
   }
   EXPECT_EQ(flushes(), 1);
   EXPECT_EQ(pipe.finish(), "one");
}

TEST_F(VorelBufferTest, TwoFlagsResetTheThreadsMark) {
   for (uint32_t flags = 0; flags <= 7; ++flags) {
      setInterrupted();
      const VorelBuffer buffer(1, 0, flags);
      EXPECT_EQ(isInterrupted(), (flags & 3) == 0) << flags;
   }
}

TEST_F(VorelBufferTest, AFailedWriteMarksTheThreadAndKeepsBytesErrnoAndLock) {
   Pipe broken, full, nearlyFull;
   broken.reader.close();
   for (Pipe* pipe : {&full, &nearlyFull}) {
      fcntl(pipe->writer, F_SETFL, O_NONBLOCK);
      while (write(pipe->writer, "0123456789abcdef", 16) > 0) {
      }
   }
   char page[4096];
   EXPECT_EQ(read(nearlyFull.reader, page, sizeof page), 4096);  // takes one page more
   const Descriptor device(open("/dev/full", O_WRONLY | O_CLOEXEC));
   const struct {
      int fd, error;
   } cases[] = {
         {broken.writer, EPIPE},      {-1, EBADF}, {full.writer, EAGAIN}, {device, ENOSPC},
         {nearlyFull.writer, EAGAIN},
   };
   for (const auto& [fd, error] : cases) {
      for (bool holding : {false, true}) {
         SCOPED_TRACE(std::strerror(error));
         const auto held = hold(holding);
         resetInterrupted();
         const int before = flushes();
         {
            VorelBuffer buffer(fd, 6000, 0);
            commit(buffer, std::string(5000, 'x'));
            EXPECT_EQ(errorOf([&] { buffer.flush(); }), error);
            EXPECT_TRUE(isInterrupted());
            EXPECT_EQ(holdsLock(), holding);
            // Marked, the thread does not even try; nor does the destructor.
            EXPECT_THROW(buffer.allocateSpace(2000), SigIntException);
            EXPECT_EQ(flushes(), before + 1);
            EXPECT_EQ(buffer.writePtr, buffer.base + 5000);
         }
         EXPECT_EQ(flushes(), before + 1);
         resetInterrupted();
         {
            VorelBuffer buffer(fd, 6000, 0);
            commit(buffer, std::string(5000, 'x'));
         }
         EXPECT_EQ(flushes(), before + 2);
         EXPECT_TRUE(isInterrupted());
         EXPECT_EQ(holdsLock(), holding);
      }
   }
   EXPECT_EQ(nearlyFull.pending(), full.pending());
}

/** A thread that writes into a pipe which nobody empties, stopped in the middle of a write. */
class BlockedWriter {
 public:
   static constexpr size_t kSize = 300000;
   bool threw = false, heldAfter = false, markedAfter = false;

   BlockedWriter(bool holding, const std::function<void(int fd, const std::string&)>& write)
         : thread_([this, holding, write] {
              const auto held = hold(holding);
              tid_ = static_cast<int>(syscall(SYS_gettid));
              try {
                 write(pipe_.writer, std::string(kSize, 'd'));
              } catch (const SigIntException&) {
                 threw = true;
              }
              heldAfter = holdsLock();
              markedAfter = isInterrupted();
              vorel_delInterrupted(tid_);
              pipe_.writer.close();
           }) {
      while (pipe_.pending() < capacity())
         std::this_thread::yield();
   }
   BlockedWriter(const BlockedWriter&) = delete;
   BlockedWriter& operator=(const BlockedWriter&) = delete;

   int capacity() const { return fcntl(pipe_.reader, F_GETPIPE_SZ); }
   int tid() const { return tid_; }
   /** Ends the write that the thread is in: it has taken a part of the bytes. */
   void interruptSystemCall() {
      const int before = signalsSeen;
      pthread_kill(thread_.native_handle(), SIGUSR1);
      while (signalsSeen == before)
         std::this_thread::yield();
   }
   /** Empties the pipe up to the end of the thread; returns the count of bytes. */
   size_t drain() {
      const std::string all = pipe_.read();
      thread_.join();
      EXPECT_EQ(all.find_first_not_of('d'), std::string::npos);
      return all.size();
   }

 private:
   Pipe pipe_;
   std::atomic<int> tid_{0};
   std::thread thread_;
};

void writeRaw(int fd, const std::string& data) {
   VorelBuffer(fd, 0, 0).rawWrite(data.data(), data.size());
}

void writeAtDestruction(int fd, const std::string& data) {
   VorelBuffer buffer(fd, data.size(), 0);
   commit(buffer, data);
}

TEST_F(VorelBufferTest, ABlockedWriteGivesTheLockUpAndEndsWhereItMust) {
   const struct {
      void (*write)(int, const std::string&);
      bool mark, interrupt;  // what meets the thread in its write
      bool whole, threw;
   } cases[] = {{writeRaw, false, false, true, false},
                {writeRaw, true, false, true, true},
                {writeRaw, false, true, true, false},
                {writeRaw, true, true, false, true},
                {writeAtDestruction, false, false, true, false},
                {writeAtDestruction, true, true, true, false}};
   for (const auto& [write, mark, interrupt, whole, threw] : cases) {
      for (bool holding : {false, true}) {
         SCOPED_TRACE(testing::Message() << (&write - &cases[0].write) << holding);
         const int before = flushes();
         BlockedWriter writer(holding, write);
         timespec deadline;
         clock_gettime(CLOCK_REALTIME, &deadline);
         deadline.tv_sec += 10;
         EXPECT_EQ(pthread_mutex_timedlock(activityMutex(), &deadline), 0);
         pthread_mutex_unlock(activityMutex());
         if (mark)
            vorel_setInterrupted(writer.tid());
         if (interrupt)
            writer.interruptSystemCall();
         const auto capacity = static_cast<size_t>(writer.capacity());
         EXPECT_EQ(writer.drain(), whole ? writer.kSize : capacity);
         EXPECT_EQ(writer.threw, threw);
         EXPECT_EQ(writer.markedAfter, mark);
         EXPECT_EQ(writer.heldAfter, holding);
         EXPECT_EQ(flushes(), before + 1);
      }
   }
}

TEST_F(VorelBufferTest, OnlyASocketWithRoomWouldNotBlock) {
   Pipe pipe;
   int master = -1, slave = -1;
   ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
   const Descriptor screen(master), terminal(slave);
   for (int fd : {static_cast<int>(pipe.writer), static_cast<int>(terminal), -1}) {
      VorelBuffer buffer(fd, 10, 0);
      EXPECT_EQ(buffer.socketState, -1);
      EXPECT_TRUE(buffer.wouldBlock());
      EXPECT_EQ(buffer.socketState, 0);
      EXPECT_FALSE(isSocketFd(fd));
      EXPECT_EQ(getSocketCapacity(fd), -1);
   }
   {
      VorelBuffer buffer(terminal, 10, 0);
      commit(buffer, "shown");
   }
   char shown[6] = {};
   EXPECT_EQ(read(screen, shown, 5), 5);
   EXPECT_STREQ(shown, "shown");

   int ends[2];
   ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
   const Descriptor socket(ends[0]), peer(ends[1]);
   const int asked = 20000;
   ASSERT_EQ(setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &asked, sizeof asked), 0);
   const int capacity = getSocketCapacity(socket);
   EXPECT_TRUE(isSocketFd(socket));
   EXPECT_GE(capacity, asked);
   VorelBuffer buffer(socket, static_cast<size_t>(capacity), 0);
   EXPECT_FALSE(buffer.wouldBlock());
   EXPECT_EQ(buffer.socketState, 1);
   EXPECT_EQ(buffer.socketCapacity, capacity);
   const std::string piece(1500, 's');
   int queued = 0;
   do {
      ASSERT_EQ(ioctl(socket, SIOCOUTQ, &queued), 0);
      EXPECT_EQ(getSocketUsage(socket), queued);
      const int limit = capacity - 1000 - queued;
      if (limit >= 0) {
         buffer.writePtr = buffer.base + limit;
         EXPECT_FALSE(buffer.wouldBlock());
         ++buffer.writePtr;
      }
      EXPECT_TRUE(buffer.wouldBlock());
      buffer.writePtr = buffer.base;
   } while (send(socket, piece.data(), piece.size(), MSG_DONTWAIT) > 0);
   EXPECT_GE(queued, capacity - 1000);
   EXPECT_TRUE(buffer.wouldBlock());

   testing::internal::CaptureStdout();
   EXPECT_EQ(getSocketUsage(-1), -1);
   EXPECT_EQ(testing::internal::GetCapturedStdout(), "ioctl SIOCOUTQ errno 9\n");
}

TEST(VorelBufferDeathTest, StopsOnMisuse) {
   const std::string function = "virtual void vorel::VorelBuffer::allocateSpace(size_t)";
   const std::string tooLarge = report("count <= rlen()", "VorelBuffer", 41, function);
   Pipe pipe;
   VorelBuffer buffer(pipe.writer, 100, 0), unbuffered(pipe.writer, 0, 0);
   commit(buffer, std::string(60, 'a'));
   EXPECT_DEATH(VorelBuffer(0, 100, 0),
                report("fd != 0", "VorelBuffer", 21,
                       "vorel::VorelBuffer::VorelBuffer(int, size_t, uint32_t)"));
   EXPECT_DEATH(buffer.allocateSpace(40), report("rlen() < count", "VorelBuffer", 36, function));
   EXPECT_DEATH(buffer.getBuffer(101), tooLarge);
   EXPECT_EQ(pipe.pending(), 60);  // what was committed before
   EXPECT_DEATH(unbuffered.getBuffer(1), tooLarge);
}

}  // namespace
