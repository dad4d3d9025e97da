#include <climits>
#include <cstring>

#include "render/Emit.h"
#include "render/FormatScanner.h"
#include "text/Arguments.h"

namespace vorel {

namespace {

constexpr char kUnit[] = "Renderer";
constexpr ZyFmt::Assertion kAttributesFormatIsKnown = {
      "0", kUnit, 338, "int vorel::Renderer::addAttributes(const char*, int, ...)"};
constexpr ZyFmt::Assertion kArgsFormatIsKnown = {"0", kUnit, 479,
                                                 "void vorel::Renderer::addArgs(const char*, ...)"};
constexpr ZyFmt::Assertion kCountedTagIsKnown = {
      "0", kUnit, 592, "int vorel::Renderer::addJsonAttributes(const char*, int, __va_list_tag*)"};
constexpr ZyFmt::Assertion kUncountedTagIsKnown = {
      "0", kUnit, 810,
      "int vorel::Renderer::addJsonAttributesNoArgCount(const char*, __va_list_tag*)"};

/** The two callers of the JSON engine. */
struct Engine {
   bool checksEachItem;
   const ZyFmt::Assertion& tagIsKnown;
};

constexpr Engine kCounted = {true, kCountedTagIsKnown};
constexpr Engine kUncounted = {false, kUncountedTagIsKnown};

/** Puts the key of an item; nothing for one without a name. Null when it has to go the long way. */
char* putKey(char* out, const char* name) {
   if (name == nullptr)
      return nullptr;
   if (*name == '\0')
      return out;
   *out++ = '"';
   out = emit::putName(out, name);
   if (out == nullptr)
      return nullptr;
   std::memcpy(out, emit::kColon, sizeof emit::kColon - 1);
   return out + sizeof emit::kColon - 1;
}

char* putQuoted(char* out, const char* limit, const char* string) {
   constexpr size_t kQuotes = 2;
   if (string == nullptr)
      return nullptr;
   const size_t size = std::strlen(string);
   // The long way is for a piece that does not fit and leaves no byte free, or is too long.
   if (static_cast<size_t>(limit - out) <= size + kQuotes || size > INT_MAX / 2)
      return nullptr;
   *out++ = '"';
   out = text::put(out, {string, size});
   *out++ = '"';
   return out;
}

char* putBool(char* out, bool value) {
   static constexpr char kWords[2][8] = {"false", "true"};
   std::memcpy(out, kWords[value ? 1 : 0], sizeof kWords[0]);
   return out + (value ? 4 : 5);
}

/** Puts the value of an item; null when it has to go the long way. Comparisons, the most frequent
 * types first, take less time here than a switch's indirect jump. */
char* putValue(char* out, const char* limit, const AttrInfo& info) {
   if (info.type == attrString)
      return putQuoted(out, limit, info.value.asString);
   if (info.type == attrUint64)
      return text::putNumber(out, info.value.asUint64);
   if (info.type == attrUint32)
      return text::putNumber(out, info.value.asUint32);
   if (info.type == attrBool)
      return putBool(out, info.value.asBool != 0);
   if (info.type == attrInt32)
      return text::putNumber(out, info.value.asInt32);
   if (info.type == attrDouble)
      return text::putNumber(out, info.value.asDouble);
   if (info.type == attrFloat)
      return text::putNumber(out, static_cast<double>(info.value.asFloat));
   return nullptr;
}

/** Writes the key and value of an item as one piece, wherever it has to go. */
template <class... Part>
int namedPiece(Renderer& to, std::string_view name, Part... value) {
   return name.empty()
                ? emit::piece(to, value...)
                : emit::piece(to, emit::kQuote, name, std::string_view(emit::kColon), value...);
}

template <class Number>
int numberItem(Renderer& to, std::string_view name, Number value) {
   char digits[text::kNumberRoom<Number>];
   const auto size = static_cast<size_t>(text::putNumber(digits, value) - digits);
   return namedPiece(to, name, std::string_view(digits, size));
}

constexpr ptrdiff_t kBareBool = sizeof "false" - 1;

/** Without a name, true and false are copied and not formatted: they take no byte for a NUL, and
 * leave the `result` of the items before them. */
int boolItem(Renderer& to, std::string_view name, bool value, int result) {
   const std::string_view text = value ? "true" : "false";
   if (!name.empty())
      return namedPiece(to, name, text);
   if (to.buffered)
      to.buffer->writePtr = text::put(to.buffer->getBuffer(text.size()), text);
   else
      to.buffer->rawWrite(text.data(), text.size());
   return result;
}

/** Writes an item wherever it has to go. */
[[gnu::noinline]] int itemAnywhere(Renderer& to, const AttrInfo& info, const Engine& engine,
                                   int result) {
   if (to.firstItem)
      to.firstItem = false;
   else
      emit::character(to, ',');
   const std::string_view name = emit::text(info.name);
   switch (info.type) {
      case attrInt32:
         return numberItem(to, name, info.value.asInt32);
      case attrString:
         return namedPiece(to, name, emit::kQuote, emit::text(info.value.asString), emit::kQuote);
      case attrBool:
         return boolItem(to, name, info.value.asBool != 0, result);
      case attrUint64:
         return numberItem(to, name, info.value.asUint64);
      case attrUint32:
         return numberItem(to, name, info.value.asUint32);
      case attrFloat:
         return numberItem(to, name, static_cast<double>(info.value.asFloat));
      case attrDouble:
         return numberItem(to, name, info.value.asDouble);
   }
   engine.tagIsKnown.fail();
}

/** Writes items the short way. The place in the write area and the comma's flag are kept here,
 * where the characters stored cannot alias them, and go back to the renderer with commit. */
class QuickItems {
 public:
   explicit QuickItems(Renderer& to) : to_(to) { fetch(); }
   QuickItems(const QuickItems&) = delete;
   QuickItems& operator=(const QuickItems&) = delete;

