#include "ControlC.h"

#include <unistd.h>

#include <vorel/interrupt/SigIntException.h>

namespace {

sigset_t interruptSignal() {
   sigset_t set;
   sigemptyset(&set);
   sigaddset(&set, SIGINT);
   return set;
}

void setAction(int signal, void (*handler)(int)) {
   struct sigaction action = {};
   action.sa_handler = handler;
   // No SA_RESTART: the point of SIGUSR1 is that a blocked write returns.
   sigaction(signal, &action, nullptr);
}

}  // namespace

ControlC::ControlC() : renderer_(gettid()) {
   const sigset_t interrupt = interruptSignal();
   pthread_sigmask(SIG_BLOCK, &interrupt, &maskBefore_);
   // Shells start background jobs with SIGINT ignored, and an ignored signal need not become
   // pending. Whoever sends one to such a job all the same wants it to end.
   setAction(SIGINT, SIG_DFL);
   setAction(SIGUSR1, [](int) {});
   watcher_ = std::thread(&ControlC::watch, this);
}

ControlC::~ControlC() {
   done_ = true;
   pthread_kill(watcher_.native_handle(), SIGINT);
   watcher_.join();
   // The kernel gives the thread's id to another one some day.
   vorel_delInterrupted(renderer_);
   pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

// A thread and not a signal handler, since marking locks a mutex.
void ControlC::watch() {
   const sigset_t interrupt = interruptSignal();
   int signal = 0;
   sigwait(&interrupt, &signal);
   while (!done_) {
      pressed_ = true;
      vorel_setInterrupted(renderer_);
      // The flag is seen before and after a write; the signal ends one that waits for a slow
      // reader. Both are repeated: a printer that is just being built resets the flag, and a
      // signal just before a write is lost.
      tgkill(getpid(), renderer_, SIGUSR1);
      const timespec pause = {0, 20'000'000};
      sigtimedwait(&interrupt, nullptr, &pause);
   }
}
