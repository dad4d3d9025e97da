// session_load: many clients at once on the example session_server, which it starts. A tenth of
// them reads a few bytes at a time, a tenth stops reading for a while and a tenth vanishes in the
// middle of an answer. Every answer is checked; at the end the server has to be as small as before.

#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Session.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr size_t kLimit = 64 * 1024;  // unsent bytes per client
// What a client that stops reading asks for at least; more than the kernel and the limit take.
constexpr size_t kStalledBytes = 512 * 1024;
// By how much the server may be larger at the end than at the start: what its allocator cannot give
// back, which does not grow with the number of clients.
constexpr size_t kMemorySlack = 1024 * 1024;

void require(bool holds, const std::string& what) {
   if (!holds)
      throw std::runtime_error(what);
}

struct Request {
   const char* lines;
   const char* key;       // that the document has, if the answer is one
   const char* start;     // of the text, otherwise
   bool mayFail = false;  // with kAborted
};

constexpr const char* kAborted = "aborted\n";
constexpr Request kProcesses = {"show processes json\n", "processes", nullptr};
constexpr Request kMounts = {"show mounts json\n", "mounts", nullptr};
constexpr std::array<Request, 8> kRequests = {
      {{"show interfaces text\n", nullptr, "Network interfaces\n"},
       kMounts,
       {"show mounts text\n", nullptr, "Mounted file systems\n"},
       {"stats json\n", "bytes", nullptr},
       {"show interfaces json\n", "interfaces", nullptr},
       {"show mounts json\ncancel\n", "mounts", nullptr, true},
       {"show nothing\n", nullptr, "unknown command\n"},
       kMounts}};

struct Figures {
   size_t answers = 0;
   size_t aborted = 0;
   size_t vanished = 0;
   size_t bytes = 0;
   size_t clientsAtOnce = 0;
   Clock::duration longestWait{};
};

void checkAnswer(const SessionAnswer& answer, const Request& request, Figures& figures) {
   const std::string& body = answer.body;
   const std::string what = std::string(request.lines) + "is answered with " + body.substr(0, 200);
   ++figures.answers;
   figures.bytes += body.size();
   if (request.mayFail && !answer.ok) {
      require(body == kAborted, what);
      ++figures.aborted;
   } else if (request.key == nullptr) {
      require(body.starts_with(request.start) && body.ends_with('\n'), what);
   } else {
      const json document = json::parse(body);
      require(document.contains(request.key), what);
      if (document.contains("clients"))
         figures.clientsAtOnce = std::max(figures.clientsAtOnce, document["clients"].get<size_t>());
   }
}

enum class Kind { prompt, trickling, stalling, vanishing };

Kind kindOf(size_t index) {
   constexpr std::array<Kind, 3> kinds = {Kind::trickling, Kind::stalling, Kind::vanishing};
   return index % 10 < kinds.size() ? kinds[index % 10] : Kind::prompt;
}

/** Sends its commands and checks the answers. A prompt client has few commands under way at a time,
 * the others send all at once; one that stalls asks for the same large thing all the time. */
class Client {
 public:
   Client(Fd socket, size_t index, size_t commands)
         : kind(kindOf(index)),
           socket_(std::move(socket)),
           random_(static_cast<unsigned>(index)),
           index_(index),
           commands_(commands),
           vanishAt_(random_() % (commands_ / 2)) {}

   const Kind kind;
   int socket() const { return socket_.get(); }

