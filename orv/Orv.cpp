#include <orv/Orv.h>

#include <system_error>

namespace Orv {

namespace {
constinit AllocTrackTypeInfo trackingRecord;
constinit ActivityManagerSm activityManager;
}  // namespace

void AllocTrackTypeInfo::_trackAllocation(AllocTrackTypeInfo** record, const std::type_info&,
                                          size_t, size_t) {
   (*record)->allocations.fetch_add(1, std::memory_order_relaxed);
}

void AllocTrackTypeInfo::trackDeallocation(AllocTrackTypeInfo* record) {
   record->deallocations.fetch_add(1, std::memory_order_relaxed);
}

constinit AllocTrackTypeInfo* PtrInterface::orvAllocTrackTypeInfo_ = &trackingRecord;

void* PtrInterface::notifieeList() const {
   return nullptr;
}
void PtrInterface::hasNotificationActiveIs(bool) {}
void PtrInterface::zeroReferencesIs(bool) {}
const void* PtrInterface::fwkType() const {
   return nullptr;
}
PtrInterface::~PtrInterface() = default;

void Lock::throwFailedLock(int err) {
   throw std::system_error(err, std::generic_category(), "activity lock not taken");
}

void Lock::throwFailedUnlock(int err) {
   throw std::system_error(err, std::generic_category(), "activity lock not released");
}

Lock& ActivityManagerSm::activityLock() {
   return lock_;
}

ActivityManagerSm* ActivityImplFacility::activityManagerSm() {
   return &activityManager;
}

}  // namespace Orv
