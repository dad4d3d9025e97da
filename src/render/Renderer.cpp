#include "render/Renderer.h"

#include "render/Arguments.h"
#include "render/Emit.h"

namespace vorel {

namespace {

[[noreturn]] void impossible(unsigned line, const char* function) {
   __assert_fail("0", "Renderer", line, function);
}

// Structure.

/** Writes an unnamed opening. */
void open(Renderer& to, char bracket) {
   emit::separator(to);
   to.firstItem = true;
   emit::character(to, bracket);
}

/** Writes a name in quotes and what follows it, `":[` for instance. */
void openNamed(Renderer& to, std::string_view name, std::string_view opening) {
   emit::separator(to);
   to.firstItem = true;
   emit::raiseIfFailed(emit::piece(to, std::string_view("\""), name, opening));
}

constexpr std::string_view kOpenList = "\":[";
constexpr std::string_view kOpenObject = "\":{";
constexpr std::string_view kOpenValue = "\":";

/** The text of a dictionary entry's key. */
class Key {
 public:
   Key(const Attr32Info& info, unsigned line, const char* function) {
      if (info.type == attrInt32)
         set(info.value.asInt32);
      else if (info.type == attrUint32)
         set(info.value.asUint32);
      else if (info.type == attrString)
         text_ = emit::text(info.value.asString);
      else
         impossible(line, function);
   }
   Key(const Attr64Info& info, unsigned line, const char* function) {
      if (info.type == attrUint64)
         set(info.value.asUint64);
      else
         impossible(line, function);
   }
   Key(const Key&) = delete;
   Key& operator=(const Key&) = delete;
   std::string_view text() const { return text_; }

 private:
   template <class Integer>
   void set(Integer number) {
      static_assert(sizeof digits_ >= kNumberRoom<Integer>);
      text_ = {digits_, static_cast<size_t>(putNumber(digits_, number) - digits_)};
   }

