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

struct Route {
   Address destination;
   int prefix;
   std::optional<Address> gateway;
   std::string interface;
   uint32_t metric;
   uint64_t uses;
};

std::optional<Address> unlessAny(const Address& address) {
   return address.isAny() ? std::nullopt : std::optional(address);
}

/** Calls `add` with the words of each line of a file; a file that is not there has none. */
template <class Add>
void readLines(const char* path, Add add) {
   std::ifstream file(path);
   for (std::string line; std::getline(file, line);) {
      std::istringstream words(line);
      add(std::vector<std::string>(std::istream_iterator<std::string>(words), {}));
   }
}

uint32_t hexadecimal(const std::string& word) {
   return static_cast<uint32_t>(std::stoul(word, nullptr, 16));
}

std::vector<Route> readRoutes() {
   std::vector<Route> routes;
   readLines("/proc/net/route", [&routes](const std::vector<std::string>& words) {
      if (words.size() >= 8 && words[0] != "Iface")
         routes.push_back({Address::fromWords(words[1]), __builtin_popcount(hexadecimal(words[7])),
                           unlessAny(Address::fromWords(words[2])), words[0],
                           static_cast<uint32_t>(std::stoul(words[6])), std::stoull(words[5])});
   });
   readLines("/proc/net/ipv6_route", [&routes](const std::vector<std::string>& words) {
      if (words.size() >= 10)
         routes.push_back({Address::fromBytes(words[0]), static_cast<int>(hexadecimal(words[1])),
                           unlessAny(Address::fromBytes(words[4])), words[9], hexadecimal(words[5]),
                           hexadecimal(words[7])});
   });
   return routes;
}

constexpr auto kRow =
      "{destination.address=Destination:>39}/{destination.prefix=:<3} {gateway=Gateway:<25} "
      "{interface=Interface:<10} {metric=Metric:>10} {uses=Uses:>8}\n"_f;

}  // namespace

void showRoutes(vorel::Object doc) {
   doc.text("Routes\n\n");
   const auto list = doc.list("routes");
   list.heading(kRow);
   for (const Route& r : readRoutes())
      list.row(kRow, r.destination, r.prefix, r.gateway, r.interface, r.metric, r.uses);
}
