// Calls of the operating system that fail on request, and the count of memory blocks in use. The
// program is linked with the library's objects, and with --wrap, so that their calls come here.
#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <string_view>
#include <vector>

/** A call that is to fail. */
struct Fault {
   enum Call { kAllocation, kWrite, kLock, kUnlock, kGetsockopt, kIoctl, kFormat };
   Call call;
   int passing;       ///< How many such calls go well before it.
   int error = 0;     ///< What it fails with; of no meaning for an allocation.
   size_t taken = 0;  ///< A write without an error takes as many bytes, if they are not all.
};

/**
 * While it lives, calls of the calling thread fail as planned: the first fault, after it the
 * second, and so on. Locking counts for every mutex, unlocking for the activity lock alone.
 */
class Faults {
 public:
   using Sink = std::function<void(std::string_view)>;

   /** With a `sink`, it gets what writes take, and the kernel nothing; no fault meets it. */
   explicit Faults(std::vector<Fault> plan, Sink sink = nullptr);
   Faults(const Faults&) = delete;
   Faults& operator=(const Faults&) = delete;
   ~Faults();

   /** How many of the faults have come to pass. */
   size_t count() const { return count_; }
   const std::vector<Fault>& plan() const { return plan_; }

   /** The fault that the calling thread's call meets now, if one is planned for it. For the calls
    * that are replaced. */
   static const Fault* meet(Fault::Call call, size_t length = 0);
   static const Sink* sink();

 private:
   std::vector<Fault> plan_;
   Sink sink_;
   size_t count_ = 0;
   int passed_ = 0;
};

/** While it lives, nothing fails. */
class WithoutFaults {
 public:
   WithoutFaults();
   WithoutFaults(const WithoutFaults&) = delete;
   WithoutFaults& operator=(const WithoutFaults&) = delete;
   ~WithoutFaults();

 private:
   Faults* faults_;
};

/** Blocks that the calling thread has allocated, less those it has released. */
long liveBlocks();

/**
 * Repeats `operation`, with its first allocation failing, then its second, and so on, until it
 * needs no more. After each failure calls `check` with the count of blocks that were left behind.
 */
template <typename Operation, typename Check>
void failEachAllocation(Operation operation, Check check) {
   for (int failures = 0;; ++failures) {
      const long before = liveBlocks();
      try {
         const Faults faults({{Fault::kAllocation, failures}});
         return operation();
      } catch (const std::bad_alloc&) {
         check(liveBlocks() - before);
      }
   }
}
