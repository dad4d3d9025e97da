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

using namespace vorel::literals;

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

constexpr auto kRow = "{=Mounted on:<24} {type=Type:<12} {source=Source:<16} {options=Options}\n"_f;

}  // namespace

void showMounts(vorel::Object doc) {
   const std::map<std::string, Mount> mounts = readMounts();
   std::map<std::string, int> types;

   doc.text("Mounted file systems\n\n");
   const auto dict = doc.dict("mounts");
   dict.heading(kRow);
   for (const auto& [point, mount] : mounts) {
      dict.row(kRow, point, mount.type, mount.source, mount.options);
      ++types[mount.type];
   }
   doc.text("\nType                  Count\n");
   const auto counts = doc.dict("types");
   for (const auto& [type, count] : types)
      counts.print("{:<20} {:>6}\n"_f, type, count);
}
