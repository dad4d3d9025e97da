#include <vorel/buffers/VorelBuffer.h>

#include <linux/sockios.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <termios.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include <vorel/render/Printer.h>
#include "EndlessDocument.h"
#include "Recording.h"

using namespace vorel;

namespace {

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

/** A thread that writes into a channel, and how it ended. */
class Writer {
 public:
   int error = -1;  // errno when it was stopped
   bool heldAfter = false, markedAfter = false;

   Writer(Pipe& to, bool holding, const std::function<void(int fd)>& write)
         : full_{to.writer, POLLOUT, 0}, thread_([this, &to, holding, write] {
              const auto held = hold(holding);
              tid_ = static_cast<int>(syscall(SYS_gettid));
              error = errorOf([&] { write(to.writer); });
              heldAfter = holdsLock();
              markedAfter = isInterrupted();
              vorel_delInterrupted(tid_);
              to.writer.close();
              ended_ = true;
           }) {}
   Writer(const Writer&) = delete;
   Writer& operator=(const Writer&) = delete;

   int tid() const { return tid_; }
   bool ended() const { return ended_; }
   void join() { thread_.join(); }
   void awaitSleep() {
      for (std::string id, name, state; !ended_ && state != "S"; std::this_thread::yield())
         std::ifstream("/proc/self/task/" + std::to_string(tid_) + "/stat") >> id >> name >> state;
   }
   /** Waits until the thread sleeps before a full channel, which it must do without the lock. */
   void expectBlockedWithoutLock() {
      do
         awaitSleep();
      while (!ended_ && poll(&full_, 1, 0) != 0);
      EXPECT_FALSE(ended_);
      timespec deadline;
      clock_gettime(CLOCK_REALTIME, &deadline);
      deadline.tv_sec += 10;
      EXPECT_EQ(pthread_mutex_timedlock(activityMutex(), &deadline), 0);
      pthread_mutex_unlock(activityMutex());
   }
   /** Ends the write that the thread is in: it has taken a part of the bytes, or none. */
   void interruptSystemCall() {
      const int before = signalsSeen;
      pthread_kill(thread_.native_handle(), SIGUSR1);
      while (signalsSeen == before && !ended_)
         std::this_thread::yield();
   }

 private:
   pollfd full_;
   std::atomic<int> tid_{0};
   std::atomic<bool> ended_{false};
   std::thread thread_;
};

const std::string kData(300000, 'd');

void writeRaw(int fd) {
   VorelBuffer(fd, 0, 0).rawWrite(kData.data(), kData.size());
}

void writeAtDestruction(int fd) {
   VorelBuffer buffer(fd, kData.size(), 0);
   commit(buffer, kData);
}

TEST_F(VorelBufferTest, ABlockedWriteGivesTheLockUpAndEndsWhereItMust) {
   const struct {
      void (*write)(int);
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
         Pipe pipe;
         Writer writer(pipe, holding, write);
         writer.expectBlockedWithoutLock();
         const auto taken = static_cast<size_t>(pipe.pending());
         if (mark)
            vorel_setInterrupted(writer.tid());
         if (interrupt)
            writer.interruptSystemCall();
         EXPECT_TRUE(pipe.read() == kData.substr(0, whole ? kData.size() : taken));
         writer.join();
         EXPECT_EQ(writer.error != -1, threw);
         EXPECT_EQ(writer.markedAfter, mark);
         EXPECT_EQ(writer.heldAfter, holding);
         EXPECT_EQ(flushes(), before + 1);
      }
   }
}

TEST_F(VorelBufferTest, AMarkThatIsTakenBackHidesNoLoss) {
   for (const bool readerLeaves : {false, true}) {
      SCOPED_TRACE(readerLeaves);
      Pipe pipe;
      Writer writer(pipe, true, [](int fd) {
         VorelBuffer buffer(fd, kData.size(), 0);
         commit(buffer, kData);
         buffer.flush();
      });
      writer.expectBlockedWithoutLock();
      const auto taken = static_cast<size_t>(pipe.pending());
      {
         const auto lock = hold(true);  // which the writer now waits for
         if (readerLeaves) {
            pipe.reader.close();
         } else {
            vorel_setInterrupted(writer.tid());
            writer.interruptSystemCall();
         }
         while (vorel_isInterrupted(writer.tid()) == 0)
            std::this_thread::yield();
         writer.awaitSleep();
         vorel_resetInterrupted(writer.tid());
      }
      // What stayed committed is written once more, by the destructor.
      EXPECT_TRUE(readerLeaves || pipe.read() == kData.substr(0, taken) + kData);
      writer.join();
      EXPECT_EQ(writer.error, readerLeaves ? EPIPE : 0);
      EXPECT_TRUE(writer.heldAfter);
   }
}

