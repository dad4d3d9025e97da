#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Counts.h"
#include "SafeText.h"

namespace {

struct Mount {
   std::string source;
   std::string type;
   std::vector<std::string> options;
};

/** Undoes the kernel's escapes: a backslash and three octal digits for a space, for instance. */
std::string decode(std::string_view field) {
   std::string text;
   while (!field.empty()) {
      const std::string_view digits = field.substr(1, 3);
      if (field[0] == '\\' && digits.size() == 3 &&
          digits.find_first_not_of("01234567") == std::string_view::npos) {
         text += static_cast<char>(std::stoi(std::string(digits), nullptr, 8));
         field.remove_prefix(4);
      } else {
         text += field[0];
         field.remove_prefix(1);
      }
   }
   return text;
}

/** What is mounted, by mount point. A later mount hides an earlier one on the same point. */
std::map<std::string, Mount> readMounts() {
   const char* const path = "/proc/self/mounts";
   std::ifstream file(path);
   if (!file)
      throw std::system_error(errno, std::generic_category(), path);
   std::map<std::string, Mount> mounts;
   std::string line;
   while (std::getline(file, line)) {
      std::istringstream fields(line);
      std::string source;
      std::string point;
      std::string type;
      std::string options;
      // Not with >>, which would pass over an empty source.
      for (std::string* field : {&source, &point, &type, &options})
         std::getline(fields, *field, ' ');
      Mount mount{decode(source), decode(type), {}};
      std::istringstream list(options);
      for (std::string option; std::getline(list, option, ',');)
         mount.options.push_back(decode(option));
      mounts.insert_or_assign(decode(point), std::move(mount));
   }
   return mounts;
}

void showMount(vorel::Renderer& out, const std::string& point, const Mount& mount, int width) {
   const std::string key = jsonText(point);
   const vorel::Attr32Info keyInfo("", key.c_str());
   out.startDictEntry(keyInfo);
   if (out.format == vorel::outputFormatText) {
      out.addAttributes("%-*s %-12s %-16s ", 3, width, terminalText(point).c_str(),
                        terminalText(mount.type).c_str(), terminalText(mount.source).c_str());
   } else {
      const std::string source = jsonText(mount.source);
      const std::string type = jsonText(mount.type);
      const vorel::Attr32Info sourceInfo("source", source.c_str());
      const vorel::Attr32Info typeInfo("type", type.c_str());
      out.addAttributes("", 2, &sourceInfo, &typeInfo);
   }
   out.startList("options");
   for (const std::string& option : mount.options) {
      const std::string value = jsonText(option);
      const vorel::Attr32Info valueInfo("", value.c_str());
      out.addFrills(" %s", terminalText(option).c_str());
      out.addAttributesJson(1, &valueInfo);
   }
   out.endList();
   out.addFrills("\n");
   out.endDictEntry();
}

}  // namespace

void showMounts(vorel::Renderer& out) {
   const std::map<std::string, Mount> mounts = readMounts();
   Counts types;
   size_t width = std::string_view("Mounted on").size();
   for (const auto& [point, mount] : mounts) {
      width = std::max(width, terminalText(point).size());
      ++types[mount.type];
   }
   out.start();
   out.addFrills("Mounted file systems\n\n");
   out.addFrills("%-*s %-12s %-16s  %s\n", static_cast<int>(width), "Mounted on", "Type", "Source",
                 "Options");
   out.startDict("mounts");
   for (const auto& [point, mount] : mounts)
      showMount(out, point, mount, static_cast<int>(width));
   out.endDict();
   showCounts(out, "types", "Type", types);
   out.end();
}
