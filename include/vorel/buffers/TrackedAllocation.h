#pragma once

#include <cstddef>

namespace vorel {

/**
 * Allocation of every buffer and renderer: from the global heap, each allocation and each release
 * reported to the host framework's tracking. As an empty base it adds nothing to an object.
 */
class [[gnu::visibility("default")]] TrackedAllocation {
 public:
   /** Throws std::bad_alloc, with nothing left reported, when there is no memory. */
   static void* operator new(size_t size);
   static void* operator new(size_t, void* where) noexcept {
      return where;
   }
   static void operator delete(void* memory) noexcept;
};

}  // namespace vorel
