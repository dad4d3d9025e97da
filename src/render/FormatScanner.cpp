#include "render/FormatScanner.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace vorel {

namespace {

constexpr ZyFmt::Assertion kNotTooMany = {
      "0", "Renderer", 622, "int vorel::getArgLenList(const char*, int*, int*, bool*)"};

/** What a character means within a conversion. */
enum class Role : uint8_t {
   passedOver,
   fourBytes,
   eightBytes,
   floating,
   sizer,
   cancels,
   endsFormat
};

constexpr auto kRoles = [] {
   std::array<Role, 256> roles{};
   const auto set = [&roles](std::string_view characters, Role role) {
      for (const char c : characters)
         roles[static_cast<unsigned char>(c)] = role;
   };
   set("cdiouxX", Role::fourBytes);
   set("sp", Role::eightBytes);
   set("eEfFgG", Role::floating);
   set("l", Role::sizer);
   set("%", Role::cancels);
   roles['\0'] = Role::endsFormat;
   return roles;
}();

Role roleOf(char c) {
   return kRoles[static_cast<unsigned char>(c)];
}

/** Whether the l at `at`, alone or the second of two, sizes the conversion that the next character
 * closes. Any other is passed over. */
bool isSizer(const char* at) {
   return roleOf(at[1]) == Role::fourBytes && at[1] != 'c' && at[1] != 'o';
}

}  // namespace

FormatScan::FormatScan(const char* fmt) : count(0), closed(0) {
   const char* at = fmt;
   const auto close = [&](int size, bool floating, const char* end) {
      argLens[closed] = size;
      isFloat[closed] = floating;
      pieceEnds[closed] = static_cast<int>(end - fmt);
      ++closed;
      at = end;
   };
   bool open = false;
   for (;;) {
      if (!open) {
         while (*at != '%' && *at != '\0')
            ++at;
         if (*at == '\0')
            break;
         // Outside a conversion, a backslash can only stand here if it is outside as well.
         open = at == fmt || at[-1] != '\\';
         ++at;
         if (open && ++count > kMaxConversions)
            kNotTooMany.fail();
         continue;
      }
      const Role role = roleOf(*at);
      if (role == Role::endsFormat)
         break;
      if (role == Role::passedOver || (role == Role::sizer && !isSizer(at))) {
         ++at;
         continue;
      }
      open = false;
      if (role == Role::cancels) {
         --count;
         ++at;
      } else if (role == Role::sizer) {
         close(8, false, at + 2);
      } else {
         close(role == Role::fourBytes ? 4 : 8, role == Role::floating, at + 1);
      }
   }
   length = static_cast<size_t>(at - fmt);
   if (closed > 0)  // the last piece runs to the end of the format
      pieceEnds[closed - 1] = static_cast<int>(length);
}

int getArgLenList(const char* fmt, int* argLens, int* pieceEnds, bool* isFloat) {
   const FormatScan scan(fmt);
   std::copy_n(scan.argLens, scan.closed, argLens);
   std::copy_n(scan.pieceEnds, scan.closed, pieceEnds);
   std::copy_n(scan.isFloat, scan.closed, isFloat);
   return scan.count;
}

}  // namespace vorel
