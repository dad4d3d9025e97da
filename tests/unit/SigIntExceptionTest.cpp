#include <vorel/interrupt/SigIntException.h>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <vorel/plain/PlainC.h>
#include "Recording.h"

namespace {

int ownId() {
   return static_cast<int>(syscall(SYS_gettid));
}

constexpr int kNobody = 1 << 30;  // the kernel gives no such thread id

class SigIntExceptionTest : public InterruptingTest {};

TEST_F(SigIntExceptionTest, FlagsById) {
   EXPECT_EQ(vorel_isInterrupted(kNobody), 0);
   vorel_delInterrupted(kNobody);
   struct {
      void (*change)(int);
      int flag;
   } const changes[] = {
         {vorel_resetInterrupted, 0}, {vorel_setInterrupted, 1}, {vorel_setInterrupted, 1},
         {vorel_resetInterrupted, 0}, {vorel_delInterrupted, 0}, {vorel_delInterrupted, 0},
         {vorel_setInterrupted, 1},   {vorel_delInterrupted, 0}, {vorel_setInterrupted, 1}};
   for (const auto& [change, flag] : changes) {
      change(kNobody);
      EXPECT_EQ(vorel_isInterrupted(kNobody), flag);
      EXPECT_FALSE(vorel::isInterrupted());
      EXPECT_NO_THROW(vorel::raiseSigIntIfNeeded());
   }
   // Of two marks one is taken back: the other still counts.
   vorel::setInterrupted();
   vorel_delInterrupted(kNobody);
   EXPECT_TRUE(vorel::isInterrupted());
   vorel::resetInterrupted();
   EXPECT_FALSE(vorel::isInterrupted());
}

TEST_F(SigIntExceptionTest, AMarkStaysUntilItIsReset) {
   vorel::setInterrupted();
   EXPECT_EQ(vorel_isInterrupted(ownId()), 1);
   EXPECT_THROW(vorel::raiseSigIntIfNeeded(), vorel::SigIntException);
   try {
      vorel::raiseSigIntIfNeeded();
      FAIL();
   } catch (const std::exception& error) {
      EXPECT_STREQ(error.what(), "interrupted by control-c");
   }
   vorel_delInterrupted(ownId());
   EXPECT_NO_THROW(vorel::raiseSigIntIfNeeded());
   setInterruptedForTest();
   EXPECT_TRUE(vorel::isInterrupted());
   resetInterruptedForTest();
   EXPECT_FALSE(vorel::isInterrupted());
}

TEST_F(SigIntExceptionTest, TheChildOfAForkIsAnotherThread) {
   vorel::setInterrupted();
   const pid_t child = fork();
   if (child == 0)
      _exit(vorel::isInterrupted() ? 1 : 0);
   int status = -1;
   ASSERT_EQ(waitpid(child, &status, 0), child);
   EXPECT_EQ(status, 0);
}

TEST_F(SigIntExceptionTest, TheChildOfAForkExitsWhateverOtherThreadsDid) {
   std::atomic<bool> done{false};
   const auto mark = [&done] {
      while (!done)
         vorel_setInterrupted(kNobody);
   };
   std::thread first(mark), second(mark);
   const int children = sanitizing("thread") ? 3 : 30;  // it sleeps for a second at each exit
   constexpr unsigned kSeconds = 5;
   for (int i = 0, status = 0; i < children && WIFEXITED(status); ++i) {
      const pid_t child = fork();
      if (child == 0) {
         alarm(kSeconds);
         std::exit(0);
      }
      EXPECT_EQ(waitpid(child, &status, 0), child);
      EXPECT_TRUE(WIFEXITED(status)) << "a child that waits is ended by a signal";
   }
   done = true;
   first.join();
   second.join();
   vorel_delInterrupted(kNobody);
}

}  // namespace
