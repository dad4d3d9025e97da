#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Answer.h"
#include "Fd.h"
#include "LineReader.h"

/**
 * One client: the lines that it has sent and the answers that it has not taken yet. No function
 * blocks. Those that throw leave a client that can only be dropped.
 */
class Connection {
 public:
   /** While more than `limit` bytes are unsent, no command is started. `stats` is what the command
    * of that name prints; it outlives the connection. */
   Connection(Fd socket, size_t limit, const Print& stats);
   Connection(const Connection&) = delete;
   Connection& operator=(const Connection&) = delete;
   ~Connection();

   int socket() const { return socket_.get(); }
   size_t unsentBytes() const;
   /** The epoll events to wait for. */
   uint32_t interest() const;
   /** Whether a command can be started now. */
   bool canRun() const;
   /** Whether all has been said, or the client has gone. */
   bool finished() const;

   void receive();
   /** Runs the first command that waits. A command that fails, or that is cancelled before it has
    * ended, leaves nothing but a short answer that says why. */
   void runCommand();
   void send();
   /** Forgets what the client has sent and reads no more; what is buffered can still be sent. */
   void stopReading();

 private:
   class Output;
   class Running;

   bool overLimit() const;
   void markIfCancelled() const;

   const Fd socket_;
   const size_t limit_;
   const Print& stats_;
   LineReader input_;
   bool inputEnded_ = false;
   bool broken_ = false;
   bool running_ = false;  // a command
   const std::unique_ptr<Output> output_;
};
