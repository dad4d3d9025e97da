#include <unistd.h>

#include <array>
#include <charconv>
#include <cinttypes>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "Commands.h"
#include "Counts.h"
#include "SafeText.h"

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

void showProcess(vorel::Renderer& out, const Process& process) {
   const vorel::Attr32Info key("", process.pid);
   out.startDictEntry(key);
   if (out.format == vorel::outputFormatText) {
      out.addAttributes("%8" PRId32 " %8" PRId32 " %-8s %7" PRIu32 " %12" PRIu64 " %12.2f  %s\n", 7,
                        process.pid, process.parent, process.state.c_str(), process.threads,
                        process.residentBytes / 1024, process.cpuSeconds,
                        terminalText(process.name).c_str());
   } else {
      const std::string name = jsonText(process.name);
      const vorel::Attr32Info nameInfo("name", name.c_str());
      const vorel::Attr32Info stateInfo("state", process.state.c_str());
      const vorel::Attr32Info parentInfo("parent", process.parent);
      const vorel::Attr32Info threadsInfo("threads", process.threads);
      const vorel::Attr64Info residentInfo("residentBytes", process.residentBytes);
      const vorel::Attr64Info cpuInfo("cpuSeconds", process.cpuSeconds);
      out.addAttributes("", 6, &nameInfo, &stateInfo, &parentInfo, &threadsInfo, &residentInfo,
                        &cpuInfo);
   }
   out.endDictEntry();
}

}  // namespace

void showProcesses(vorel::Renderer& out) {
   Counts states;
   out.start();
   out.addFrills("Processes\n\n");
   out.addFrills("%8s %8s %-8s %7s %12s %12s  %s\n", "PID", "Parent", "State", "Threads",
                 "Resident KiB", "CPU seconds", "Name");
   out.startDict("processes");
   for (const int32_t pid : listProcesses()) {
      if (const std::optional<Process> process = readProcess(pid)) {
         showProcess(out, *process);
         ++states[process->state];
      }
   }
   out.endDict();
   showCounts(out, "states", "State", states);
   out.end();
}
