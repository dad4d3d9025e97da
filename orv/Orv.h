// The host framework, as far as the library needs it. A real host brings its own; this stand-in
// lets the library be built, tested and used without one.
//
// What the library calls is defined in Orv.cpp, so that it is imported by name: inline, it would
// compile the stand-in's fields into the library, which a real host has elsewhere.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

#pragma GCC visibility push(default)

namespace Orv {

/** Counts the objects of the framework's classes, so that a leak can be seen. Any thread. */
class AllocTrackTypeInfo {
 public:
   std::atomic<uint64_t> allocations{0};
   std::atomic<uint64_t> deallocations{0};

   /** Reports an allocation to the record that `*record` points at. The stand-in uses neither the
    * type nor the two sizes. */
   static void _trackAllocation(AllocTrackTypeInfo** record, const std::type_info& type, size_t,
                                size_t);
   /** Reports a release to `record`. */
   static void trackDeallocation(AllocTrackTypeInfo* record);
};

/** The base of every object the framework can refer to. The hooks do nothing in the stand-in. */
class PtrInterface {
 public:
   virtual void* notifieeList() const;
   virtual void hasNotificationActiveIs(bool active);
   virtual void zeroReferencesIs(bool zero);
   virtual const void* fwkType() const;
   virtual ~PtrInterface();

   /** The record that allocations and releases are reported to. */
   static AllocTrackTypeInfo* orvAllocTrackTypeInfo_;
};

/** A lock over an error-checking mutex: locking it twice from one thread fails with EDEADLK. */
class Lock {
 public:
   pthread_mutex_t mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;

   /** Throw std::system_error with the error number `err`. */
   [[noreturn]] static void throwFailedLock(int err);
   [[noreturn]] static void throwFailedUnlock(int err);
};

/** Owns the lock that a thread holds while it runs the framework's activities. */
class ActivityManagerSm {
 public:
   Lock& activityLock();

 private:
   Lock lock_;
};

class ActivityImplFacility {
 public:
   /** The process's one activity manager; it lives as long as the process. */
   static ActivityManagerSm* activityManagerSm();
};

}  // namespace Orv

#pragma GCC visibility pop
