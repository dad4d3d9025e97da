// Formats: whatever their bytes are, only the arguments that are counted are read; and a conversion
// that the C library knows prints as the C library prints it.
#include <array>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "Input.h"
#include "Recording.h"

using namespace vorel;

namespace {

using Arguments = std::array<uint64_t, kMaxConversions>;

void require(bool holds, const char* what) {
   if (!holds)
      throw std::logic_error(what);
}

/** Prints by vorel_vfprintf; the result is its result and the argument that it left unread. */
std::pair<int, uint64_t> print(Renderer* to, const char* fmt, ...) {
   va_list list;
   va_start(list, fmt);
   const int length = to->vorel_vfprintf(fmt, list);
   const auto next = va_arg(list, uint64_t);
   va_end(list);
   return {length, next};
}

void anyBytes(Input& input) {
   static const wchar_t kText[] = L"wide, and narrow for its first character";
   std::string fmt;
   int percents = 0;
   bool afterDigit = false;
   for (size_t length = input.below(60); length != 0; --length) {
      char c = static_cast<char>(input.byte());
      if (c == '\0' || (c == '%' && ++percents > kMaxConversions))
         c = '-';
      const bool isDigit = c >= '0' && c <= '9';
      fmt += isDigit && afterDigit ? '.' : c;  // so that the output stays small
      afterDigit = isDigit;
   }
   Arguments a;
   for (size_t i = 0; i < a.size(); ++i)
      a[i] = std::bit_cast<uint64_t>(&kText[i]);
   int sizes[kMaxConversions], ends[kMaxConversions] = {};
   bool floats[kMaxConversions];
   const int count = getArgLenList(fmt.c_str(), sizes, ends, floats);
   const bool asItStands = count == 0 || ends[count - 1] == 0;
   for (const bool buffered : {false, true}) {
      RecordingBuffer buffer(buffered ? input.below(50) : 0);
      Renderer renderer(outputFormatText, &buffer, buffered);
      const auto [length, next] = print(&renderer, fmt.c_str(), a[0], a[1], a[2], a[3], a[4], a[5],
                                        a[6], a[7], a[8], a[9], uint64_t{0});
      const auto read = static_cast<size_t>(asItStands ? 0 : count);
      // A wide character that the locale does not have ends the call.
      require(length < 0 || next == (read < a.size() ? a[read] : 0), "the arguments counted");
      require(!asItStands || buffer.output() == fmt, "as it stands");
   }
}

template <class Value>
void compare(Input& input, const std::string& fmt, Value value) {
   std::array<char, 2000> expected;
   const int length = std::snprintf(expected.data(), expected.size(), fmt.c_str(), value);
   RecordingBuffer buffer(input.below(200));
   Renderer renderer(outputFormatText, &buffer, true);
   int (Renderer::*const frills)(const char*, ...) = &Renderer::addFrills;
   require((renderer.*frills)(fmt.c_str(), value) == length, "result");
   require(buffer.output() == expected.data(), "text");
}

void oneConversion(Input& input) {
   std::string fmt = input.text(4, "a %\\") + "x%" + input.text(4, "-+ #0'") +
                     (input.byte() % 2 != 0 ? std::to_string(input.below(60)) : "") +
                     (input.byte() % 2 != 0 ? "." + std::to_string(input.below(30)) : "");
   for (size_t i = 0; i < fmt.size() && fmt[i] != 'x'; ++i)
      if (fmt[i] == '%')
         fmt.insert(++i, "%");
   const char letter = "diouxXcsfFeEgG"[input.below(14)];
   const uint64_t value = input.word();
   const std::string after = input.text(3, "a\n") + "%%";
   const bool isLong = input.byte() % 2 != 0;
   if (letter == 's')
      compare(input, fmt + letter + after, input.text(40, "abc").c_str());
   else if (std::string("fFeEgG").find(letter) != std::string::npos)
      compare(input, fmt + letter + after, std::bit_cast<double>(value));
   else if (letter != 'c' && isLong)
      compare(input, fmt + "l" + letter + after, static_cast<long>(value));
   else
      compare(input, fmt + letter + after,
              letter == 'c' ? static_cast<int>(value | 1) | 'a' : static_cast<int>(value));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   if (input.byte() % 2 != 0)
      anyBytes(input);
   else
      oneConversion(input);
   return 0;
}
