#include <vorel/render/Renderer.h>

#include <type_traits>

#include "render/Emit.h"
#include "text/Arguments.h"

namespace vorel {

namespace {

constexpr char kUnit[] = "Renderer";
constexpr ZyFmt::Assertion kEntryHasKey32 = {
      "0", kUnit, 157, "void vorel::Renderer::startDictEntry(const vorel::Attr32Info&)"};
constexpr ZyFmt::Assertion kEntryHasKey64 = {
      "0", kUnit, 171, "void vorel::Renderer::startDictEntry(const vorel::Attr64Info&)"};
constexpr ZyFmt::Assertion kSimpleEntryHasKey32 = {
      "0", kUnit, 192, "void vorel::Renderer::startSimpleDictEntry(const vorel::Attr32Info&)"};
constexpr ZyFmt::Assertion kSimpleEntryHasKey64 = {
      "0", kUnit, 206, "void vorel::Renderer::startSimpleDictEntry(const vorel::Attr64Info&)"};
constexpr ZyFmt::Assertion kWrapperFormatIsKnown = {
      "0", kUnit, 375, "int vorel::Renderer::addVaFrillsWrapper(const char*, int, __va_list_tag*)"};
constexpr ZyFmt::Assertion kFrillsFormatIsKnown = {
      "0", kUnit, 503, "int vorel::Renderer::addFrills(const char*, ...)"};

constexpr char kOpenList[] = "\":[";
constexpr char kOpenObject[] = "\":{";

/** Writes an unnamed opening wherever it has to go. */
[[gnu::noinline]] void openAnywhere(Renderer& to, char bracket) {
   emit::separator(to);
   to.firstItem = true;
   emit::character(to, bracket);
}

/** Writes an unnamed opening. */
void open(Renderer& to, char bracket) {
   if (emit::hasEnoughRoom(to)) [[likely]] {
      PrintBuffer& buffer = *to.buffer;
      char* const out = emit::putSeparator(buffer.writePtr, to);
      to.firstItem = true;
      *out = bracket;
      buffer.writePtr = out + 1;
      return;
   }
   openAnywhere(to, bracket);
}

/** Writes a named opening the short way: the separator, what `putName` puts behind the opening
 * quote, and what follows it. False when it has to go the long way. */
template <class PutName, size_t Size>
[[gnu::always_inline]] inline bool openQuickly(Renderer& to, PutName putName,
                                               const char (&opening)[Size]) {
   if (!emit::hasEnoughRoom(to)) [[unlikely]]
      return false;
   PrintBuffer& buffer = *to.buffer;
   char* out = emit::putSeparator(buffer.writePtr, to);
   *out = '"';
   out = putName(out + 1);
   if (out == nullptr) [[unlikely]]
      return false;
   std::memcpy(out, opening, Size - 1);
   buffer.writePtr = out + Size - 1;
   to.firstItem = true;
   return true;
}

/** Writes a named opening wherever it has to go. */
[[gnu::noinline]] void openAnywhere(Renderer& to, const char* name, std::string_view opening) {
   emit::separator(to);
   to.firstItem = true;
   emit::raiseIfFailed(emit::piece(to, emit::kQuote, emit::text(name), opening));
}

/** Writes a name in quotes and what follows it, `":[` for instance. */
template <size_t Size>
[[gnu::always_inline]] inline void openNamed(Renderer& to, const char* name,
                                             const char (&opening)[Size]) {
   if (!openQuickly(
             to, [name](char* out) { return emit::putName(out, name); }, opening))
      openAnywhere(to, name, opening);
}

/** Puts the key of a dictionary entry; null when it has to go the long way, or is of no type that
 * can be one. */
char* putKey(char* out, const Attr32Info& info) {
   if (info.type == attrInt32)
      return text::putNumber(out, info.value.asInt32);
   if (info.type == attrUint32)
      return text::putNumber(out, info.value.asUint32);
   return info.type == attrString ? emit::putName(out, info.value.asString) : nullptr;
}
char* putKey(char* out, const Attr64Info& info) {
   return info.type == attrUint64 ? text::putNumber(out, info.value.asUint64) : nullptr;
}

/** Opens a dictionary entry; `hasKey` is the assertion that `info` is of a type that can be one. */
template <class Info, size_t Size>
void openEntry(Renderer& to, const Info& info, const char (&opening)[Size],
               const ZyFmt::Assertion& hasKey) {
   if (openQuickly(
             to, [&info](char* out) { return putKey(out, info); }, opening))
      return;
   if (info.type == attrString && std::is_same_v<Info, Attr32Info>)
      return openAnywhere(to, info.value.asString, opening);
   char digits[text::kNumberRoom<uint64_t> + 1];
   char* const end = putKey(digits, info);
   if (end == nullptr)
      hasKey.fail();
   *end = '\0';
   openAnywhere(to, digits, opening);
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
      openNamed(*this, name, kOpenList);
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
   openNamed(*this, name, kOpenObject);
}
void Renderer::startObj() {
   open(*this, '{');
}

void Renderer::endObj() {
   firstItem = false;
   emit::character(*this, '}');
}

void Renderer::startSimpleObj(const char* name) {
   openNamed(*this, name, emit::kColon);
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
   if (format != outputFormatText)
      openEntry(*this, info, kOpenObject, kEntryHasKey32);
}

void Renderer::startDictEntry(const Attr64Info& info) {
   if (format != outputFormatText)
      openEntry(*this, info, kOpenObject, kEntryHasKey64);
}

void Renderer::endDictEntry() {
   endSubmodel();
}

void Renderer::startSimpleDictEntry(const Attr32Info& info) {
   if (format != outputFormatText)
      openEntry(*this, info, emit::kColon, kSimpleEntryHasKey32);
}

void Renderer::startSimpleDictEntry(const Attr64Info& info) {
   if (format != outputFormatText)
      openEntry(*this, info, emit::kColon, kSimpleEntryHasKey64);
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
      kFrillsFormatIsKnown.fail();
   va_list list;
   va_start(list, fmt);
   text::ListArguments args(list);
   va_end(list);
   return emit::raiseIfFailed(emit::formatted(*this, fmt, args));
}

int Renderer::addVaFrillsWrapper(const char* fmt, int, va_list list) {
   if (format == outputFormatJson)
      return 0;
   if (format != outputFormatText)
      kWrapperFormatIsKnown.fail();
   text::ListArguments args(list);
   if (!buffered)
      return emit::formatAside(*buffer, fmt, args);
   const emit::Attempt attempt = emit::formatInPlace(*buffer, fmt, args);
   return attempt.fitted ? attempt.length : -1;
}

}  // namespace vorel
