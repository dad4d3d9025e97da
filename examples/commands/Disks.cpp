#include <chrono>
#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"

using namespace vorel::literals;

namespace {

struct Transfers {
   uint64_t count, merged, sectors, milliseconds;

   uint64_t bytes() const { return sectors * 512; }
   std::chrono::milliseconds time() const {
      return std::chrono::milliseconds(static_cast<int64_t>(milliseconds));
   }
};

struct Disk {
   std::string name;
   Transfers reads, writes;
   uint64_t inProgress;
   std::optional<uint64_t> size;  // in bytes
};

std::vector<Disk> readDisks() {
   std::vector<Disk> disks;
   std::ifstream file("/proc/diskstats");
   for (std::string line; std::getline(file, line);) {
      std::istringstream words(line);
      int major = 0;
      int minor = 0;
      Disk disk{};
      words >> major >> minor >> disk.name;
      for (Transfers* const to : {&disk.reads, &disk.writes})
         words >> to->count >> to->merged >> to->sectors >> to->milliseconds;
      if (!(words >> disk.inProgress))
         continue;
      uint64_t sectors = 0;
      if (std::ifstream("/sys/class/block/" + disk.name + "/size") >> sectors && sectors != 0)
         disk.size = sectors * 512;
      disks.push_back(disk);
   }
   return disks;
}

constexpr auto kRow =
      "{name=Name:<10} {size=Bytes:>14} {reads.count=Reads:>9} {reads.bytes=Read bytes:>14} "
      "{reads.time=Read time:>14} {writes.count=Writes:>9} {writes.bytes=Written bytes:>14} "
      "{writes.time=Write time:>14} {inProgress=Now:>4}\n"_f;

}  // namespace

void showDisks(vorel::Object doc) {
   doc.text("Disks\n\n");
   const auto list = doc.list("disks");
   list.heading(kRow);
   for (const Disk& d : readDisks())
      list.row(kRow, d.name, d.size, d.reads.count, d.reads.bytes(), d.reads.time(), d.writes.count,
               d.writes.bytes(), d.writes.time(), d.inProgress);
}
