#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>

#include "Connection.h"
#include "Fd.h"

/**
 * Serves many clients in the calling thread, and blocks on none of them. Commands run one at a
 * time, and the clients that have some waiting take turns. What fails ends a command or a client,
 * never the server.
 */
class Server {
 public:
   /** `limit` is the bound on a client's unsent bytes. Blocks SIGTERM and SIGINT. */
   explicit Server(size_t limit);
   Server(const Server&) = delete;
   Server& operator=(const Server&) = delete;

   /** Takes clients from a socket that listens. */
   void add(Fd listener);
   /** Until SIGTERM or SIGINT, and then until all clients have what is buffered for them, for at
    * most kFarewell. */
   void run();

   static constexpr std::chrono::seconds kFarewell{5};

 private:
   using Clock = std::chrono::steady_clock;
   using Id = uint64_t;  // of a client or a listener; not given again, unlike a descriptor

   struct Client {
      Client(Fd socket, size_t limit, const Print& stats)
            : connection(std::move(socket), limit, stats) {}
      Connection connection;
      uint32_t interest = 0;  // as the kernel knows it
      bool queued = false;    // in runnable_
   };

   void turn();
   int timeout() const;
   void handle(Id id, uint32_t events);
   void runNextCommand();
   void serve(Id id, const std::function<void(Connection&)>& step);
   void settle(Id id, Client& client);
   void drop(Id id);
   void accept(const Fd& listener);
   void addClient(Fd socket);
   void setAccepting(bool accepting);
   void stop();
   void printStats(vorel::Renderer& out) const;
   void control(int operation, int fd, uint32_t events, Id id) const;

   const size_t limit_;
   const Print stats_ = [this](vorel::Renderer& out) { printStats(out); };
   const Fd epoll_;
   const Fd signals_;
   Id lastId_ = 0;
   std::map<Id, Fd> listeners_;
   std::map<Id, Client> clients_;
   std::deque<Id> runnable_;  // clients with commands to run; some may have gone
   bool accepting_ = true;
   bool stopping_ = false;
   Clock::time_point resumeAt_;  // of a server that is not accepting
   Clock::time_point deadline_;  // of a server that is stopping
};
