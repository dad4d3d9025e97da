// Formats. The scanner agrees with a model; whatever the bytes are, only the arguments that are
// counted are read; and conversions that the C library knows print as the C library prints them.
#include <algorithm>
#include <array>
#include <bit>
#include <cfenv>
#include <cstdio>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "Input.h"
#include "RendererModel.h"

using namespace vorel;

namespace {

constexpr std::string_view kFloats = "eEfFgG";

bool isIn(char c, std::string_view set) {
   return set.find(c) != set.npos;
}

/** What getArgLenList puts out. */
struct Scan {
   int count;
   std::array<int, kMaxConversions> sizes, ends;
   std::array<bool, kMaxConversions> floats;

   bool operator==(const Scan&) const = default;
};

/** The same by searching: for a percent sign, then for the first character that closes or cancels.
 * What was in the arrays stays where nothing replaces it. Stops when there are too many. */
Scan model(std::string_view fmt, Scan scan) {
   size_t closed = 0, end = 0;
   for (size_t at; (at = fmt.find('%', end)) != fmt.npos;) {
      end = at + 1;
      if (at != 0 && fmt[at - 1] == '\\')
         continue;
      if (++scan.count > kMaxConversions)
         break;
      const size_t close = fmt.find_first_of("%cdeEfFgGiopsuxX", end);
      if (close == fmt.npos)
         break;
      end = close + 1;
      const char letter = fmt[close];
      if (letter == '%') {
         --scan.count;
         continue;
      }
      const bool isLong = fmt[close - 1] == 'l' && isIn(letter, "diuxX");
      scan.sizes[closed] = isLong || isIn(letter, "speEfFgG") ? 8 : 4;
      scan.floats[closed] = isIn(letter, kFloats);
      scan.ends[closed++] = static_cast<int>(end);
   }
   if (closed != 0)
      scan.ends[closed - 1] = static_cast<int>(fmt.size());
   return scan;
}

/** Numbers and pointers are passed in other registers than doubles, so that the order between them
 * does not matter; and all these doubles find a register. */
struct Arguments {
   std::array<uint64_t, kMaxConversions + 1> words{};
   std::array<double, 8> doubles{};

