#include "Session.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace {

int check(int result, const char* call) {
   if (result == -1)
      throw std::system_error(errno, std::generic_category(), call);
   return result;
}

template <class Address>
Fd connectTo(const Address& address) {
   const auto& generic = reinterpret_cast<const sockaddr&>(address);
   Fd socket(::socket(generic.sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
   check(connect(socket.get(), &generic, sizeof address), "connect");
   return socket;
}

}  // namespace

std::optional<SessionAnswer> takeAnswer(std::string& received) {
   constexpr size_t kHeaderSize = 14;
   if (received.size() < kHeaderSize)
      return std::nullopt;
   const std::string_view header = std::string_view(received).substr(0, kHeaderSize);
   const bool ok = header.starts_with("ok ");
   size_t length = 0;
   const auto [end, error] = std::from_chars(&header[3], &header[kHeaderSize - 1], length);
   if ((!ok && !header.starts_with("no ")) || error != std::errc() || end != &header.back() ||
       *end != '\n')
      throw std::runtime_error("no header: " + received.substr(0, 100));
   if (received.size() < kHeaderSize + length)
      return std::nullopt;
   SessionAnswer answer{ok, received.substr(kHeaderSize, length)};
   received.erase(0, kHeaderSize + length);
   return answer;
}

SessionServer::SessionServer(const std::string& program, const std::vector<std::string>& options,
                             int maxFiles) {
   std::string folder = std::filesystem::temp_directory_path() / "session-XXXXXX";
   if (mkdtemp(folder.data()) == nullptr)
      throw std::system_error(errno, std::generic_category(), "mkdtemp");
   folder_ = folder;

   std::string script = "exec \"$0\" \"$@\"";
   if (maxFiles != 0)
      script = "ulimit -n " + std::to_string(maxFiles) + "; " + script;
   const std::string path = folder_ / "socket";
   std::vector<const char*> arguments = {"sh",     "-c",         script.c_str(), program.c_str(),
                                         "--unix", path.c_str(), "--tcp",        "0"};
   for (const std::string& option : options)
      arguments.push_back(option.c_str());
   arguments.push_back(nullptr);

   std::array<int, 2> ends{};
   check(pipe2(ends.data(), O_CLOEXEC), "pipe2");
   const Fd output(ends[0], "pipe2");
   std::optional<Fd> input(std::in_place, ends[1], "pipe2");
   pid_ = check(fork(), "fork");
   if (pid_ == 0) {
      dup2(input->get(), STDOUT_FILENO);
      execv("/bin/sh", const_cast<char**>(arguments.data()));
      _exit(127);
   }
   input.reset();

   // It tells where it listens, the port last, and is ready then.
   std::string told;
   std::array<char, 512> piece{};
   const std::string_view last = "127.0.0.1:";
   while (!told.ends_with('\n') || told.find(last) == std::string::npos) {
      const ssize_t size = read(output.get(), piece.data(), piece.size());
      if (size <= 0)
         throw std::runtime_error("the server does not start: " + told);
      told.append(piece.data(), static_cast<size_t>(size));
   }
   port_ = static_cast<uint16_t>(std::stoul(told.substr(told.find(last) + last.size())));
}

SessionServer::~SessionServer() {
   if (pid_ != -1) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
   }
   std::error_code ignored;
   std::filesystem::remove_all(folder_, ignored);
}

Fd SessionServer::connectUnix() const {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   const std::string path = folder_ / "socket";
   path.copy(address.sun_path, sizeof address.sun_path - 1);
   return connectTo(address);
}

Fd SessionServer::connectTcp() const {
   sockaddr_in address = {};
   address.sin_family = AF_INET;
   address.sin_port = htons(port_);
   address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   return connectTo(address);
}

void SessionServer::signal(int number) const {
   check(kill(pid_, number), "kill");
}

int SessionServer::wait() {
   int status = 0;
   check(waitpid(std::exchange(pid_, -1), &status, 0), "waitpid");
   return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

SessionClient::SessionClient(Fd socket) : socket_(std::move(socket)) {
   const timeval patience = {10, 0};
   check(setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience),
         "setsockopt");
   check(setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience),
         "setsockopt");
}

void SessionClient::send(std::string_view text) const {
   while (!text.empty()) {
      const ssize_t size = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
      if (size == -1)
         throw std::system_error(errno, std::generic_category(), "send");
      text.remove_prefix(static_cast<size_t>(size));
   }
}

size_t SessionClient::receiveSome() {
   std::array<char, 65536> piece;
   const ssize_t size = recv(socket_.get(), piece.data(), piece.size(), 0);
   if (size == -1)
      throw std::system_error(errno, std::generic_category(), "recv");
   received_.append(piece.data(), static_cast<size_t>(size));
   return static_cast<size_t>(size);
}

SessionAnswer SessionClient::receive() {
   for (;;) {
      if (std::optional<SessionAnswer> answer = takeAnswer(received_))
         return *std::move(answer);
      if (receiveSome() == 0)
         throw std::runtime_error("the session has ended behind: " + received_.substr(0, 100));
   }
}

bool SessionClient::ended() {
   return received_.empty() && receiveSome() == 0;
}

void SessionClient::endSending() const {
   check(shutdown(socket_.get(), SHUT_WR), "shutdown");
}
