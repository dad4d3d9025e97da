#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "session_server/Fd.h"

// Both ends of a session, for tests: the server as a child process, and clients. What fails throws.

struct SessionAnswer {
   bool ok;
   std::string body;
};

/** Takes an answer off the front of `received`, if a whole one is there. */
std::optional<SessionAnswer> takeAnswer(std::string& received);

/** A server on a Unix-domain socket in a folder of its own and on a TCP port. */
class SessionServer {
 public:
   /** `maxFiles` is how many descriptors it may have, 0 for what this process may. */
   explicit SessionServer(const std::string& program, const std::vector<std::string>& options = {},
                          int maxFiles = 0);
   SessionServer(const SessionServer&) = delete;
   SessionServer& operator=(const SessionServer&) = delete;
   ~SessionServer();

   pid_t pid() const { return pid_; }
   Fd connectUnix() const;
   Fd connectTcp() const;
   void signal(int number) const;
   /** Waits for its end; the exit status, or -1 if a signal ended it. */
   int wait();

 private:
   std::filesystem::path folder_;
   pid_t pid_ = -1;
   uint16_t port_ = 0;
};

/** A client that waits for what it wants, for at most ten seconds. */
class SessionClient {
 public:
   explicit SessionClient(Fd socket);

   void send(std::string_view text) const;
   SessionAnswer receive();
   SessionAnswer ask(std::string_view text) {
      send(text);
      return receive();
   }
   /** Whether the server has ended the session, with nothing left to receive. */
   bool ended();
   void endSending() const;

 private:
   size_t receiveSome();

   Fd socket_;
   std::string received_;
};
