#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Address.h"
#include "Commands.h"

using namespace vorel::literals;

namespace {

/** As the kernel numbers them. */
enum class State : uint8_t {};

struct Socket {
   const char* protocol;
   Address local;
   uint16_t localPort;
   std::optional<Address> remote;
   std::optional<uint16_t> remotePort;
   std::optional<State> state;
   uint32_t sendQueue, receiveQueue;
   uint32_t user;
};

uint32_t hexadecimal(const std::string& word) {
   return static_cast<uint32_t>(std::stoul(word, nullptr, 16));
}

void readSockets(std::vector<Socket>& sockets, const char* protocol) {
   std::ifstream file(std::string("/proc/net/") + protocol);
   std::string line;
   std::getline(file, line);  // the heading
   while (std::getline(file, line)) {
      std::istringstream words(line);
      std::string number, local, remote, state, queues, timer, retransmissions;
      Socket socket{protocol, {}, 0, {}, {}, {}, 0, 0, 0};
      words >> number >> local >> remote >> state >> queues >> timer >> retransmissions >>
            socket.user;
      const size_t colon = local.find(':');
      if (!words || colon == std::string::npos)
         continue;
      socket.local = Address::fromWords(local.substr(0, colon));
      socket.localPort = static_cast<uint16_t>(hexadecimal(local.substr(colon + 1)));
      const auto port = static_cast<uint16_t>(hexadecimal(remote.substr(colon + 1)));
      if (const Address address = Address::fromWords(remote.substr(0, colon)); port != 0) {
         socket.remote = address;
         socket.remotePort = port;
      }
      if (protocol[0] == 't')
         socket.state = static_cast<State>(hexadecimal(state));
      socket.sendQueue = hexadecimal(queues.substr(0, 8));
      socket.receiveQueue = hexadecimal(queues.substr(9));
      sockets.push_back(socket);
   }
}

constexpr auto kRow =
      "{protocol=Protocol:<8} {local.address=Local address:>25} {local.port=Port:<5} "
      "{remote.address=Remote address:>25} {remote.port=Port:<5} {state=State:<12} "
      "{queues.send=Send:>8} {queues.receive=Receive:>8} {user=User:>6}\n"_f;

}  // namespace

template <>
struct vorel::Value<State> {
   static const char* data(State state) {
      constexpr const char* kNames[] = {"unknown",    "established", "syn-sent",  "syn-received",
                                        "fin-wait-1", "fin-wait-2",  "time-wait", "closed",
                                        "close-wait", "last-ack",    "listening", "closing"};
      const auto number = static_cast<size_t>(state);
      return kNames[number < std::size(kNames) ? number : 0];
   }
};

void showSockets(vorel::Object doc) {
   std::vector<Socket> sockets;
   for (const char* const protocol : {"tcp", "tcp6", "udp"})
      readSockets(sockets, protocol);

   doc.text("Sockets\n\n");
   const auto list = doc.list("sockets");
   list.heading(kRow);
   for (const Socket& s : sockets)
      list.row(kRow, s.protocol, s.local, s.localPort, s.remote, s.remotePort, s.state, s.sendQueue,
               s.receiveQueue, s.user);
}
