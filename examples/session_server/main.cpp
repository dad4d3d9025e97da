// session_server: one thread that answers many clients, on a Unix-domain socket and on a TCP port
// of this machine, and that waits for none of them.
//
// A client sends lines, and gets an answer for each, in their order:
//
//    show interfaces|processes|mounts [text|json]
//    stats [text|json]       clients, buffers alive, unsent bytes (this answer's header too)
//    cancel                  aborts the command before it, if that has not ended; has no answer
//
// An answer begins with a header of 14 bytes: "ok" or "no", a space, the length of the body as ten
// decimal digits, a newline. The body of a "no" is one line that says why. A client that leaves
// more than the limit unread gets no further command started until it has read on.

#include <sys/resource.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include "Listen.h"
#include "Server.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct Options {
   std::string unixPath;
   std::optional<uint16_t> port;
   size_t limit = size_t{64} << 20;
};

template <class Number>
bool parseNumber(const char* text, Number& number) {
   const char* const end = text + std::strlen(text);
   const auto result = std::from_chars(text, end, number);
   return result.ec == std::errc() && result.ptr == end;
}

std::optional<Options> parse(int argc, char** argv) {
   Options options;
   for (int i = 1; i + 1 < argc; i += 2) {
      const std::string name = argv[i];
      const char* const value = argv[i + 1];
      bool good = false;
      if (name == "--unix") {
         options.unixPath = value;
         good = !options.unixPath.empty();
      } else if (name == "--tcp") {
         good = parseNumber(value, options.port.emplace());
      } else if (name == "--limit") {
         good = parseNumber(value, options.limit);
      }
      if (!good)
         return std::nullopt;
   }
   if (argc % 2 == 0 || (options.unixPath.empty() && !options.port))
      return std::nullopt;
   return options;
}

void run(const Options& options) {
   Server server(options.limit);
   if (!options.unixPath.empty()) {
      server.add(listenUnix(options.unixPath));
      std::printf("listening on %s\n", options.unixPath.c_str());
   }
   if (options.port) {
      Fd listener = listenTcp(*options.port);
      std::printf("listening on 127.0.0.1:%u\n", portOf(listener));
      server.add(std::move(listener));
   }
   std::fflush(stdout);
   server.run();
   if (!options.unixPath.empty())
      unlink(options.unixPath.c_str());
}

}  // namespace

int main(int argc, char** argv) {
   // A client that has gone makes a write fail, and does not end the server.
   std::signal(SIGPIPE, SIG_IGN);

   // A descriptor for each client.
   rlimit files = {};
   getrlimit(RLIMIT_NOFILE, &files);
   files.rlim_cur = files.rlim_max;
   setrlimit(RLIMIT_NOFILE, &files);

   const std::optional<Options> options = parse(argc, argv);
   if (!options) {
      std::fputs("usage: session_server [--unix PATH] [--tcp PORT] [--limit BYTES]\n", stderr);
      return kUsage;
   }
   try {
      run(*options);
      return 0;
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "session_server: %s\n", failure.what());
      return kFailed;
   }
}
