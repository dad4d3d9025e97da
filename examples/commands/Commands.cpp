#include "Commands.h"

namespace {

constexpr struct {
   std::string_view name;
   Command command;
} kCommands[] = {{"disks", showDisks},   {"interfaces", showInterfaces},
                 {"mounts", showMounts}, {"processes", showProcesses},
                 {"routes", showRoutes}, {"sockets", showSockets}};

}  // namespace

Command findCommand(std::string_view name) {
   for (const auto& entry : kCommands)
      if (entry.name == name)
         return entry.command;
   return nullptr;
}

std::string commandNames() {
   std::string names;
   for (const auto& entry : kCommands)
      names.append(names.empty() ? "" : "|").append(entry.name);
   return names;
}
