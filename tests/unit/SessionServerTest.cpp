// Runs the example session_server and talks to it.

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "Session.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

const std::string kProgram = SESSION_SERVER;
constexpr auto kMounts = "show mounts json\n";

std::string repeated(std::string_view text, int count) {
   std::string result;
   while (count-- > 0)
      result += text;
   return result;
}

json stats(SessionClient& client) {
   return json::parse(client.ask("stats json\n").body);
}

template <class Condition>
void waitUntil(Condition condition) {
   const auto deadline = Clock::now() + 60s;  // for slow machines
   while (!condition()) {
      ASSERT_LT(Clock::now(), deadline);
      std::this_thread::sleep_for(5ms);
   }
}

/** Processor time in seconds. */
double timeUsed(pid_t pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
   std::string field;
   for (int i = 0; i < 13; ++i)
      file >> field;
   double user = 0;
   double system = 0;
   file >> user >> system;
   return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

TEST(SessionServerTest, answersInOrderOverEachKindOfSocket) {
   SessionServer server(kProgram);
   for (const bool tcp : {false, true}) {
      SessionClient client(tcp ? server.connectTcp() : server.connectUnix());
      client.send("\n\r\nshow interfaces json\r\n\nstats text\nshow mo");
      EXPECT_TRUE(json::parse(client.receive().body).contains("interfaces"));
      EXPECT_TRUE(client.receive().body.starts_with("1 clients, 1 buffers, "));
      EXPECT_TRUE(client.ask("unts\n").body.starts_with("Mounted file systems\n"));
      // What has been asked for is still answered.
      client.send(repeated(kMounts, 300) + "show");
      client.endSending();
      for (int i = 0; i < 300; ++i)
         EXPECT_TRUE(json::parse(client.receive().body).contains("mounts"));
      EXPECT_TRUE(client.ended());
   }
}

TEST(SessionServerTest, failedCommandsLeaveOnlyTheReason) {
   SessionServer server(kProgram);
   SessionClient client(server.connectUnix());
   for (const auto* line : {"show\n", "show routes\n", "show mounts xml\n", "mounts\n",
                            "show mounts json now\n", " \n"}) {
      const SessionAnswer answer = client.ask(line);
      EXPECT_FALSE(answer.ok);
      EXPECT_EQ(answer.body, "unknown command\n");
   }
   EXPECT_TRUE(client.ask("stats\n").ok);
   client.send("show interfaces" + std::string(5000, ' '));
   EXPECT_EQ(client.receive().body, "line too long\n");
}

TEST(SessionServerTest, livesWithoutFreeDescriptors) {
   // Its checks want descriptors of their own.
   if (std::string_view(TEST_SANITIZERS).find("undefined") != std::string_view::npos)
      GTEST_SKIP() << "not run: the sanitizer needs free descriptors";
   SessionServer server(kProgram, {}, 10);
   std::vector<std::unique_ptr<SessionClient>> clients;
   for (int i = 0; i < 10; ++i)
      clients.push_back(std::make_unique<SessionClient>(server.connectUnix()));
   // Half-way: the document has been opened when the list of processes cannot be read.
   const SessionAnswer answer = clients.front()->ask("show processes json\n");
   EXPECT_FALSE(answer.ok);
   EXPECT_NE(answer.body.find("Too many open files"), std::string::npos) << answer.body;
   EXPECT_EQ(answer.body.find('{'), std::string::npos) << answer.body;
   EXPECT_LT(stats(*clients.front())["clients"], 10);

   const double before = timeUsed(server.pid());
   std::this_thread::sleep_for(600ms);
   EXPECT_LT(timeUsed(server.pid()) - before, 0.05);

   clients.back()->send("stats\n");
   clients.erase(clients.begin(), clients.end() - 1);
   EXPECT_TRUE(clients.back()->receive().ok);
}

/** Processes that do nothing, so that the list of processes is long. */
class IdleProcesses {
 public:
   explicit IdleProcesses(int count) {
      while (count-- > 0) {
         pids_.push_back(fork());
         if (pids_.back() == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;)
               pause();
         }
      }
   }
   IdleProcesses(const IdleProcesses&) = delete;
   IdleProcesses& operator=(const IdleProcesses&) = delete;
   ~IdleProcesses() {
      for (const pid_t pid : pids_) {
         kill(pid, SIGKILL);
         waitpid(pid, nullptr, 0);
      }
   }

 private:
   std::vector<pid_t> pids_;
};

