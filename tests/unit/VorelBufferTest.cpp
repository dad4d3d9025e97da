#include <vorel/buffers/VorelBuffer.h>

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

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
