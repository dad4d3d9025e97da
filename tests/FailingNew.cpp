#include "FailingNew.h"

#include <cstdlib>

namespace {

constexpr int kNone = -1;
thread_local int passing = kNone;  // allocations before the one that fails
thread_local long live = 0;

void* allocate(size_t size) noexcept {
   if (passing != kNone && passing-- == 0)
      return nullptr;
   void* const block = std::malloc(size == 0 ? 1 : size);
   if (block != nullptr)
      ++live;
   return block;
}

void* allocateOrThrow(size_t size) {
   void* const block = allocate(size);
   if (block == nullptr)
      throw std::bad_alloc();
   return block;
}

void release(void* block) noexcept {
   if (block != nullptr)
      --live;
   std::free(block);
}

}  // namespace

long liveAllocations() {
   return live;
}
FailingNew::FailingNew(int passing_) {
   passing = passing_;
}
FailingNew::~FailingNew() {
   passing = kNone;
}

// The whole family, since a sanitizer brings its own of each that is left out.
void* operator new(size_t size) {
   return allocateOrThrow(size);
}
void* operator new[](size_t size) {
   return allocateOrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
   return allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
   return allocate(size);
}
void operator delete(void* block) noexcept {
   release(block);
}
void operator delete[](void* block) noexcept {
   release(block);
}
void operator delete(void* block, size_t) noexcept {
   release(block);
}
void operator delete[](void* block, size_t) noexcept {
   release(block);
}
