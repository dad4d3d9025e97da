#include <unistd.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "Commands.h"

using namespace vorel::literals;

namespace {

namespace fs = std::filesystem;

struct Process {
   int32_t pid;
   std::string name;
   std::string state;
   int32_t parent;
   uint32_t threads;
   uint64_t residentBytes;
   double cpuSeconds;
};

std::string stateName(char letter) {
   switch (letter) {
      case 'R':
         return "running";
      case 'S':
         return "sleeping";
      case 'D':
         return "blocked";
      case 'Z':
         return "zombie";
      case 'T':
         return "stopped";
      case 't':
         return "traced";
      case 'I':
         return "idle";
      default:
         return {letter};
   }
}

/** The processes that exist now. */
std::set<int32_t> listProcesses() {
   std::set<int32_t> pids;
   for (const auto& entry : fs::directory_iterator("/proc")) {
      const std::string name = entry.path().filename();
      int32_t pid = 0;
      const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
      if (error == std::errc() && *end == '\0')
         pids.insert(pid);
   }
   return pids;
}

/** Nothing when the process has ended since it was listed. */
std::optional<Process> readProcess(int32_t pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
   // "pid (name) state parent ...", and the name may hold anything but NUL: parentheses, newlines.
   std::string line;
   std::getline(file, line, '\0');
   const size_t nameStart = line.find('(') + 1;
   const size_t nameEnd = line.rfind(')');
   if (nameEnd == std::string::npos)
      return std::nullopt;
   std::istringstream rest(line.substr(nameEnd + 1));
   char state = 0;
   std::array<int64_t, 21> numbers{};  // from the parent on
   rest >> state;
   for (int64_t& number : numbers)
      rest >> number;
   if (!rest)
      return std::nullopt;
   const auto ticks = static_cast<double>(numbers[10] + numbers[11]);  // in user and system mode
   return Process{pid,
                  line.substr(nameStart, nameEnd - nameStart),
                  stateName(state),
                  static_cast<int32_t>(numbers[0]),
                  static_cast<uint32_t>(numbers[16]),
                  static_cast<uint64_t>(numbers[20] * sysconf(_SC_PAGESIZE)),
                  ticks / static_cast<double>(sysconf(_SC_CLK_TCK))};
}

constexpr auto kRow =
      "{=PID:>8} {parent=Parent:>8} {state=State:<8} {threads=Threads:>7} "
      "{residentBytes=Resident KiB:>12} {cpuSeconds=CPU seconds:>12.2f}  {name=Name}\n"_f;

}  // namespace

void showProcesses(vorel::Object doc) {
   std::map<std::string, int> states;

   doc.text("Processes\n\n");
   const auto dict = doc.dict("processes");
   dict.heading(kRow);
   for (const int32_t pid : listProcesses()) {
      if (const auto p = readProcess(pid)) {
         dict.row(kRow, pid, p->parent, p->state, p->threads,
                  vorel::as(p->residentBytes, p->residentBytes / 1024), p->cpuSeconds, p->name);
         ++states[p->state];
      }
   }
   doc.text("\nState                 Count\n");
   const auto counts = doc.dict("states");
   for (const auto& [state, count] : states)
      counts.print("{:<20} {:>6}\n"_f, state, count);
}
