// The interrupt flags by themselves, and with printers that are interrupted at any moment.
#include <vorel/interrupt/SigIntException.h>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include <vorel/plain/PlainC.h>
#include <vorel/render/Printer.h>
#include "Resources.h"

using namespace vorel;

namespace {

int ownId() {
   return static_cast<int>(syscall(SYS_gettid));
}

constexpr int kNobody = 1 << 30;  // the kernel gives no such thread id

TEST(SigIntException, FlagsById) {
   EXPECT_EQ(vorel_isInterrupted(kNobody), 0);
   const struct {
      void (*change)(int);
      int flag;
   } changes[] = {{vorel_delInterrupted, 0}, {vorel_resetInterrupted, 0}, {vorel_setInterrupted, 1},
                  {vorel_setInterrupted, 1}, {vorel_resetInterrupted, 0}, {vorel_delInterrupted, 0},
                  {vorel_delInterrupted, 0}, {vorel_setInterrupted, 1},   {vorel_delInterrupted, 0},
                  {vorel_setInterrupted, 1}};
   for (const auto& [change, flag] : changes) {
      change(kNobody);
      EXPECT_EQ(vorel_isInterrupted(kNobody), flag);
      EXPECT_FALSE(isInterrupted());
      EXPECT_NO_THROW(raiseSigIntIfNeeded());
   }
   // Of two marks one is taken back: the other still counts.
   setInterruptedForTest();
   vorel_delInterrupted(kNobody);
   EXPECT_EQ(vorel_isInterrupted(ownId()), 1);
   try {
      raiseSigIntIfNeeded();
      ADD_FAILURE();
   } catch (const std::exception& error) {
      EXPECT_STREQ(error.what(), "interrupted by control-c");
   }
   EXPECT_TRUE(isInterrupted());
   resetInterruptedForTest();
   EXPECT_FALSE(isInterrupted());
}

TEST(SigIntException, TheChildOfAForkIsAnotherThread) {
   setInterrupted();
   const pid_t child = fork();
   if (child == 0)
      _exit(isInterrupted() ? 1 : 0);
   resetInterrupted();
   int status = -1;
   ASSERT_EQ(waitpid(child, &status, 0), child);
   EXPECT_EQ(status, 0);
}

TEST(SigIntException, TheChildOfAForkExitsWhateverOtherThreadsDid) {
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

/** Prints in a thread of its own until this one marks it, which it does at any moment. */
void interruptOne(unsigned life) {
   const Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
   const bool holding = life % 2 == 0;
   std::atomic<int> tid{0}, begun{0};
   std::atomic<bool> marked{false};
   std::thread printing([&] {
      const auto held = hold(holding);
      tid = ownId();
      Printer printer(nowhere, outputFormatText, false, false, true, life % 3 * 50 + 20);
      try {
         for (;;)
            printer.addFrills("row %d\n", begun++);
      } catch (const SigIntException&) {
         EXPECT_TRUE(marked) << "a mark meets no other thread";
      }
      EXPECT_EQ(holdsLock(), holding);
      vorel_delInterrupted(ownId());  // while the id is no other thread's
   });
   while (begun <= static_cast<int>(life % 200))
      std::this_thread::yield();
   vorel_setInterrupted(kNobody);  // other entries come and go meanwhile
   vorel_delInterrupted(kNobody);
   marked = true;
   vorel_setInterrupted(tid);
   const int last = begun.fetch_add(0) + 1;  // an addition, to come after the mark everywhere
   printing.join();
   EXPECT_LE(begun, last) << "a marked thread stops at its next check";
}

TEST(SigIntException, EachMarkStopsItsThreadAtTheNextCheckAndNoOther) {
   std::vector<std::thread> threads;
   for (unsigned first = 0; first < 4; ++first)
      threads.emplace_back([first] {
         for (unsigned life = first; life < 400; life += 4)
            interruptOne(life);
      });
   for (std::thread& thread : threads)
      thread.join();
}

}  // namespace
