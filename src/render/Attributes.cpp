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

/** Puts the key of an item; nothing for one without a name. Null when it has to go on the slow
 * path. */
char* putKey(char* out, const char* name) {
   if (name == nullptr)
      return nullptr;
   if (*name == '\0')
      return out;
   *out++ = '"';
   out = emit::putName(out, name);
   return out == nullptr ? nullptr : emit::putConstant(out, emit::kColon);
}

/** Puts a string value. Null when it has to go on the slow path. */
char* putQuoted(char* out, const char* limit, const char* string) {
   constexpr size_t kQuotes = 2;
   if (string == nullptr)
      return nullptr;
   const size_t size = std::strlen(string);
   // The slow path is for a piece that does not fit and leaves no byte free, or is too long.
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

/** Room for every value but a string, which putScalar takes, scratch included. */
constexpr size_t kScalarRoom = text::kNumberRoom<double>;

/** Puts a value of any type but attrString; null for an unknown one. Comparisons, the most frequent
 * types first, take less time here than a switch's indirect jump. */
[[gnu::always_inline]] inline char* putScalar(char* out, const AttrInfo& info) {
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

/** Writes an item on the slow path. Without a name, true and false are copied: they leave the
 * `result` of the items before them. */
[[gnu::noinline]] int itemSlow(Renderer& to, const AttrInfo& info, const Engine& engine,
                               int result) {
   emit::separator(to);
   to.firstItem = false;
   char scalar[kScalarRoom];
   std::string_view quote;
   std::string_view value;
   if (info.type == attrString) {
      quote = emit::kQuote;
      value = emit::text(info.value.asString);
   } else {
      const char* const end = putScalar(scalar, info);
      if (end == nullptr)
         engine.tagIsKnown.fail();
      value = {scalar, static_cast<size_t>(end - scalar)};
   }
   const std::string_view name = emit::text(info.name);
   if (!name.empty())
      return emit::piece(to, {emit::kQuote, name, emit::kColon, quote, value, quote});
   if (info.type != attrBool)
      return emit::piece(to, {quote, value, quote});
   emit::copy(to, value);
   return result;
}

/** Writes items on the fast path. The place in the write area and `firstItem` are kept here, where
 * the characters stored cannot alias them, and go back to the renderer with commit. */
class FastItems {
 public:
   explicit FastItems(Renderer& to) : to_(to) { fetch(); }
   FastItems(const FastItems&) = delete;
   FastItems& operator=(const FastItems&) = delete;

   void fetch() {
      out_ = to_.buffer->writePtr;
      limit_ = to_.buffered ? to_.buffer->endPtr : out_;
      firstItem_ = to_.firstItem;
   }
   void commit() const {
      to_.buffer->writePtr = out_;
      to_.firstItem = firstItem_;
   }

   /** Writes an item, and its length to `result`; false when it has to go on the slow path. */
   bool add(const AttrInfo& info, int& result) {
      if (limit_ - out_ < static_cast<ptrdiff_t>(emit::kEnoughRoom)) [[unlikely]]
         return false;
      char* const start = emit::putSeparator(out_, firstItem_);
      char* const value = putKey(start, info.name);
      if (value == nullptr) [[unlikely]]
         return false;
      char* const end = info.type == attrString ? putQuoted(value, limit_, info.value.asString)
                                                : putScalar(value, info);
      if (end == nullptr) [[unlikely]]
         return false;
      if (info.type != attrBool || value != start)
         result = static_cast<int>(end - start);
      out_ = end;
      firstItem_ = false;
      return true;
   }

 private:
   Renderer& to_;
   char* out_;
   char* limit_;
   bool firstItem_;
};

/** Writes `count` records, taken from `list`. */
int items(Renderer& to, int count, va_list list, const Engine& engine) {
   if (count <= 0)
      return 0;
   int result = 0;
   FastItems fast(to);
   for (; count > 0; --count) {
      const AttrInfo& info = *va_arg(list, const AttrInfo*);
      if (info.suppressed || fast.add(info, result)) [[likely]]
         continue;
      fast.commit();
      result = itemSlow(to, info, engine, result);
      if (engine.checksEachItem)
         emit::raiseIfFailed(result);
      fast.fetch();
   }
   fast.commit();
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
