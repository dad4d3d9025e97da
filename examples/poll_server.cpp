// poll_server: one thread that answers many clients on a Unix-domain socket, and blocks on none.
//
//    poll_server /tmp/answers &
//    echo "show mounts json" | nc -NU /tmp/answers
//
// A client sends lines and gets an answer for each, in their order; "help" tells what it can say.
// An answer begins with 14 bytes: "ok" or "no", a space, the length of what follows as ten digits,
// and a newline. What follows a "no" is one line that says why.

#include <malloc.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <list>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/document/Document.h>
#include <vorel/plain/PlainC.h>
#include "commands/Commands.h"
using namespace vorel::literals;

namespace {

constexpr size_t kHeaderSize = 14;
constexpr size_t kMaxLine = 1024;
constexpr size_t kMaxUnsent = 65536;  // with more to read, a client gets no command run
constexpr int kPause = 100;           // milliseconds

/** Whether a system call succeeded; false when it can be tried again. Throws all other errors. */
bool succeeded(ssize_t result, const std::string& what) {
   if (result == -1 && errno != EAGAIN && errno != EINTR)
      throw std::system_error(errno, std::generic_category(), what);
   return result != -1;
}

/** Owns a descriptor, the result of the system call named `call`, and closes it. */
class Fd {
 public:
   Fd(int fd, const char* call) : fd_(fd) { succeeded(fd, call); }
   Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
   ~Fd() { close(fd_); }  // of -1 does nothing
   int get() const { return fd_; }

 private:
   int fd_;
};

void showHelp(vorel::Object doc) {
   doc.text("help\nshow {} [text|json]\n"_f, commandNames());
}

/** The lines that a client has sent, and the answers that it has not taken yet. Nothing blocks. */
class Client {
 public:
   explicit Client(Fd socket) : socket_(std::move(socket)) {}

   pollfd whatToPoll() const {
      const bool wantsInput = !inputEnded_ && !isFull() && hasRoom();
      const int events = (wantsInput ? POLLIN : 0) | (isSent() ? 0 : POLLOUT);
      return {socket_.get(), static_cast<short>(events), 0};
   }
   /** Whether a command waits and can be run. The last line may lack its newline. */
   bool canRun() const {
      const bool isWhole = inputEnded_ || isFull() || input_.find('\n') != std::string::npos;
      return isWhole && !input_.empty() && hasRoom();
   }
   /** Does what can be done now, but runs one command at most: others wait for theirs. Returns
    * whether there is more to come; what fails ends this client, and not the server. */
   bool serve(short events) {
      try {
         if ((events & POLLIN) != 0)
            receive();
         if (canRun())
            runCommand();
         while (!isSent() && succeeded(output_.writeSome(socket_.get()), "write")) {
         }
         return !inputEnded_ || !input_.empty() || !isSent();
      } catch (const std::exception&) {
         return false;
      }
   }
   void forgetRequests() {
      inputEnded_ = true;
      input_.clear();
   }

 private:
   bool isFull() const { return input_.size() == kMaxLine; }
   bool hasRoom() const { return output_.usedSpace() <= kMaxUnsent; }
   bool isSent() const { return output_.usedSpace() == 0; }

   void receive() {
      char piece[kMaxLine];
      const ssize_t size = recv(socket_.get(), piece, kMaxLine - input_.size(), 0);
      if (succeeded(size, "recv")) {
         inputEnded_ = size == 0;
         input_.append(piece, static_cast<size_t>(size));
      }
   }

   void runCommand() {
      const std::string line = input_.substr(0, input_.find('\n'));
      input_.erase(0, line.size() + 1);
      if (std::exchange(lineGoesOn_, line.size() == kMaxLine))
         return;  // this is the rest of a line that has its answer
      try {
         std::istringstream words(lineGoesOn_ ? "too long" : line);
         std::string verb, what, format = "text", rest;
         words >> verb >> what >> format >> rest;
         auto body = verb == "show" ? findCommand(what) : verb == "help" ? showHelp : nullptr;
         const vorel::OutputFormat_t outputFormat = stringToOutputFormat(format.c_str());
         if (body == nullptr || outputFormat == vorel::outputFormatUnknown || !rest.empty())
            throw std::invalid_argument("unknown command, try help");
         answer("ok", outputFormat, body);
      } catch (const std::exception& failure) {
         const auto body = [&](vorel::Object doc) { doc.text("{}\n"_f, failure.what()); };
         answer("no", vorel::outputFormatText, body);
      }
   }

