#include "Listen.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

void check(int result, const std::string& what) {
   if (result == -1)
      throw std::system_error(errno, std::generic_category(), what);
}

// The socket calls take every kind of address as a sockaddr.
template <class Address>
Fd listenOn(const Address& address, const std::string& name) {
   Fd socket(::socket(reinterpret_cast<const sockaddr&>(address).sa_family,
                      SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0),
             "socket");
   const int on = 1;
   if (std::is_same_v<Address, sockaddr_in>) {
      setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
      // The clients' sockets inherit it: the end of an answer is not held back.
      setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
   }
   check(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), name);
   check(listen(socket.get(), SOMAXCONN), name);
   return socket;
}

}  // namespace

Fd listenUnix(const std::string& path) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   if (path.size() >= sizeof address.sun_path)
      throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
   path.copy(address.sun_path, path.size());
   return listenOn(address, path);
}

Fd listenTcp(uint16_t port) {
   sockaddr_in address = {};
   address.sin_family = AF_INET;
   address.sin_port = htons(port);
   address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   return listenOn(address, "port " + std::to_string(port));
}

uint16_t portOf(const Fd& socket) {
   sockaddr_in address = {};
   socklen_t size = sizeof address;
   check(getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
   return ntohs(address.sin_port);
}
