#pragma once

#include <cstddef>
#include <new>

#pragma GCC visibility push(default)

namespace vorel {

/**
 * Allocation of every buffer and renderer: from the global heap, each allocation and each release
 * reported to the host framework's tracking. As an empty base it adds nothing to an object.
 *
 * The forms are those of the global operators; each does what its global namesake does, an array
 * counts as one allocation, and nothing stays reported when there is no memory.
 */
class TrackedAllocation {
 public:
   static void* operator new(size_t size);
   static void* operator new(size_t size, const std::nothrow_t&) noexcept;
   static void* operator new(size_t size, std::align_val_t alignment);
   static void* operator new(size_t size, std::align_val_t alignment,
                             const std::nothrow_t&) noexcept;
   static void* operator new[](size_t size);
   static void* operator new[](size_t size, const std::nothrow_t&) noexcept;
   static void* operator new[](size_t size, std::align_val_t alignment);
   static void* operator new[](size_t size, std::align_val_t alignment,
                               const std::nothrow_t&) noexcept;

   static void operator delete(void* memory) noexcept;
   static void operator delete(void* memory, const std::nothrow_t&) noexcept;
   static void operator delete(void* memory, std::align_val_t alignment) noexcept;
   static void operator delete(void* memory, std::align_val_t alignment,
                               const std::nothrow_t&) noexcept;
   static void operator delete[](void* memory) noexcept;
   static void operator delete[](void* memory, const std::nothrow_t&) noexcept;
   static void operator delete[](void* memory, std::align_val_t alignment) noexcept;
   static void operator delete[](void* memory, std::align_val_t alignment,
                                 const std::nothrow_t&) noexcept;

   // In memory of the caller's, which is not tracked.
   static void* operator new(size_t, void* where) noexcept { return where; }
   static void* operator new[](size_t, void* where) noexcept { return where; }
   static void operator delete(void*, void*) noexcept {}
   static void operator delete[](void*, void*) noexcept {}
};

}  // namespace vorel

#pragma GCC visibility pop