   auto all() const { return std::tuple_cat(words, doubles); }
};

void anyBytes(Input& input) {
   constexpr const char* kFrequent =
         "%%%%%%%%%%dddiiuuxxXXosscpeEfFgGllllllhhjztLqnaCSm*$..-+ #0'1234\\\\\\\n\xc3\xa9\xff";
   std::string fmt = input.text(60, input.byte() % 8 == 0 ? nullptr : kFrequent);
   for (size_t i = 0; i < fmt.size(); ++i) {
      const auto isDigit = [&](size_t at) { return '0' <= fmt[at] && fmt[at] <= '9'; };
      if (fmt[i] == '\0' || (i != 0 && isDigit(i - 1) && isDigit(i)))
         fmt[i] = '.';  // so that the output stays small
   }
   Scan scan{};
   scan.floats.fill(input.byte() % 2 != 0);  // neither of which tells that it is left alone
   const Scan expected = model(fmt, scan);
   if (expected.count > kMaxConversions)
      return;
   // Behind it is nothing, and before it what would escape a percent sign of its own.
   const std::string escaping = '\\' + fmt;
   const std::vector<char> memory(escaping.c_str(), escaping.c_str() + escaping.size() + 1);
   const char* const held = memory.data() + 1;
   scan.count = getArgLenList(held, scan.sizes.data(), scan.ends.data(), scan.floats.data());
   require(scan == expected, "scan", fmt);

   const auto count = static_cast<size_t>(scan.count);
   const bool asItStands = count == 0 || scan.ends[count - 1] == 0;
   static const wchar_t kText[] = L"wide, and narrow for its first character";
   Arguments args;
   for (size_t i = 0; i < scan.sizes.size(); ++i)
      args.words[i] = scan.sizes[i] == 8 && !scan.floats[i] ? std::bit_cast<uint64_t>(&kText[i])
                                                            : input.word();
   std::set<std::pair<int, std::string>> printed;
   for (const size_t area : {0U, 3U, 4000U}) {
      RecordingBuffer buffer(area);
      Renderer renderer(outputFormatJson, &buffer, area != 0);
      const auto [length, next] = callWith(renderer, &Renderer::vorel_vfprintf, held, args.all());
      // A wide character that the locale does not have ends the call.
      require(length < 0 || next == args.words[asItStands ? 0 : count], "arguments read", fmt);
      require(!asItStands || buffer.output() == fmt, "text as it stands", fmt);
      printed.emplace(length, buffer.output());
      require(printed.size() == 1, "each way the same", fmt);
   }

   const Attr32Info a("a", 1), b("", "x"), c("c", 1.5F), d("", true);
   const Attr32Info* const infos[] = {&a, &b, &c, &d};
   for (uint64_t& word : args.words)
      word = std::bit_cast<uint64_t>(infos[input.below(4)]);
   for (const bool buffered : {false, true}) {
      RecordingBuffer counted(5), uncounted(5);
      Renderer other(outputFormatJson, &counted, buffered);
      Renderer json(outputFormatJson, &uncounted, buffered);
      const int length = std::apply(
            [&](auto... each) { return other.addAttributesJson(scan.count, each...); }, args.all());
      const Outcome outcome =
            callWith(json, &Renderer::addJsonAttributesNoArgCount, held, args.all());
      require(outcome == Outcome(length, args.words[count]) && uncounted.calls == counted.calls &&
                    uncounted.output() == counted.output(),
              "JSON", fmt);
   }
}

std::string libraryText(const std::string& fmt, const Arguments& args) {
   std::array<char, 20000> text;
   const int length = std::apply(
         [&](auto... each) {
            return std::snprintf(text.data(), text.size(), fmt.c_str(), each...);
         },
         args.all());
   require(0 <= length && static_cast<size_t>(length) < text.size(), "the C library", fmt);
   return {text.data(), static_cast<size_t>(length)};
}

/** A piece of a format, up to the letter of its conversion, and the argument. With `all`, it may be
 * one that vorel_vfprintf does not read as printf does: "%zu", "%lo", or behind a backslash. With
 * `plain`, it is mostly one that the library makes by itself. */
std::pair<std::string, uint64_t> piece(Input& input, bool all, bool plain) {
   constexpr const char* kLiterals[] = {"",      "%05.3l%", " ",   ", rate ", "%%",
                                        "d% %s", "\n",      "\\n", "\\"};
   constexpr const char* kModifiers[] = {"ll", "l", "", "h", "hh", "z", "j", "t"};
   constexpr const void* kStrings[] = {"",  "\xc3\xa9%d\\", "longer than some areas", nullptr,
                                       L"", L"w",           L"wide string",           nullptr};
   constexpr double kDoubles[] = {0.0, -0.0, 0.5, 9.9999995, 1e15, 123456.75, 1e-5, -2.5};
   const auto number = [&] {
      return std::to_string(input.byte() % 16 == 0 ? input.next() % 700
                                                   : input.below(plain ? 10 : 30));
   };
   std::string fmt = kLiterals[input.below(all ? 9 : 8)];
   fmt += '%' + input.text(4, plain ? "-0" : "-+ #0'");
   if (input.byte() % 2 != 0)
      fmt += number();
   if (input.byte() % 2 != 0)
      fmt += '.' + (input.byte() % 4 != 0 ? number() : "");
   const char letter = "ddiuuxXosscffffpeeEFgG"[input.below(plain ? 15 : 22)];
   const size_t kind = input.below(3);
   const bool isWide = letter != 'p' && kind == 0;  // or an l that means nothing
   const uint64_t any = input.word();
   if (isIn(letter, "diouxX")) {
      const size_t from = letter == 'o' && !all ? 2 : 0, to = plain ? 3 : all ? 8 : 5;
      fmt += kModifiers[from + input.below(to - from)];
      return {fmt + letter, kind == 0 ? any % 9 - 4 : any};
   }
   fmt += (isWide ? "l" : "") + std::string(1, letter);
   if (isIn(letter, kFloats)) {
      const double values[] = {kDoubles[any % 8], std::bit_cast<double>(any),
                               static_cast<double>(static_cast<int64_t>(any)) / 64};
      return {fmt, floatArg(values[input.below(3)])};
   }
   const auto string = std::bit_cast<uint64_t>(kStrings[any % 4 + (isWide ? 4 : 0)]);
   return {fmt, letter == 's' ? string : isWide ? any % 128 : any};
}

/** Prints by vorel_vfprintf, or by one of the operations that take a format as printf does. */
Outcome print(Renderer& to, size_t operation, const char* fmt, const Arguments& args) {
   if (operation == 0)
      return callWith(to, &Renderer::vorel_vfprintf, fmt, args.all());
   const auto printWith = [&](auto... each) {
      if (operation == 1)
         return to.addFrills(fmt, each...);
      if (operation == 2)
         return to.addAttributes(fmt, 1, each...);
      const int first = addVaFrills(to, fmt, each...);
      return first != -1 ? first : addVaFrills(to, fmt, each...);
   };
   return {std::apply(printWith, args.all()), 0};
}

void conversions(Input& input) {
   const size_t choice = input.byte(), operation = choice % 4;
   const bool whole = operation != 0, plain = input.byte() % 2 != 0;
   std::fesetround(choice / 4 % 8 == 1 ? FE_UPWARD : FE_TONEAREST);
   std::string fmt;
   Arguments args;
   std::vector<std::string> texts;
   size_t words = 0, doubles = 0;
   for (size_t left = 1 + input.below(args.doubles.size()); left != 0; --left) {
      auto [part, arg] = piece(input, whole, plain);
      const bool isFloat = isIn(part.back(), kFloats);
      if (left == 1 && input.byte() % 2 != 0)
         part += "%%\n";
      fmt += part;
      if (whole && isFloat)
         args.doubles[doubles++] = std::bit_cast<double>(arg);
      else
         args.words[words++] = arg;
      if (!whole)
         texts.push_back(libraryText(part, {{arg}, {std::bit_cast<double>(arg)}}));
   }
   if (whole)
      texts.push_back(libraryText(fmt, args));
   const Outcome expected(texts.back().size(), whole ? 0 : args.words[words]);
   for (const size_t area : {size_t{0}, input.below(8), input.below(200), size_t{20000}}) {
      for (const bool buffered : {false, true}) {
         Model model{outputFormatText, buffered, area};
         for (const std::string& text : texts)
            model.formatted(text);
         RecordingBuffer buffer(area);
         Renderer renderer(outputFormatText, &buffer, buffered);
         require(print(renderer, operation, fmt.c_str(), args) == expected, "result", fmt);
         require(buffer.output() == model.output, "text", fmt);
         require(buffer.calls == model.calls, "calls", fmt);
      }
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   (input.byte() % 2 != 0 ? anyBytes : conversions)(input);
   return 0;
}