   void sendCommands() {
      const size_t atOnce = kind == Kind::prompt ? 1 + random_() % 4 : commands_;
      for (; sent_ < commands_ && waiting_.size() < atOnce; ++sent_) {
         const Request& request = next();
         const std::string_view lines = request.lines;
         const ssize_t size =
               send(socket(), lines.data(), lines.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
         require(size == static_cast<ssize_t>(lines.size()), "a command cannot be sent");
         waiting_.push_back({&request, Clock::now()});
      }
   }

   /** Reads once; whether the client is done. */
   bool receive(Figures& figures) {
      const bool slow = kind == Kind::trickling || kind == Kind::vanishing;
      std::array<char, 65536> piece;
      const ssize_t size =
            recv(socket(), piece.data(), slow ? 1 + random_() % 100 : piece.size(), MSG_DONTWAIT);
      require(size > 0, size == 0 ? "the server has ended a session" : std::strerror(errno));
      received_.append(piece.data(), static_cast<size_t>(size));
      while (const std::optional<SessionAnswer> answer = takeAnswer(received_)) {
         const Waiting done = waiting_.front();
         waiting_.pop_front();
         checkAnswer(*answer, *done.request, figures);
         if (kind == Kind::prompt)
            figures.longestWait = std::max(figures.longestWait, Clock::now() - done.since);
      }
      const size_t taken = sent_ - waiting_.size();
      if (kind == Kind::vanishing && taken >= vanishAt_ && !received_.empty()) {
         ++figures.vanished;
         return true;
      }
      sendCommands();
      return waiting_.empty();
   }

 private:
   struct Waiting {
      const Request* request;
      Clock::time_point since;
   };

   const Request& next() const {
      if (kind == Kind::stalling)
         return kMounts;
      // The list of processes can be long work for the server: only a tenth asks, and once.
      if (sent_ == 0 && index_ % 10 == 9)
         return kProcesses;
      return kRequests[(index_ + sent_) % kRequests.size()];
   }

   Fd socket_;
   std::minstd_rand random_;
   const size_t index_;
   const size_t commands_;
   const size_t vanishAt_;  // answers taken
   size_t sent_ = 0;
   std::deque<Waiting> waiting_;
   std::string received_;
};

/** The server's memory in bytes: what /proc/PID/status calls `name`. */
size_t memory(const SessionServer& server, const std::string& name) {
   std::ifstream file("/proc/" + std::to_string(server.pid()) + "/status");
   std::string field;
   size_t kib = 0;
   while (file >> field && field != name + ":") {
   }
   file >> kib;
   require(kib != 0, "no figure for " + name);
   return kib * 1024;
}

struct Stats {
   size_t buffers;  // without that of the client who asks
   size_t bytes;
};

Stats askStats(const SessionServer& server) {
   SessionClient client(server.connectUnix());
   const json stats = json::parse(client.ask("stats json\n").body);
   return {stats["buffers"].get<size_t>() - 1, stats["bytes"].get<size_t>()};
}

/** Asks until it holds, and no longer than until `deadline`. */
template <class Condition>
bool comesTrue(Clock::time_point deadline, Condition condition) {
   while (!condition()) {
      if (Clock::now() >= deadline)
         return false;
      std::this_thread::sleep_for(10ms);
   }
   return true;
}

using Clients = std::vector<std::unique_ptr<Client>>;

/** Lets the clients of these kinds have their answers, until `deadline`. */
void serve(Clients& clients, const std::set<Kind>& kinds, Clock::time_point deadline,
           Figures& figures) {
   const Fd epoll(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
   size_t left = 0;
   for (std::unique_ptr<Client>& client : clients) {
      if (client == nullptr || !kinds.contains(client->kind))
         continue;
      epoll_event event = {};
      event.events = EPOLLIN;
      event.data.ptr = &client;
      require(epoll_ctl(epoll.get(), EPOLL_CTL_ADD, client->socket(), &event) == 0, "epoll_ctl");
      ++left;
   }
   while (left > 0) {
      require(Clock::now() < deadline, std::to_string(left) + " clients wait too long");
      std::array<epoll_event, 64> events;
      const int count = epoll_wait(epoll.get(), events.data(), events.size(), 100);
      for (auto event = events.begin(); event < events.begin() + count; ++event) {
         auto& client = *static_cast<std::unique_ptr<Client>*>(event->data.ptr);
         if (client->receive(figures)) {
            client.reset();
            --left;
         }
      }
   }
}

/** Has one client ask for everything, so that what the first one brings into memory is there; the
 * size of the answer to kMounts. */
size_t warmUp(const SessionServer& server, Figures& figures) {
   SessionClient client(server.connectUnix());
   checkAnswer(client.ask(kProcesses.lines), kProcesses, figures);
   for (const Request& request : kRequests)
      checkAnswer(client.ask(request.lines), request, figures);
   return client.ask(kMounts.lines).body.size();
}

void print(const Figures& figures, size_t unsent, size_t memoryAtStart,
           const SessionServer& server) {
   const auto mib = [](size_t bytes) { return static_cast<double>(bytes) / (1024 * 1024); };
   std::printf("clients       %zu at once; %zu vanished in the middle of an answer\n",
               figures.clientsAtOnce, figures.vanished);
   std::printf("answers       %zu, %zu of them aborted commands\n", figures.answers,
               figures.aborted);
   std::printf("bytes         %zu; %zu buffered for clients that did not read\n", figures.bytes,
               unsent);
   std::printf("longest wait  %.3f s, of clients that read at once\n",
               std::chrono::duration<double>(figures.longestWait).count());
   std::printf("memory        %.1f MiB at the start, %.1f at the peak, %.1f at the end\n",
               mib(memoryAtStart), mib(memory(server, "VmHWM")), mib(memory(server, "VmRSS")));
}

void run(const std::string& program, size_t count, std::chrono::seconds time, bool checkMemory) {
   const auto deadline = Clock::now() + time;
   SessionServer server(program, {"--limit", std::to_string(kLimit)});
   Figures figures;
   const size_t mountsSize = warmUp(server, figures);
   require(comesTrue(deadline, [&] { return askStats(server).buffers == 0; }),
           "the first buffer stays");
   std::this_thread::sleep_for(100ms);
   const size_t memoryAtStart = memory(server, "VmRSS");

   Clients clients;
   for (size_t index = 0; index < count; ++index) {
      const Kind kind = kindOf(index);
      const size_t commands = kind == Kind::prompt     ? 15
                              : kind == Kind::stalling ? 1 + kStalledBytes / mountsSize
                                                       : 60;
      clients.push_back(std::make_unique<Client>(server.connectUnix(), index, commands));
   }
   require(comesTrue(deadline, [&] { return askStats(server).buffers == count; }),
           "a buffer is missing");
   for (const std::unique_ptr<Client>& client : clients)
      client->sendCommands();
   serve(clients, {Kind::prompt, Kind::trickling, Kind::vanishing}, deadline, figures);

   const size_t stalling = count / 10;
   const bool limitReached =
         comesTrue(deadline, [&] { return askStats(server).bytes > stalling * kLimit; });
   std::this_thread::sleep_for(100ms);
   const size_t unsent = askStats(server).bytes;
   serve(clients, {Kind::stalling}, deadline, figures);

   const bool buffersGone = comesTrue(deadline, [&] { return askStats(server).buffers == 0; });
   const bool memoryBack = !checkMemory || comesTrue(deadline, [&] {
      return memory(server, "VmRSS") <= memoryAtStart + kMemorySlack;
   });
   print(figures, unsent, memoryAtStart, server);
   require(figures.clientsAtOnce >= count, "the clients were not all there at once");
   require(figures.vanished == count / 10, "a client did not vanish in the middle of an answer");
   require(limitReached, "the clients that do not read are held to less than the limit");
   require(unsent < stalling * (kLimit + mountsSize + 100) + 100, "the limit is not kept");
   require(buffersGone, "buffers are left at the end");
   require(memoryBack, "more than " + std::to_string(kMemorySlack) + " bytes of memory stay");
   server.signal(SIGTERM);
   require(server.wait() == 0, "the server does not end in order");
}

}  // namespace

int main(int argc, char** argv) {
   if (argc != 5) {
      std::fputs("usage: session_load SERVER CLIENTS SECONDS check-memory|ignore-memory\n", stderr);
      return 2;
   }
   rlimit files = {};
   getrlimit(RLIMIT_NOFILE, &files);
   files.rlim_cur = files.rlim_max;
   setrlimit(RLIMIT_NOFILE, &files);
   try {
      run(argv[1], std::stoul(argv[2]), std::chrono::seconds(std::stoul(argv[3])),
          argv[4] == std::string_view("check-memory"));
      return 0;
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "session_load: FAILED: %s\n", failure.what());
      return 1;
   }
}
