#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <vorel/document/Value.h>

/** An address of the Internet, of either version. */
struct Address {
   int family = AF_INET;
   std::array<unsigned char, 16> bytes{};

   bool isAny() const { return bytes == std::array<unsigned char, 16>{}; }

   /** Reads what /proc/net/route, tcp and udp show: words of 32 bits as this machine stores them.
    */
   static Address fromWords(std::string_view hex) {
      Address address{hex.size() > 8 ? AF_INET6 : AF_INET, {}};
      for (size_t i = 0; i + 8 <= hex.size() && i < 32; i += 8) {
         const auto word =
               static_cast<uint32_t>(std::stoul(std::string(hex.substr(i, 8)), nullptr, 16));
         std::memcpy(&address.bytes[i / 2], &word, sizeof word);
      }
      return address;
   }
   /** Reads what /proc/net/ipv6_route shows: bytes in their order. */
   static Address fromBytes(std::string_view hex) {
      Address address{AF_INET6, {}};
      for (size_t i = 0; i + 2 <= hex.size() && i < 32; i += 2)
         address.bytes[i / 2] =
               static_cast<unsigned char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
      return address;
   }
};

template <>
struct vorel::Value<Address> {
   static std::string data(const Address& address) {
      char text[INET6_ADDRSTRLEN];
      return inet_ntop(address.family, address.bytes.data(), text, sizeof text);
   }
};