   char digits_[kNumberRoom<uint64_t>];
   std::string_view text_;
};

// Attributes.

/** The two callers of the JSON engine. */
struct Engine {
   bool checksEachItem;
   unsigned line;  // of the report of an unknown tag
   const char* function;
};

constexpr Engine kUncounted = {
      false, 810, "int vorel::Renderer::addJsonAttributesNoArgCount(const char*, __va_list_tag*)"};
constexpr Engine kCounted = {
      true, 592, "int vorel::Renderer::addJsonAttributes(const char*, int, __va_list_tag*)"};

int stringItem(Renderer& to, std::string_view name, std::string_view value) {
   using namespace std::string_view_literals;
   return name.empty() ? emit::piece(to, "\""sv, value, "\""sv)
                       : emit::piece(to, "\""sv, name, "\":\""sv, value, "\""sv);
}

template <class Number>
int numberItem(Renderer& to, std::string_view name, Number value) {
   constexpr size_t kRoom = kNumberRoom<Number>;
   PrintBuffer& buffer = *to.buffer;
   if (to.buffered && buffer.rlen() > name.size() + 3 + kRoom && name.size() < INT_MAX / 2)
         [[likely]] {
      char* const start = buffer.writePtr;
      char* out = start;
      if (!name.empty()) {
         *out++ = '"';
         out = emit::put(out, name);
         out = emit::put(out, kOpenValue);
      }
      out = putNumber(out, value);
      buffer.writePtr = out;
      return static_cast<int>(out - start);
   }
   char digits[kRoom];
   const std::string_view text(digits, static_cast<size_t>(putNumber(digits, value) - digits));
   return name.empty() ? emit::piece(to, text)
                       : emit::piece(to, std::string_view("\""), name, kOpenValue, text);
}

/** Without a name, true and false are copied and not formatted: they take no byte for a NUL, and
 * leave the `result` of the items before them. */
int boolItem(Renderer& to, std::string_view name, bool value, int result) {
   const std::string_view text = value ? "true" : "false";
   if (!name.empty())
      return emit::piece(to, std::string_view("\""), name, kOpenValue, text);
   if (to.buffered)
      to.buffer->writePtr = emit::put(to.buffer->getBuffer(text.size()), text);
   else
      to.buffer->rawWrite(text.data(), text.size());
   return result;
}

/** Writes one record as a member or bare value; `result` is what the items before it gave. */
int item(Renderer& to, const AttrInfo& info, const Engine& engine, int result) {
   const std::string_view name = emit::text(info.name);
   switch (info.type) {
      case attrInt32:
         return numberItem(to, name, info.value.asInt32);
      case attrString:
         return stringItem(to, name, emit::text(info.value.asString));
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
   impossible(engine.line, engine.function);
}

/** Writes `count` records, taken from `list`. */
int items(Renderer& to, int count, va_list list, const Engine& engine) {
   int result = 0;
   for (; count > 0; --count) {
      const AttrInfo& info = *va_arg(list, const AttrInfo*);
      if (info.suppressed)
         continue;
      emit::separator(to);
      to.firstItem = false;
      result = item(to, info, engine, result);
      if (engine.checksEachItem)
         emit::raiseIfFailed(result);
   }
   return result;
}

}  // namespace

Renderer::Renderer(OutputFormat_t format_, PrintBuffer* buffer_, bool buffered_)
      : format(format_), firstItem(true), buffered(buffered_), buffer(buffer_) {}

Renderer::~Renderer() = default;

void Renderer::start() {
   if (format != outputFormatText)
      emit::character(*this, '{');
}

void Renderer::end() {
   if (format == outputFormatText)
      return;
   emit::character(*this, '}');
   emit::character(*this, '\n');
}

void Renderer::ioflush() {
   buffer->flush();
}
bool Renderer::wouldBlock() {
   return buffer->wouldBlock();
}
uint64_t Renderer::fullness() {
   return buffer->fullness();
}

void Renderer::startList(const char* name) {
   if (format != outputFormatText)
      openNamed(*this, emit::text(name), kOpenList);
}

void Renderer::endList() {
   if (format == outputFormatText)
      return;
   emit::character(*this, ']');
   firstItem = false;
}

void Renderer::startListEntry() {
   if (format != outputFormatText)
      open(*this, '{');
}

void Renderer::endListEntry() {
   if (format != outputFormatText)
      endObj();
}

void Renderer::startObj(const char* name) {
   openNamed(*this, emit::text(name), kOpenObject);
}
void Renderer::startObj() {
   open(*this, '{');
}

void Renderer::endObj() {
   firstItem = false;
   emit::character(*this, '}');
}

void Renderer::startSimpleObj(const char* name) {
   openNamed(*this, emit::text(name), kOpenValue);
}

void Renderer::startSubmodel(const char* name) {
   if (format != outputFormatText)
      startObj(name);
}

void Renderer::endSubmodel() {
   if (format != outputFormatText)
      endObj();
}

void Renderer::startDict(const char* name) {
   startSubmodel(name);
}
void Renderer::endDict() {
   endSubmodel();
}

void Renderer::startDictEntry(const Attr32Info& info) {
   if (format == outputFormatText)
      return;
   const Key key(info, 157, "void vorel::Renderer::startDictEntry(const vorel::Attr32Info&)");
   openNamed(*this, key.text(), kOpenObject);
}

void Renderer::startDictEntry(const Attr64Info& info) {
   if (format == outputFormatText)
      return;
   const Key key(info, 171, "void vorel::Renderer::startDictEntry(const vorel::Attr64Info&)");
   openNamed(*this, key.text(), kOpenObject);
}

void Renderer::endDictEntry() {
   endSubmodel();
}

void Renderer::startSimpleDictEntry(const Attr32Info& info) {
   if (format == outputFormatText)
      return;
   const Key key(info, 192, "void vorel::Renderer::startSimpleDictEntry(const vorel::Attr32Info&)");
   openNamed(*this, key.text(), kOpenValue);
}

void Renderer::startSimpleDictEntry(const Attr64Info& info) {
   if (format == outputFormatText)
      return;
   const Key key(info, 206, "void vorel::Renderer::startSimpleDictEntry(const vorel::Attr64Info&)");
   openNamed(*this, key.text(), kOpenValue);
}

void Renderer::endSimpleDictEntry() {
   if (format != outputFormatText)
      firstItem = false;
}

int Renderer::addFrills(const char* fmt, ...) {
   raiseSigIntIfNeeded();
   if (format == outputFormatJson)
      return 0;
   if (format != outputFormatText)
      impossible(503, "int vorel::Renderer::addFrills(const char*, ...)");
   va_list list;
   va_start(list, fmt);
   ListArguments args(list);
   va_end(list);
   return emit::raiseIfFailed(emit::formatted(*this, fmt, args));
}

int Renderer::addVaFrillsWrapper(const char* fmt, int, va_list list) {
   if (format == outputFormatJson)
      return 0;
   if (format != outputFormatText)
      impossible(375, "int vorel::Renderer::addVaFrillsWrapper(const char*, int, __va_list_tag*)");
   ListArguments args(list);
   if (!buffered)
      return emit::formatAside(*buffer, fmt, args);
   const emit::Attempt attempt = emit::formatInPlace(*buffer, fmt, args);
   return attempt.fitted ? attempt.length : -1;
}

int Renderer::addAttributes(const char* fmt, int count, ...) {
   raiseSigIntIfNeeded();
   va_list list;
   va_start(list, count);
   int length = 0;
   if (format == outputFormatText) {
      ListArguments args(list);
      length = emit::formatted(*this, fmt, args);
   } else if (format == outputFormatJson) {
      length = items(*this, count, list, kCounted);
   } else {
      impossible(338, "int vorel::Renderer::addAttributes(const char*, int, ...)");
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
      impossible(479, "void vorel::Renderer::addArgs(const char*, ...)");
   va_end(list);
   emit::raiseIfFailed(length);
}

int Renderer::addJsonAttributesNoArgCount(const char* fmt, va_list list) {
   int argLens[kMaxConversions];
   int pieceEnds[kMaxConversions];
   bool isFloat[kMaxConversions];
   return items(*this, getArgLenList(fmt, argLens, pieceEnds, isFloat), list, kUncounted);
}

}  // namespace vorel
