#include <vorel/buffers/TrackedAllocation.h>

#include <orv/Orv.h>

namespace vorel {

namespace {

void reportRelease() {
   Orv::AllocTrackTypeInfo::trackDeallocation(Orv::PtrInterface::orvAllocTrackTypeInfo_);
}

/** Allocates with the global operator that takes these arguments. */
template <class... Argument>
void* allocate(Argument... arguments) {
   // The framework's two sizes for an object of this kind; they do not depend on the class.
   constexpr size_t kTrackedSize = 16;
   Orv::AllocTrackTypeInfo::_trackAllocation(&Orv::PtrInterface::orvAllocTrackTypeInfo_,
                                             typeid(Orv::PtrInterface), kTrackedSize, kTrackedSize);
   try {
      return ::operator new(arguments...);
   } catch (...) {
      reportRelease();
      throw;
   }
}

template <class... Argument>
void* allocateOrNull(Argument... arguments) noexcept {
   try {
      return allocate(arguments...);
   } catch (...) {
      return nullptr;
   }
}

template <class... Alignment>
void release(void* memory, Alignment... alignment) noexcept {
   if (memory == nullptr)
      return;
   reportRelease();
   ::operator delete(memory, alignment...);
}

}  // namespace

// A class's own operators serve its arrays as they serve its objects.
using Alignment = std::align_val_t;
using Nothrow = std::nothrow_t;

void* TrackedAllocation::operator new(size_t size) {
   return allocate(size);
}
void* TrackedAllocation::operator new(size_t size, const Nothrow&) noexcept {
   return allocateOrNull(size);
}
void* TrackedAllocation::operator new(size_t size, Alignment alignment) {
   return allocate(size, alignment);
}
void* TrackedAllocation::operator new(size_t size, Alignment alignment, const Nothrow&) noexcept {
   return allocateOrNull(size, alignment);
}
void* TrackedAllocation::operator new[](size_t size) {
   return allocate(size);
}
void* TrackedAllocation::operator new[](size_t size, const Nothrow&) noexcept {
   return allocateOrNull(size);
}
void* TrackedAllocation::operator new[](size_t size, Alignment alignment) {
   return allocate(size, alignment);
}
void* TrackedAllocation::operator new[](size_t size, Alignment alignment, const Nothrow&) noexcept {
   return allocateOrNull(size, alignment);
}

void TrackedAllocation::operator delete(void* memory) noexcept {
   release(memory);
}
void TrackedAllocation::operator delete(void* memory, const Nothrow&) noexcept {
   release(memory);
}
void TrackedAllocation::operator delete(void* memory, Alignment alignment) noexcept {
   release(memory, alignment);
}
void TrackedAllocation::operator delete(void* memory, Alignment alignment,
                                        const Nothrow&) noexcept {
   release(memory, alignment);
}
void TrackedAllocation::operator delete[](void* memory) noexcept {
   release(memory);
}
void TrackedAllocation::operator delete[](void* memory, const Nothrow&) noexcept {
   release(memory);
}
void TrackedAllocation::operator delete[](void* memory, Alignment alignment) noexcept {
   release(memory, alignment);
}
void TrackedAllocation::operator delete[](void* memory, Alignment alignment,
                                          const Nothrow&) noexcept {
   release(memory, alignment);
}

}  // namespace vorel
