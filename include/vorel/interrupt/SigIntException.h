#pragma once

#include <atomic>
#include <exception>

#pragma GCC visibility push(default)

extern "C" {
// The interrupt flags of threads, by kernel thread id (gettid). Callable from any thread, but not
// from a signal handler: they lock a mutex. They throw std::system_error when that mutex fails and,
// where they add an entry, std::bad_alloc; the flags are then unchanged.

/** 1 when thread `tid` is marked interrupted, otherwise 0. */
int vorel_isInterrupted(int tid);
/** Marks thread `tid`; its next check throws SigIntException, as does every later one until the
 * flag is reset. Does not wake a thread that is blocked in a system call. */
void vorel_setInterrupted(int tid);
/** Resets the flag of thread `tid`. */
void vorel_resetInterrupted(int tid);
/** Forgets thread `tid`: to be called at the end of a thread that was marked or reset, when nobody
 * marks it any more, since the kernel gives its id to a later thread. */
void vorel_delInterrupted(int tid);
}

namespace vorel {

/** Ends the rendering of an interrupted thread. Inline as a whole, so that every library and
 * program that throws or catches it means the same type. */
class SigIntException : public std::exception {
 public:
   ~SigIntException() override = default;
   const char* what() const noexcept override { return "interrupted by control-c"; }
};

// The calling thread's own flag.
bool isInterrupted();
void setInterrupted();
void resetInterrupted();
/** Throws SigIntException when the calling thread is interrupted; the flag stays. */
void raiseSigIntIfNeeded();

/** The errno of the calling thread's last failed write since its flag was last reset, by whomever;
 * 0 if there was none, or if a signal ended it (EINTR). */
int writeError();

namespace detail {
/** How many flags are set: while none is, no thread need look for its own. Changed by the registry
 * alone, under its mutex. */
extern std::atomic<int> markedThreads;
}  // namespace detail

}  // namespace vorel

#pragma GCC visibility pop
