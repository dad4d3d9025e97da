#include "Commands.h"

Command findCommand(std::string_view name) {
   if (name == "interfaces")
      return showInterfaces;
   if (name == "processes")
      return showProcesses;
   if (name == "mounts")
      return showMounts;
   return nullptr;
}
