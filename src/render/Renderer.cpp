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

constexpr std::string_view kOpenList = "\":[";
constexpr std::string_view kOpenObject = "\":{";

[[gnu::noinline]] void openSlow(Renderer& to, char bracket) {
   emit::separator(to);
   to.firstItem = true;
   emit::character(to, bracket);
}

/** Writes an unnamed opening. */
void open(Renderer& to, char bracket) {
   if (!emit::hasEnoughRoom(to)) [[unlikely]]
      return openSlow(to, bracket);
   PrintBuffer& buffer = *to.buffer;
   char* const out = emit::putSeparator(buffer.writePtr, to.firstItem);
   to.firstItem = true;
   *out = bracket;
   buffer.writePtr = out + 1;
}

/** Writes a named opening on the fast path, if it can go there: `putName` puts the name, or returns
 * null. */
template <class PutName>
[[gnu::always_inline]] inline bool openFast(Renderer& to, PutName putName,
                                            std::string_view opening) {
   if (!emit::hasEnoughRoom(to)) [[unlikely]]
      return false;
   PrintBuffer& buffer = *to.buffer;
   char* out = emit::putSeparator(buffer.writePtr, to.firstItem);
   *out = '"';
   out = putName(out + 1);
   if (out == nullptr) [[unlikely]]
      return false;
   buffer.writePtr = emit::putConstant(out, opening);
   to.firstItem = true;
   return true;
}

[[gnu::noinline]] void openSlow(Renderer& to, const char* name, std::string_view opening) {
   emit::separator(to);
   to.firstItem = true;
   emit::raiseIfFailed(emit::piece(to, {emit::kQuote, emit::text(name), opening}));
}

/** Writes a named opening; `opening` is what follows the name, from its closing quote on. */
[[gnu::always_inline]] inline void openNamed(Renderer& to, const char* name,
                                             std::string_view opening) {
   const auto putName = [name](char* out) { return emit::putName(out, name); };
   if (!openFast(to, putName, opening))
      openSlow(to, name, opening);
}

/** Puts the key of a dictionary entry; null when it has to go on the slow path, or is of no type
 * that can be one. */
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
template <class Info>
void openEntry(Renderer& to, const Info& info, std::string_view opening,
               const ZyFmt::Assertion& hasKey) {
   const auto putName = [&info](char* out) { return putKey(out, info); };
   if (openFast(to, putName, opening))
      return;
   if (info.type == attrString && std::is_same_v<Info, Attr32Info>)
      return openSlow(to, info.value.asString, opening);
   char digits[text::kNumberRoom<uint64_t> + 1];
   char* const end = putKey(digits, info);
   if (end == nullptr)
      hasKey.fail();
   *end = '\0';
   openSlow(to, digits, opening);
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
