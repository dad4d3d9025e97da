#pragma once

#include <csignal>

#include <atomic>
#include <thread>

/**
 * Control-c for a thread that renders: while an object of this class exists, SIGINT ends the output
 * of the thread that built it with vorel::SigIntException, also out of a write that blocks.
 *
 * A program has one at a time. It builds it before it starts other threads, so that they inherit
 * the blocked SIGINT, and before its printer; the thread that built it destroys it. SIGUSR1 is used
 * as well, and its do-nothing handler stays.
 */
class ControlC {
 public:
   ControlC();
   ControlC(const ControlC&) = delete;
   ControlC& operator=(const ControlC&) = delete;
   ~ControlC();

   /** Whether SIGINT came. */
   bool pressed() const { return pressed_; }

 private:
   void watch();

   const int renderer_;  // kernel thread id
   sigset_t maskBefore_;
   std::atomic<bool> pressed_{false};
   std::atomic<bool> done_{false};
   std::thread watcher_;
};
