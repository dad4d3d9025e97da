#include <vorel/interrupt/SigIntException.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>

namespace {

/** The interrupt flags of all threads: 1 or 0 by thread id; a thread without an entry has 0.
 * Emptied at exit, but never destroyed: a thread that still runs then finds the map usable. */
union Registry {
   std::map<int, int> flags;
   Registry() : flags() {}
   ~Registry();
};

constinit std::mutex mutex;            // guards the flags; constant, so usable at any time
constinit std::atomic<int> marked{0};  // how many flags hold 1; changed under the mutex

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
   marked.store(0, std::memory_order_release);
}

void store(int tid, int flag) {
   std::scoped_lock lock(mutex);
   int& stored = registry().flags[tid];
   marked.fetch_add(flag - stored, std::memory_order_release);
   stored = flag;
}

// Asked afresh each time: a cached id would be wrong in the child of a fork.
int threadId() {
   return static_cast<int>(syscall(SYS_gettid));
}

}  // namespace

int vorel_isInterrupted(int tid) {
   std::scoped_lock lock(mutex);
   const std::map<int, int>& flags = registry().flags;
   const auto entry = flags.find(tid);
   return entry == flags.end() ? 0 : entry->second;
}

void vorel_setInterrupted(int tid) {
   store(tid, 1);
}
void vorel_resetInterrupted(int tid) {
   store(tid, 0);
}

void vorel_delInterrupted(int tid) {
   std::scoped_lock lock(mutex);
   std::map<int, int>& flags = registry().flags;
   const auto entry = flags.find(tid);
   if (entry == flags.end())
      return;
   marked.fetch_sub(entry->second, std::memory_order_release);
   flags.erase(entry);
}

namespace vorel {

// While no thread is marked, a check is one load: the thread id, a system call, is not asked for.
bool isInterrupted() {
   return marked.load(std::memory_order_acquire) != 0 && vorel_isInterrupted(threadId()) != 0;
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

}  // namespace vorel
