#pragma once

#include <exception>

extern "C" {
// The interrupt flags of threads, by kernel thread id (gettid). Callable from any thread, but not
// from a signal handler: they lock a mutex. They throw std::system_error when that mutex fails and,
// where they add an entry, std::bad_alloc; the flags are then unchanged.

/** 1 when thread `tid` is marked interrupted, otherwise 0. */
[[gnu::visibility("default")]] int vorel_isInterrupted(int tid);
/** Marks thread `tid`; its next check throws SigIntException, as does every later one until the
 * mark is reset. Does not wake a thread that is blocked in a system call. */
[[gnu::visibility("default")]] void vorel_setInterrupted(int tid);
/** Takes the mark of thread `tid` back. */
[[gnu::visibility("default")]] void vorel_resetInterrupted(int tid);
/** Forgets thread `tid`: to be called at the end of a thread that was marked or reset, when nobody
 * marks it any more, since the kernel gives its id to a later thread. */
[[gnu::visibility("default")]] void vorel_delInterrupted(int tid);
}

namespace vorel {

/** Ends the rendering of an interrupted thread. Inline as a whole, so that every library and
 * program that throws or catches it means the same type. */
class [[gnu::visibility("default")]] SigIntException : public std::exception {
 public:
   ~SigIntException() override = default;
   const char* what() const noexcept override {
      return "interrupted by control-c";
   }
};

// The calling thread's own flag.
[[gnu::visibility("default")]] bool isInterrupted();
[[gnu::visibility("default")]] void setInterrupted();
[[gnu::visibility("default")]] void resetInterrupted();
/** Throws SigIntException when the calling thread is interrupted; the flag stays. */
[[gnu::visibility("default")]] void raiseSigIntIfNeeded();

}  // namespace vorel
