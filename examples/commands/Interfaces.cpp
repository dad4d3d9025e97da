#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Commands.h"

using namespace vorel::literals;

namespace {

namespace fs = std::filesystem;

struct Interface {
   std::string name;
   uint32_t mtu;
   bool up;
   std::vector<const char*> flags;
   std::optional<int32_t> speed;  // in Mbit/s
   std::string address;
   uint64_t rxBytes, txBytes, rxPackets, txPackets;
};

// By the bit of an interface's flags.
constexpr const char* kFlagNames[] = {
      "up",          "broadcast", "debug",     "loopback",    "point-to-point",
      "no-trailers", "running",   "no-arp",    "promiscuous", "all-multicast",
      "master",      "slave",     "multicast", "port-select", "auto-media",
      "dynamic",     "lower-up",  "dormant",   "echo"};

/** The number, decimal or hexadecimal with "0x", in a file; none when it cannot be read. */
template <class Number>
std::optional<Number> readNumber(const fs::path& path) {
   std::ifstream file(path);
   Number number = 0;
   if (file >> std::setbase(0) >> number)
      return number;
   return std::nullopt;
}

std::vector<const char*> namesOf(uint32_t flags) {
   std::vector<const char*> names;
   for (const char* const name : kFlagNames) {
      if ((flags & 1) != 0)
         names.push_back(name);
      flags >>= 1;
   }
   return names;
}

/** Nothing when the interface has gone since it was listed. */
std::optional<Interface> readInterface(const fs::path& directory) {
   const auto mtu = readNumber<uint32_t>(directory / "mtu");
   const auto flags = readNumber<uint32_t>(directory / "flags");
   if (!mtu || !flags)
      return std::nullopt;
   const auto counter = [&directory](const char* file) {
      return readNumber<uint64_t>(directory / "statistics" / file).value_or(0);
   };
   Interface found{directory.filename(),
                   *mtu,
                   (*flags & 1) != 0,
                   namesOf(*flags),
                   {},
                   {},
                   counter("rx_bytes"),
                   counter("tx_bytes"),
                   counter("rx_packets"),
                   counter("tx_packets")};
   found.speed = readNumber<int32_t>(directory / "speed");
   if (found.speed < 0)  // the kernel does not know it
      found.speed.reset();
   std::ifstream(directory / "address") >> found.address;
   return found;
}

constexpr auto kRow =
      "{name=Name:<15} {up=State:<5} {mtu=MTU:>6} {speed=Mbit/s:>7} {address=Address:<17} "
      "{counters.rxBytes=Rx bytes:>14} {counters.txBytes=Tx bytes:>14} "
      "{counters.rxPackets=Rx packets:>14} {counters.txPackets=Tx packets:>14}  {flags=Flags}\n"_f;

}  // namespace

void showInterfaces(vorel::Object doc) {
   std::set<fs::path> directories;
   for (const auto& entry : fs::directory_iterator("/sys/class/net"))
      directories.insert(entry.path());

   doc.text("Network interfaces\n\n");
   const auto list = doc.list("interfaces");
   list.heading(kRow);
   for (const fs::path& directory : directories)
      if (const auto i = readInterface(directory))
         list.row(kRow, i->name, vorel::as(i->up, i->up ? "up" : "down"), i->mtu, i->speed,
                  i->address, i->rxBytes, i->txBytes, i->rxPackets, i->txPackets, i->flags);
}