   /** Adds an answer to the output: all of it or, when printing its body throws, nothing. */
   template <class Print>
   void answer(const char* outcome, vorel::OutputFormat_t format, Print body) {
      vorel::NonBlockingCliTxnBuffer::Transaction transaction(&output_);
      // The length is known only behind the body, so the header's place is set aside.
      const auto& header = output_.reserve(kHeaderSize);
      const size_t before = output_.usedSpace();
      vorel::Renderer renderer(format, &output_, true);
      vorel::document(renderer, body);
      char text[32];
      std::snprintf(text, sizeof text, "%s %010zu\n", outcome, output_.usedSpace() - before);
      std::copy_n(text, kHeaderSize, header.start);
      transaction.confirm();
   }

   const Fd socket_;
   std::string input_;  // at most kMaxLine bytes; what does not fit stays in the socket
   bool inputEnded_ = false;
   bool lineGoesOn_ = false;                      // one that was too long
   vorel::NonBlockingCliTxnBuffer output_{4096};  // grows by so many bytes
};

Fd openSocket() {
   return {socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket"};
}

Fd listenAt(const std::string& path) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   if (path.size() >= sizeof address.sun_path)
      throw std::length_error(path + ": too long for a socket");
   path.copy(address.sun_path, path.size());
   const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
   // A socket that refuses clients was left behind by a server that has died.
   if (std::filesystem::is_socket(path) &&
       connect(openSocket().get(), generic, sizeof address) == -1 && errno == ECONNREFUSED)
      unlink(path.c_str());
   Fd socket = openSocket();
   succeeded(bind(socket.get(), generic, sizeof address), path);
   succeeded(listen(socket.get(), SOMAXCONN), path);
   return socket;
}

/** A descriptor that has input once SIGTERM or SIGINT has come. */
Fd openSignals() {
   sigset_t signals;
   sigemptyset(&signals);
   sigaddset(&signals, SIGTERM);
   sigaddset(&signals, SIGINT);
   sigprocmask(SIG_BLOCK, &signals, nullptr);
   return {signalfd(-1, &signals, SFD_CLOEXEC), "signalfd"};
}

using Clients = std::list<Client>;

/** Waits, not longer than `timeout` ms, until there is something to do, and does it for the
 * clients. Returns what there is to do elsewhere: `polled` with the results. */
std::vector<pollfd> turn(Clients& clients, std::vector<pollfd> polled, int timeout) {
   size_t place = polled.size();
   for (const Client& client : clients) {
      polled.push_back(client.whatToPoll());
      if (client.canRun())
         timeout = 0;
   }
   succeeded(poll(polled.data(), polled.size(), timeout), "poll");
   for (auto client = clients.begin(); client != clients.end(); ++place)
      client = client->serve(polled[place].revents) ? std::next(client) : clients.erase(client);
   if (clients.empty())
      malloc_trim(0);  // what a crowd has needed is not kept
   return polled;
}

/** Returns false when descriptors are short, and clients are left waiting. */
bool acceptClients(Clients& clients, const Fd& listener) {
   for (;;) {
      const int fd = accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (fd == -1)
         return errno != EMFILE && errno != ENFILE;
      clients.emplace_back(Fd(fd, "accept4"));
   }
}

void run(const std::string& path) {
   const Fd signals = openSignals();
   const Fd listener = listenAt(path);
   Clients clients;
   for (;;) {
      const auto polled =
            turn(clients, {{signals.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}}, -1);
      if (polled[0].revents != 0)
         break;
      if (polled[1].revents != 0 && !acceptClients(clients, listener))
         turn(clients, {}, kPause);  // leaves the listener alone, which poll would report at once
   }
   // No more commands, but time to take the answers.
   unlink(path.c_str());
   for (Client& client : clients)
      client.forgetRequests();
   const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
   while (!clients.empty() && std::chrono::steady_clock::now() < deadline)
      turn(clients, {}, kPause);
}

}  // namespace

int main(int argc, char** argv) {
   std::signal(SIGPIPE, SIG_IGN);  // a write to a client that has gone fails, and no more
   try {
      if (argc != 2)
         throw std::invalid_argument("usage: poll_server SOCKET");
      run(argv[1]);
   } catch (const std::exception& failure) {
      std::fprintf(stderr, "poll_server: %s\n", failure.what());
      return 1;
   }
}