   void fetch() {
      out_ = to_.buffer->writePtr;
      limit_ = to_.buffered ? to_.buffer->endPtr : out_;
      commaSize_ = to_.firstItem ? 0 : 1;
   }
   void commit() const {
      to_.buffer->writePtr = out_;
      to_.firstItem = commaSize_ == 0;
   }

   /** Writes an item, and its length to `result`; false when it has to go the long way. */
   bool add(const AttrInfo& info, int& result) {
      if (limit_ - out_ < static_cast<ptrdiff_t>(emit::kEnoughRoom)) [[unlikely]]
         return false;
      *out_ = ',';
      char* const start = out_ + commaSize_;
      char* end = putKey(start, info.name);
      if (end == nullptr || (end = putValue(end, limit_, info)) == nullptr) [[unlikely]]
         return false;
      if (info.type != attrBool || end - start > kBareBool)
         result = static_cast<int>(end - start);
      out_ = end;
      commaSize_ = 1;
      return true;
   }

 private:
   Renderer& to_;
   char* out_;
   char* limit_;
   size_t commaSize_;
};

/** Writes `count` records, taken from `list`. */
int items(Renderer& to, int count, va_list list, const Engine& engine) {
   if (count <= 0)
      return 0;
   int result = 0;
   QuickItems quick(to);
   for (; count > 0; --count) {
      const AttrInfo& info = *va_arg(list, const AttrInfo*);
      if (info.suppressed || quick.add(info, result)) [[likely]]
         continue;
      quick.commit();
      result = itemAnywhere(to, info, engine, result);
      if (engine.checksEachItem)
         emit::raiseIfFailed(result);
      quick.fetch();
   }
   quick.commit();
   return result;
}

}  // namespace

int Renderer::addAttributes(const char* fmt, int count, ...) {
   raiseSigIntIfNeeded();
   va_list list;
   va_start(list, count);
   int length = 0;
   if (format == outputFormatText) {
      text::ListArguments args(list);
      length = emit::formatted(*this, fmt, args);
   } else if (format == outputFormatJson) {
      length = items(*this, count, list, kCounted);
   } else {
      kAttributesFormatIsKnown.fail();
   }
   va_end(list);
   return emit::raiseIfFailed(length);
}

int Renderer::addAttributesJson(int count, ...) {
   raiseSigIntIfNeeded();
   if (format == outputFormatText)
      return 0;
   va_list list;
   va_start(list, count);
   const int length = items(*this, count, list, kCounted);
   va_end(list);
   return length;
}

int Renderer::addJsonAttributes(const char*, int count, va_list list) {
   return items(*this, count, list, kCounted);
}

void Renderer::addArgs(const char* fmt, ...) {
   raiseSigIntIfNeeded();
   va_list list;
   va_start(list, fmt);
   int length = 0;
   if (format == outputFormatText)
      length = vorel_vfprintf(fmt, list);
   else if (format == outputFormatJson)
      length = addJsonAttributesNoArgCount(fmt, list);
   else
      kArgsFormatIsKnown.fail();
   va_end(list);
   emit::raiseIfFailed(length);
}

int Renderer::addJsonAttributesNoArgCount(const char* fmt, va_list list) {
   return items(*this, FormatScan(fmt).count, list, kUncounted);
}

}  // namespace vorel