int makeSmallPipe(int* ends) {
   const int result = pipe2(ends, O_CLOEXEC);
   fcntl(ends[1], F_SETPIPE_SZ, 4096);
   return result;
}

int makeSockets(int* ends) {
   const int result = socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), least = 1;
   setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &least, sizeof least);
   return result;
}

int makeTerminal(int* ends) {
   const int result = openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr);
   termios mode;
   tcgetattr(ends[1], &mode);
   cfmakeraw(&mode);
   tcsetattr(ends[1], TCSANOW, &mode);
   return result;
}

TEST_F(VorelBufferTest, AReaderThatGoesAwayOrStallsAtAnyByte) {
   const struct {
      int (*make)(int*);
      int errors[2];  // of a write that nobody will read
   } channels[] = {{makeSmallPipe, {EPIPE, EPIPE}},
                   {makeSockets, {EPIPE, ECONNRESET}},
                   {makeTerminal, {EIO, EIO}}};
   constexpr size_t kBytes = 151, kKinds = 8;
   for (size_t choice = 0; choice < kBytes * kKinds * 3 && !HasFailure(); ++choice) {
      const auto& [make, errors] = channels[choice % 3];
      const size_t kind = choice / 3 % kKinds;
      const size_t count = choice / 3 / kKinds;  // of bytes that are read at first
      const OutputFormat_t format = kind % 2 == 0 ? outputFormatJson : outputFormatText;
      const unsigned area = kind / 2 % 2 == 0 ? 0 : 80;
      const bool stalls = kind / 4 == 0, holding = count % 2 == 0;
      SCOPED_TRACE(choice);
      Pipe channel(make);
      int flushesWhenStopped = 0;
      Writer writer(channel, holding, [&](int fd) {
         Printer printer(fd, format, false, false, area != 0, area);
         try {
            std::atomic<int64_t> begun{0};
            printEndlessly(printer, begun);
         } catch (...) {
            flushesWhenStopped = flushes();
            throw;
         }
      });
      std::string all = channel.read(count);
      EXPECT_EQ(all.size(), count);
      if (stalls) {
         if (area == 0)  // on a terminal, whose queue takes many small pieces, like control-S
            tcflow(channel.writer, TCOOFF);
         writer.expectBlockedWithoutLock();
         vorel_setInterrupted(writer.tid());
         while (!writer.ended())
            writer.interruptSystemCall();
         all += channel.read();
      } else {
         channel.reader.close();
      }
      writer.join();
      EXPECT_TRUE(stalls ? writer.error != -1
                         : writer.error == errors[0] || writer.error == errors[1])
            << writer.error;
      EXPECT_TRUE(writer.markedAfter);
      EXPECT_EQ(writer.heldAfter, holding);
      EXPECT_EQ(flushes(), flushesWhenStopped);
      EXPECT_TRUE(EndlessDocument(format).goesOnWith(all)) << all;
   }
}

TEST_F(VorelBufferTest, OnlyASocketWithRoomWouldNotBlock) {
   const Pipe pipe, terminal(makeTerminal), sockets(makeSockets);
   const Descriptor& socket = sockets.writer;
   for (int fd : {pipe.writer.fd, terminal.writer.fd, -1}) {
      VorelBuffer buffer(fd, 10, 0);
      EXPECT_EQ(buffer.socketState, -1);
      EXPECT_TRUE(buffer.wouldBlock());
      EXPECT_EQ(buffer.socketState, 0);
      EXPECT_FALSE(isSocketFd(fd));
      EXPECT_EQ(getSocketCapacity(fd), -1);
   }
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
