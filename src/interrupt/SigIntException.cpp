#include <vorel/interrupt/SigIntException.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>

#include "interrupt/FailedWrite.h"

constinit std::atomic<int> vorel::detail::markedThreads{0};

namespace {

using vorel::detail::markedThreads;

struct Entry {
   int flag = 0;        // 1 or 0
   int writeError = 0;  // while the flag is set: errno of the last failed write, but for EINTR
};

/** The interrupt flags of all threads by thread id; a thread without an entry has 0.
 * Emptied at exit, but never destroyed: a thread that still runs then finds the map usable. */
union Registry {
   std::map<int, Entry> flags;
   Registry() : flags() {}
   ~Registry();
};

constinit std::mutex mutex;  // guards the flags; constant, so usable at any time

/** Built when it is first asked for, in case a constructor of another unit comes before ours. */
Registry& registry() {
   static Registry theRegistry;
   return theRegistry;
}
// And at the latest now, so that it is emptied after what is built later.
[[maybe_unused]] const Registry& builtAtLoad = registry();

// Never waits: in the child of a fork the mutex may be held by a thread that the child does not
// have. The flags then stay as they are.
Registry::~Registry() {
   const std::unique_lock lock(mutex, std::try_to_lock);
   if (!lock.owns_lock())
      return;
   flags.clear();
   markedThreads.store(0, std::memory_order_release);
}

/** Sets a flag, or resets it and forgets the write error. The caller holds the mutex. */
Entry& store(int tid, int flag) {
   Entry& stored = registry().flags[tid];
   markedThreads.fetch_add(flag - stored.flag, std::memory_order_release);
   stored = {flag, flag == 0 ? 0 : stored.writeError};
   return stored;
}

Entry find(int tid) {
   std::scoped_lock lock(mutex);
   const std::map<int, Entry>& flags = registry().flags;
   const auto entry = flags.find(tid);
   return entry == flags.end() ? Entry() : entry->second;
}

// Asked afresh each time: a cached id would be wrong in the child of a fork.
int threadId() {
   return static_cast<int>(syscall(SYS_gettid));
}

}  // namespace

int vorel_isInterrupted(int tid) {
   return find(tid).flag;
}

void vorel_setInterrupted(int tid) {
   std::scoped_lock lock(mutex);
   store(tid, 1);
}
void vorel_resetInterrupted(int tid) {
   std::scoped_lock lock(mutex);
   store(tid, 0);
}

void vorel_delInterrupted(int tid) {
   std::scoped_lock lock(mutex);
   std::map<int, Entry>& flags = registry().flags;
   const auto entry = flags.find(tid);
   if (entry == flags.end())
      return;
   markedThreads.fetch_sub(entry->second.flag, std::memory_order_release);
   flags.erase(entry);
}

namespace vorel {

// While no thread is marked, a check is one load: the thread id, a system call, is not asked for.
bool isInterrupted() {
   return markedThreads.load(std::memory_order_acquire) != 0 &&
          vorel_isInterrupted(threadId()) != 0;
}

void setInterrupted() {
   vorel_setInterrupted(threadId());
}
void resetInterrupted() {
   vorel_resetInterrupted(threadId());
}

void raiseSigIntIfNeeded() {
   if (isInterrupted()) [[unlikely]]
      throw SigIntException();
}

int writeError() {
   return markedThreads.load(std::memory_order_acquire) == 0 ? 0 : find(threadId()).writeError;
}

void interrupt::setInterruptedByWrite(int error) {
   std::scoped_lock lock(mutex);
   store(threadId(), 1).writeError = error == EINTR ? 0 : error;
}

}  // namespace vorel