TEST(SessionServerTest, takesBackWhatIsCancelled) {
   const IdleProcesses processes(60);
   SessionServer server(kProgram);
   SessionClient client(server.connectUnix());
   const auto expectAborted = [&] {
      const SessionAnswer answer = client.receive();
      EXPECT_FALSE(answer.ok);
      EXPECT_EQ(answer.body, "aborted\n");
   };
   // Before its start, and, since this "cancel" lies behind what the server reads at once,
   // half-way.
   for (const size_t emptyLines : {size_t{0}, size_t{5000}}) {
      client.send("cancel\nshow processes json\n" + std::string(emptyLines, '\n') + "cancel\n");
      expectAborted();
      EXPECT_GT(json::parse(client.ask("show processes json\n").body)["processes"].size(), 60);
   }
   // So many that the answers themselves, which nobody reads, need more than one chunk.
   SessionClient other(server.connectUnix());
   client.send(repeated(kMounts, 300));
   waitUntil([&] { return stats(other)["bytes"] > 1000; });
   client.send(repeated("show mounts\ncancel\ncancel\n", 3000) + kMounts);
   for (int i = 0; i < 300; ++i)
      EXPECT_TRUE(client.receive().ok);
   for (int i = 0; i < 3000; ++i)
      expectAborted();
   EXPECT_TRUE(client.receive().ok);
}

TEST(SessionServerTest, holdsClientsThatDoNotReadToTheLimit) {
   SessionServer server(kProgram, {"--limit", "100000"});
   SessionClient slow(server.connectUnix());
   SessionClient other(server.connectTcp());
   const size_t answer = other.ask(kMounts).body.size() + 100;
   slow.send(repeated(kMounts, 1500));
   waitUntil([&] { return stats(other)["bytes"] > 100000; });
   for (int i = 0; i < 20; ++i) {
      EXPECT_LT(stats(other)["bytes"], 100000 + answer);
      EXPECT_TRUE(other.ask(kMounts).ok);
   }
   const double before = timeUsed(server.pid());
   std::this_thread::sleep_for(600ms);
   EXPECT_LT(timeUsed(server.pid()) - before, 0.05);
   for (int i = 0; i < 1500; ++i)
      EXPECT_TRUE(json::parse(slow.receive().body).contains("mounts"));
   EXPECT_TRUE(slow.ask("stats\n").ok);
}

TEST(SessionServerTest, forgetsClientsThatClose) {
   SessionServer server(kProgram, {"--limit", "100000"});
   SessionClient watcher(server.connectUnix());
   const json before = stats(watcher);
   for (const bool tcp : {false, true}) {
      std::optional<SessionClient> client(tcp ? server.connectTcp() : server.connectUnix());
      client->send(repeated(kMounts, tcp ? 10000 : 1500));
      waitUntil([&] { return stats(watcher)["bytes"] > 100000; });
      EXPECT_EQ(stats(watcher)["buffers"], 2);
      client.reset();
      waitUntil([&] { return stats(watcher) == before; });
   }
}

TEST(SessionServerTest, endsInOrder) {
   SessionServer server(kProgram);
   SessionClient reader(server.connectUnix());
   SessionClient idle(server.connectUnix());
   reader.send(repeated(kMounts, 400));
   waitUntil([&] { return stats(idle)["bytes"] > 100000; });
   server.signal(SIGTERM);
   EXPECT_TRUE(idle.ended());
   EXPECT_THROW(server.connectUnix(), std::system_error);
   EXPECT_THROW(server.connectTcp(), std::system_error);
   int answers = 0;
   for (; !reader.ended(); ++answers)
      EXPECT_TRUE(json::parse(reader.receive().body).contains("mounts"));
   EXPECT_GT(answers, 50);
   EXPECT_EQ(server.wait(), 0);
}

TEST(SessionServerTest, doesNotWaitForeverAtTheEnd) {
   SessionServer server(kProgram);
   SessionClient client(server.connectUnix());
   SessionClient watcher(server.connectUnix());
   client.send(repeated(kMounts, 400));
   waitUntil([&] { return stats(watcher)["bytes"] > 100000; });
   const auto start = Clock::now();
   server.signal(SIGINT);
   EXPECT_EQ(server.wait(), 0);
   EXPECT_LT(Clock::now() - start, 8s);
}

}  // namespace
