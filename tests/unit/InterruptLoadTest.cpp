// Threads that are born, print without end, are interrupted and die by the thousand.
#include <sys/syscall.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <vorel/render/Printer.h>
#include "EndlessDocument.h"
#include "Recording.h"

using namespace vorel;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr int kNobody = 1 << 30;  // the kernel gives no such thread id

/** One thread at a time that prints, and what a host must remember of it. */
class Slot {
 public:
   int64_t checks = 0, bytes = 0;

   /** The life of a thread, of one kind or another, from its birth until it was interrupted. */
   void live(unsigned kind) {
      constexpr unsigned kAreas[] = {0, 100, 0};  // none, a small one, the default
      const unsigned area = kind / 4 % 3;
      const OutputFormat_t format = kind % 2 == 0 ? outputFormatJson : outputFormatText;
      Pipe pipe;
      std::thread writer([&] {
         print({pipe.writer, format, false, false, area != 0, kAreas[area]}, kind / 2 % 2 == 0);
         pipe.writer.close();
      });
      EndlessDocument document(format);
      for (std::string part; !(part = pipe.readSome()).empty(); bytes += std::ssize(part)) {
         EXPECT_TRUE(document.goesOnWith(part)) << part;
         vorel_setInterrupted(kNobody);  // other entries come and go meanwhile
         vorel_delInterrupted(kNobody);
         if (testing::Test::HasFailure())
            pipe.reader.close();  // so that a thread ends that should have ended before
      }
      writer.join();
      checks += begun_;
   }

   /** Marks the thread or takes its mark back, by its id; false when none lives. */
   bool change(bool mark) {
      std::scoped_lock lock(mutex_);
      if (tid_ == 0)
         return false;
      EXPECT_TRUE(!marked_ || begun_ <= last_) << "a marked thread went on";
      (mark ? vorel_setInterrupted : vorel_resetInterrupted)(tid_);
      // Read by an addition, so that what begins after it sees the change on every processor.
      const int64_t begun = begun_.fetch_add(0);
      if (!mark || !marked_)
         last_ = begun + (mark ? 1 : 0);
      marked_ = mark;
      return true;
   }

 private:
   void print(const PrinterConfig& config, bool holding) {
      const int tid = static_cast<int>(syscall(SYS_gettid));
      const auto held = hold(holding);
      {
         std::scoped_lock lock(mutex_);
         tid_ = tid;
         begun_ = 0;
         last_ = -1;
         marked_ = false;
      }
      {
         Printer printer(config);
         EXPECT_THROW(printEndlessly(printer, begun_), SigIntException);
         EXPECT_EQ(holdsLock(), holding);
         std::scoped_lock lock(mutex_);
         EXPECT_LE(begun_, last_) << "a thread stopped late, or was not marked";
         tid_ = 0;
         // If the mark was taken back by now, the printer would send again what a flush that was
         // interrupted kept.
         setInterrupted();
      }
      EXPECT_EQ(holdsLock(), holding);
      // While the thread still lives: later its id may be another's.
      vorel_delInterrupted(tid);
      EXPECT_EQ(vorel_isInterrupted(tid), 0);
   }

   std::atomic<int64_t> begun_{0};
   std::mutex mutex_;  // guards what follows, and the life of thread tid_
   int tid_ = 0;
   bool marked_ = false;
   int64_t last_ = -1;  // number of the last operation that the thread may begin; -1: it goes on
};

TEST(InterruptLoadTest, EachMarkStopsItsThreadAtTheNextCheckAndNoOther) {
   std::signal(SIGPIPE, SIG_IGN);
   const char* const asked = std::getenv("VOREL_LOAD_THREADS");
   const unsigned lives = asked != nullptr           ? static_cast<unsigned>(std::atoi(asked))
                          : *TEST_SANITIZERS != '\0' ? 1000
                                                     : 2000;
   const size_t defaultSize = std::exchange(vorel_globalBufsize, 20000);
   Slot slots[8];
   std::atomic<unsigned> born{0};
   std::atomic<bool> done{false};
   int64_t marks = 0, resets = 0;
   const auto begin = Clock::now();
   auto heldFor = begin - begin;

   std::vector<std::thread> living, others;
   for (Slot& slot : slots) {
      living.emplace_back([&] {
         for (unsigned life; !testing::Test::HasFailure() && (life = born++) < lives;)
            slot.live(life);
      });
   }
   others.emplace_back([&] {
      std::minstd_rand random;
      while (!done) {
         Slot& slot = slots[random() % std::size(slots)];
         marks += slot.change(true);
         if (random() % 4 == 0)
            resets += slot.change(false);
         std::this_thread::sleep_for(microseconds(random() % 300));
      }
   });
   others.emplace_back([&] {
      for (auto released = begin; !done; released = Clock::now()) {
         std::this_thread::sleep_for(microseconds(20));
         const auto held = hold(true);
         const auto pause = Clock::now() - released;
         std::this_thread::sleep_for(pause);  // as long as it was without the lock
         heldFor += pause;
      }
   });
   for (auto& thread : living)
      thread.join();
   const auto took = Clock::now() - begin;
   done = true;
   for (auto& thread : others)
      thread.join();
   vorel_globalBufsize = defaultSize;

   EXPECT_GT(resets, 0);
   int64_t checks = 0, bytes = 0;
   for (const Slot& slot : slots) {
      checks += slot.checks;
      bytes += slot.bytes;
   }
   std::cout << lives << " threads in " << std::chrono::duration<double>(took).count()
             << " s: " << marks << " marks, " << resets << " of them taken back, " << checks
             << " checks, " << bytes << " bytes, the lock held by others for "
             << heldFor * 100 / took << " % of the time\n";
}

}  // namespace
