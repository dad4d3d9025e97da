// The interrupt flags by themselves, and under printers that are interrupted at any moment.
#include <vorel/interrupt/SigIntException.h>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <atomic>
#include <cstdlib>
#include <thread>

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

/** Prints rows without end, and counts those begun. */
void printRows(Renderer& to, std::atomic<int>& begun) {
   to.startList("rows");
   for (;;) {
      const Attr32Info number("", begun++);
      to.addAttributes("", 1, &number);
   }
}

/** One printer's life in a thread of its own, until this one marks it. */
void interruptOne(unsigned life) {
   const unsigned area = life % 3 * 50;
   const bool holding = life / 3 % 2 == 0;
   Pipe pipe;
   std::atomic<int> tid{0}, begun{0};
   std::atomic<bool> marked{false};
   std::thread writer([&] {
      const auto held = hold(holding);
      tid = ownId();
      {
         Printer printer(pipe.writer, outputFormatJson, false, false, area != 0, area);
         EXPECT_THROW(printRows(printer, begun), SigIntException);
         EXPECT_TRUE(marked) << "a mark meets no other thread";
      }
      EXPECT_EQ(holdsLock(), holding);
      vorel_delInterrupted(ownId());  // before the id may be another's
      pipe.writer.close();
   });
   std::minstd_rand random(life);
   std::string all = pipe.readSome(1 + random() % 2000);
   vorel_setInterrupted(kNobody);  // other entries come and go meanwhile
   vorel_delInterrupted(kNobody);
   marked = true;
   vorel_setInterrupted(tid);
   const int last = begun.fetch_add(0) + 1;  // an addition, to come after the mark everywhere
   all += pipe.readAll();
   writer.join();
   EXPECT_LE(begun, last) << "a marked thread stops at its next check";
   std::string document = "\"rows\":[0";
   for (int row = 1; document.size() < all.size(); ++row)
      document += "," + std::to_string(row);
   EXPECT_EQ(document.substr(0, all.size()), all);
}

TEST(SigIntException, EachMarkStopsItsThreadAtTheNextCheckAndNoOther) {
   std::vector<std::thread> threads;
   for (unsigned first = 0; first < 8; ++first)
      threads.emplace_back([first] {
         for (unsigned life = first; life < 800; life += 8)
            interruptOne(life);
      });
   for (std::thread& thread : threads)
      thread.join();
}

}  // namespace
