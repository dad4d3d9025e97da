// On a host: the library gives the host's own lock up while it writes, and reports its objects to
// the host's own record.
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <orv/Orv.h>
#include <vorel/plain/PlainC.h>

namespace {

pthread_mutex_t* const mutex =
      &Orv::ActivityImplFacility::activityManagerSm()->activityLock().mutex;
int writes = 0;
int writesUnderLock = 0;

bool isLocked() {
   if (pthread_mutex_trylock(mutex) == EBUSY)
      return true;
   pthread_mutex_unlock(mutex);
   return false;
}

}  // namespace

/** Takes the place of the system's. */
extern "C" ssize_t write(int, const void*, size_t size) {
   ++writes;
   writesUnderLock += isLocked();
   return static_cast<ssize_t>(size);
}

int main() {
   const Orv::AllocTrackTypeInfo& objects = *Orv::PtrInterface::orvAllocTrackTypeInfo_;
   pthread_mutex_lock(mutex);
   vorel_Renderer* const out = initPrinter(1, vorel::outputFormatJson);
   const bool reported = objects.allocations == 1 && objects.deallocations == 0;
   start(out);
   end(out);
   const bool lockedAgain = isLocked();
   deinitPrinter(out);
   if (writes == 0 || writesUnderLock > 0 || !lockedAgain) {
      std::fprintf(stderr, "%d writes, %d of them under the lock; taken again: %d\n", writes,
                   writesUnderLock, lockedAgain);
      return 1;
   }
   if (!reported || objects.deallocations != 1)
      return 2;
}
