#include <vorel/buffers/VorelBuffer.h>

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include <vorel/interrupt/SigIntException.h>
#include "Resources.h"

using namespace vorel;

namespace {

void commit(VorelBuffer& buffer, const std::string& text) {
   std::memcpy(buffer.writePtr, text.data(), text.size());
   buffer.writePtr += text.size();
}

TEST(VorelBuffer, BytesLeaveWhenTheAreaIsFullFlushedOrDestroyed) {
   const int flushes = vorel_ioFlushCount, fulls = vorel_bufferFullCount;
   Pipe pipe;
   {
      VorelBuffer buffer(pipe.writer, 101, 0);
      buffer.flush();
      EXPECT_EQ(vorel_ioFlushCount, flushes);
      commit(buffer, std::string(40, 'a'));
      EXPECT_EQ(buffer.fullness(), 39U);
      EXPECT_EQ(buffer.getBuffer(61), buffer.base + 40);
      EXPECT_EQ(pipe.pending(), 0);
      EXPECT_EQ(buffer.getBuffer(62), buffer.base);
      EXPECT_EQ(pipe.pending(), 40);
      EXPECT_EQ(vorel_ioFlushCount, flushes + 1);
      commit(buffer, "b");
      buffer.flush();
      EXPECT_EQ(buffer.rlen(), 101U);
      commit(buffer, "c");
      EXPECT_EQ(pipe.pending(), 41);
   }
   EXPECT_EQ(vorel_ioFlushCount, flushes + 3);
   EXPECT_EQ(vorel_bufferFullCount, fulls + 1);
   EXPECT_EQ(pipe.finish(), std::string(40, 'a') + "bc");
}

TEST(VorelBuffer, WithoutAnAreaEachPieceIsWrittenAtOnce) {
   const int flushes = vorel_ioFlushCount;
   Pipe pipe;
   VorelBuffer buffer(pipe.writer, 0, 0);
   EXPECT_EQ(buffer.base, nullptr);
   EXPECT_EQ(buffer.fullness(), 0U);
   EXPECT_EQ(buffer.getBuffer(0), nullptr);
   buffer.flush();
   buffer.rellock(false);  // nothing was given up
   EXPECT_FALSE(holdsLock());
   buffer.rawWrite("one", 3);
   EXPECT_EQ(pipe.pending(), 3);
   setInterrupted();
   buffer.rawWrite("two", 0);
   EXPECT_THROW(buffer.rawWrite("two", 3), SigIntException);
   resetInterrupted();
   EXPECT_EQ(vorel_ioFlushCount, flushes + 1);
   EXPECT_EQ(pipe.finish(), "one");
}

const std::string kData(300000, 'd');  // more than a pipe takes
std::atomic<int> signalsSeen{0};

/** A way to write, what meets the thread while it is blocked in there, and how it then ends. */
struct Blocked {
   bool destroying, mark, interrupt;
   bool whole, throws;
};

void meet(const Blocked& given, bool holding) {
   Pipe pipe;
   std::atomic<int> tid{0};
   std::atomic<bool> ended{false};
   std::thread writer([&] {
      const auto held = hold(holding);
      tid = static_cast<int>(syscall(SYS_gettid));
      bool threw = false;
      try {
         VorelBuffer buffer(pipe.writer, given.destroying ? kData.size() : 0, 0);
         given.destroying ? commit(buffer, kData) : buffer.rawWrite(kData.data(), kData.size());
      } catch (const SigIntException&) {
         threw = true;
      }
      ended = true;
      EXPECT_EQ(threw, given.throws);
      EXPECT_EQ(isInterrupted(), given.mark);
      EXPECT_EQ(holdsLock(), holding);
      vorel_delInterrupted(tid);
      pipe.writer.close();
   });
   // It sleeps before the full pipe, and without the lock.
   pollfd full{pipe.writer, POLLOUT, 0};
   for (std::string id, name, state; !ended && (state != "S" || poll(&full, 1, 0) != 0);) {
      std::this_thread::yield();
      std::ifstream("/proc/self/task/" + std::to_string(tid) + "/stat") >> id >> name >> state;
   }
   timespec deadline;
   clock_gettime(CLOCK_REALTIME, &deadline);
   deadline.tv_sec += 10;
   EXPECT_EQ(pthread_mutex_timedlock(activityMutex(), &deadline), 0);
   pthread_mutex_unlock(activityMutex());

   const auto taken = static_cast<size_t>(pipe.pending());
   if (given.mark)
      vorel_setInterrupted(tid);
   if (given.interrupt) {  // which ends the system call; it has taken a part of the bytes
      const int before = signalsSeen;
      pthread_kill(writer.native_handle(), SIGUSR1);
      while (signalsSeen == before && !ended)
         std::this_thread::yield();
   }
   EXPECT_TRUE(pipe.readAll() == kData.substr(0, given.whole ? kData.size() : taken));
   writer.join();
}

TEST(VorelBuffer, ABlockedWriteGivesTheLockUpAndEndsWhereItMust) {
   struct sigaction action = {};  // no SA_RESTART: a signal interrupts a write
   action.sa_handler = [](int) { ++signalsSeen; };
   sigaction(SIGUSR1, &action, nullptr);
   constexpr Blocked kCases[] = {
         {false, false, false, true, false}, {false, true, false, true, true},
         {false, false, true, true, false},  {false, true, true, false, true},
         {true, false, false, true, false},  {true, true, true, true, false}};
   for (const Blocked& given : kCases) {
      for (const bool holding : {false, true}) {
         SCOPED_TRACE(testing::Message() << (&given - kCases) << holding);
         const int flushes = vorel_ioFlushCount;
         meet(given, holding);
         EXPECT_EQ(vorel_ioFlushCount, flushes + 1);
      }
   }
}

TEST(VorelBuffer, OnlyASocketWithRoomWouldNotBlock) {
   const Pipe pipe, sockets([](int*ends) { return socketpair(AF_UNIX, SOCK_STREAM, 0, ends); });
   testing::internal::CaptureStdout();
   for (const int fd : {pipe.writer.fd, -1}) {
      VorelBuffer buffer(fd, 10, 0);
      EXPECT_EQ(buffer.socketState, -1);
      EXPECT_TRUE(buffer.wouldBlock());
      EXPECT_EQ(buffer.socketState, 0);
      EXPECT_FALSE(isSocketFd(fd));
      EXPECT_EQ(getSocketCapacity(fd), -1);
   }
   EXPECT_EQ(getSocketUsage(-1), -1);
   EXPECT_EQ(testing::internal::GetCapturedStdout(), "ioctl SIOCOUTQ errno 9\n");

   const Descriptor& socket = sockets.writer;
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
}

}  // namespace
