#include "Server.h"

#include <malloc.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <array>
#include <cinttypes>
#include <csignal>
#include <cstdio>

namespace {

constexpr uint64_t kSignals = 0;
constexpr std::chrono::milliseconds kPause{200};

/** Blocks the signals that end the server; they are read from the descriptor. */
int openSignals() {
   sigset_t signals;
   sigemptyset(&signals);
   for (const int number : {SIGTERM, SIGINT}) {
      sigaddset(&signals, number);
      // A shell starts background jobs with SIGINT ignored, and it would not arrive.
      std::signal(number, SIG_DFL);
   }
   sigprocmask(SIG_BLOCK, &signals, nullptr);
   return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

Server::Server(size_t limit)
      : limit_(limit),
        epoll_(epoll_create1(EPOLL_CLOEXEC), "epoll_create1"),
        signals_(openSignals(), "signalfd") {
   control(EPOLL_CTL_ADD, signals_.get(), EPOLLIN, kSignals);
}

void Server::control(int operation, int fd, uint32_t events, Id id) const {
   epoll_event event = {};
   event.events = events;
   event.data.u64 = id;
   if (epoll_ctl(epoll_.get(), operation, fd, &event) == -1)
      throw std::system_error(errno, std::generic_category(), "epoll_ctl");
}

void Server::add(Fd listener) {
   const auto [place, added] = listeners_.emplace(++lastId_, std::move(listener));
   control(EPOLL_CTL_ADD, place->second.get(), EPOLLIN, place->first);
}

void Server::run() {
   while (!stopping_ || (!clients_.empty() && Clock::now() < deadline_))
      turn();
}

void Server::turn() {
   std::array<epoll_event, 64> events;
   const int count = epoll_wait(epoll_.get(), events.data(), events.size(), timeout());
   if (count == -1 && errno != EINTR)
      throw std::system_error(errno, std::generic_category(), "epoll_wait");
   for (auto event = events.begin(); event < events.begin() + count; ++event)
      handle(event->data.u64, event->events);
   runNextCommand();
   if (!accepting_ && Clock::now() >= resumeAt_)
      setAccepting(true);
}

int Server::timeout() const {
   if (!runnable_.empty())
      return 0;
   return accepting_ && !stopping_ ? -1 : static_cast<int>(kPause.count());
}

void Server::handle(Id id, uint32_t events) {
   if (id == kSignals) {
      stop();
   } else if (const auto listener = listeners_.find(id); listener != listeners_.end()) {
      accept(listener->second);
   } else if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
      drop(id);
   } else {
      serve(id, [&](Connection& connection) {
         if ((events & EPOLLIN) != 0)
            connection.receive();
         connection.send();
      });
   }
}

// One command in each turn: what a client asks for keeps the others waiting no longer than that.
void Server::runNextCommand() {
   if (runnable_.empty())
      return;
   const Id id = runnable_.front();
   runnable_.pop_front();
   serve(id, [&](Connection& connection) {
      clients_.at(id).queued = false;
      connection.runCommand();
      connection.send();
   });
}

/** Does something for a client, if it is still there, and then what follows from it. */
void Server::serve(Id id, const std::function<void(Connection&)>& step) {
   const auto client = clients_.find(id);
   if (client == clients_.end())
      return;
   try {
      step(client->second.connection);
      settle(id, client->second);
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "session_server: a client is dropped: %s\n", failure.what());
      drop(id);
   }
}

void Server::settle(Id id, Client& client) {
   if (client.connection.finished()) {
      drop(id);
      return;
   }
   const uint32_t interest = client.connection.interest();
   if (interest != client.interest) {
      control(EPOLL_CTL_MOD, client.connection.socket(), interest, id);
      client.interest = interest;
   }
   if (client.connection.canRun() && !client.queued) {
      runnable_.push_back(id);
      client.queued = true;
   }
}

void Server::drop(Id id) {
   clients_.erase(id);
   if (clients_.empty())
      malloc_trim(0);  // what a crowd has needed need not be kept for the next client
}

void Server::accept(const Fd& listener) {
   for (;;) {
      const int socket = accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (socket != -1) {
         addClient(Fd(socket, "accept4"));
         continue;
      }
      // For want of descriptors or memory the client stays in the queue, and would be reported
      // again at once.
      if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
         setAccepting(false);
      return;
   }
}

void Server::addClient(Fd socket) {
   const Id id = ++lastId_;
   try {
      const auto [place, added] = clients_.try_emplace(id, std::move(socket), limit_, stats_);
      control(EPOLL_CTL_ADD, place->second.connection.socket(), 0, id);
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "session_server: a client is refused: %s\n", failure.what());
      drop(id);
   }
   serve(id, [](Connection&) {});
}

void Server::setAccepting(bool accepting) {
   accepting_ = accepting;
   resumeAt_ = Clock::now() + kPause;
   for (const auto& [id, listener] : listeners_)
      control(EPOLL_CTL_MOD, listener.get(), accepting ? uint32_t{EPOLLIN} : 0, id);
}

void Server::stop() {
   stopping_ = true;
   deadline_ = Clock::now() + kFarewell;
   control(EPOLL_CTL_DEL, signals_.get(), 0, kSignals);
   listeners_.clear();
   runnable_.clear();
   for (auto client = clients_.begin(); client != clients_.end();) {
      const Id id = client->first;
      ++client;  // first, since serving can drop the client
      serve(id, [](Connection& connection) { connection.stopReading(); });
   }
}

void Server::printStats(vorel::Renderer& out) const {
   const Orv::AllocTrackTypeInfo& tracked = *Orv::PtrInterface::orvAllocTrackTypeInfo_;
   const uint64_t clients = clients_.size();
   const uint64_t buffers = tracked.allocations - tracked.deallocations;
   uint64_t bytes = 0;
   for (const auto& [id, client] : clients_)
      bytes += client.connection.unsentBytes();
   out.start();
   if (out.format == vorel::outputFormatText) {
      out.addAttributes("%" PRIu64 " clients, %" PRIu64 " buffers, %" PRIu64 " unsent bytes\n", 3,
                        clients, buffers, bytes);
   } else {
      const vorel::Attr64Info clientsInfo("clients", clients);
      const vorel::Attr64Info buffersInfo("buffers", buffers);
      const vorel::Attr64Info bytesInfo("bytes", bytes);
      out.addAttributes("", 3, &clientsInfo, &buffersInfo, &bytesInfo);
   }
   out.end();
}
