#include <vorel/buffers/TrackedAllocation.h>

#include <new>

#include <orv/Orv.h>

namespace vorel {

void* TrackedAllocation::operator new(size_t size) {
   // The framework's two sizes for an object of this kind; they do not depend on the class.
   constexpr size_t kTrackedSize = 16;
   Orv::AllocTrackTypeInfo::_trackAllocation(&Orv::PtrInterface::orvAllocTrackTypeInfo_,
                                             typeid(Orv::PtrInterface), kTrackedSize, kTrackedSize);
   try {
      return ::operator new(size);
   } catch (...) {
      Orv::AllocTrackTypeInfo::trackDeallocation(Orv::PtrInterface::orvAllocTrackTypeInfo_);
      throw;
   }
}

void TrackedAllocation::operator delete(void* memory) noexcept {
   if (memory == nullptr)
      return;
   Orv::AllocTrackTypeInfo::trackDeallocation(Orv::PtrInterface::orvAllocTrackTypeInfo_);
   ::operator delete(memory);
}

}  // namespace vorel
