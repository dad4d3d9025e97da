#include <cinttypes>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <optional>
#include <set>
#include <string>

#include "Commands.h"
#include "SafeText.h"

namespace {

namespace fs = std::filesystem;

struct Interface {
   std::string name;
   uint32_t mtu;
   uint32_t flags;
   std::optional<int32_t> speed;  // in Mbit/s
   std::string address;
};

// By the bit of an interface's flags.
constexpr const char* kFlagNames[] = {
      "up",          "broadcast", "debug",     "loopback",    "point-to-point",
      "no-trailers", "running",   "no-arp",    "promiscuous", "all-multicast",
      "master",      "slave",     "multicast", "port-select", "auto-media",
      "dynamic",     "lower-up",  "dormant",   "echo"};

struct Counter {
   const char* name;
   const char* file;
};
constexpr Counter kCounters[] = {{"rxBytes", "rx_bytes"},
                                 {"txBytes", "tx_bytes"},
                                 {"rxPackets", "rx_packets"},
                                 {"txPackets", "tx_packets"}};

/** The number, decimal or hexadecimal with "0x", in a file; none when it cannot be read. */
template <class Number>
std::optional<Number> readNumber(const fs::path& path) {
   std::ifstream file(path);
   Number number = 0;
   if (file >> std::setbase(0) >> number)
      return number;
   return std::nullopt;
}

/** Nothing when the interface has gone since it was listed. */
std::optional<Interface> readInterface(const fs::path& directory) {
   const auto mtu = readNumber<uint32_t>(directory / "mtu");
   const auto flags = readNumber<uint32_t>(directory / "flags");
   if (!mtu || !flags)
      return std::nullopt;
   Interface interface {
      directory.filename(), *mtu, *flags, {}, {}
   };
   interface.speed = readNumber<int32_t>(directory / "speed");
   if (interface.speed < 0)  // the kernel does not know it
      interface.speed.reset();
   std::ifstream(directory / "address") >> interface.address;
   return interface;
}

// In text the arguments of addAttributes are values for printf, in JSON pointers to records.
void showProperties(vorel::Renderer& out, const Interface& interface) {
   const bool up = (interface.flags & 1) != 0;
   if (out.format == vorel::outputFormatText) {
      const std::string speed = interface.speed ? std::to_string(*interface.speed) : "-";
      out.addAttributes("%-15s %-5s %6" PRIu32 " %7s %-17s", 5,
                        terminalText(interface.name).c_str(), up ? "up" : "down", interface.mtu,
                        speed.c_str(), interface.address.c_str());
   } else {
      // A record only points at its string, which has to live as long.
      const std::string name = jsonText(interface.name);
      const vorel::Attr32Info nameInfo("name", name.c_str());
      const vorel::Attr32Info upInfo("up", up);
      const vorel::Attr32Info mtuInfo("mtu", interface.mtu);
      vorel::Attr32Info speedInfo("speed", interface.speed.value_or(0));
      speedInfo.suppressed = !interface.speed;
      const vorel::Attr32Info addressInfo("address", interface.address.c_str());
      out.addAttributes("", 5, &nameInfo, &upInfo, &mtuInfo, &speedInfo, &addressInfo);
   }
}

// A single value can go without the case distinction: frills are for text and addAttributesJson is
// for JSON alone.
void showCounters(vorel::Renderer& out, const fs::path& directory) {
   out.startSubmodel("counters");
   for (const Counter& counter : kCounters) {
      const uint64_t value = readNumber<uint64_t>(directory / counter.file).value_or(0);
      const vorel::Attr64Info valueInfo(counter.name, value);
      out.addFrills(" %14" PRIu64, value);
      out.addAttributesJson(1, &valueInfo);
   }
   out.endSubmodel();
}

void showFlags(vorel::Renderer& out, uint32_t flags) {
   out.addFrills(" ");
   out.startList("flags");
   for (const char* name : kFlagNames) {
      if ((flags & 1) != 0) {
         const vorel::Attr32Info flagInfo("", name);  // without a name: a bare value
         out.addFrills(" %s", name);
         out.addAttributesJson(1, &flagInfo);
      }
      flags >>= 1;
   }
   out.endList();
}

}  // namespace

void showInterfaces(vorel::Renderer& out) {
   const fs::path root = "/sys/class/net";
   std::set<fs::path> directories;
   for (const auto& entry : fs::directory_iterator(root))
      directories.insert(entry.path());

   out.start();
   out.addFrills("Network interfaces\n\n");
   out.addFrills("%-15s %-5s %6s %7s %-17s %14s %14s %14s %14s  %s\n", "Name", "State", "MTU",
                 "Mbit/s", "Address", "Rx bytes", "Tx bytes", "Rx packets", "Tx packets", "Flags");
   out.startList("interfaces");
   for (const fs::path& directory : directories) {
      const std::optional<Interface> interface = readInterface(directory);
      if (!interface)
         continue;
      out.startListEntry();
      showProperties(out, *interface);
      showCounters(out, directory / "statistics");
      showFlags(out, interface->flags);
      out.addFrills("\n");
      out.endListEntry();
   }
   out.endList();
   out.end();
}
