// Allocations that fail on request, and the count of those in use.
#pragma once

#include <new>

/** Blocks that the calling thread got from operator new, less those it gave back. */
long liveAllocations();

/** While it lives, one allocation of the calling thread fails: the one after `passing` others. */
class FailingNew {
 public:
   explicit FailingNew(int passing);
   FailingNew(const FailingNew&) = delete;
   FailingNew& operator=(const FailingNew&) = delete;
   ~FailingNew();
};

/**
 * Repeats `operation`, with its first allocation failing, then its second, and so on, until it
 * needs no more. After each failure calls `check` with the count of blocks that were left behind.
 * Returns the count of failures.
 */
template <typename Operation, typename Check>
int failEachAllocation(Operation operation, Check check) {
   for (int failures = 0;; ++failures) {
      const long before = liveAllocations();
      try {
         const FailingNew failing(failures);
         operation();
         return failures;
      } catch (const std::bad_alloc&) {
         check(liveAllocations() - before);
      }
   }
}
