#include "render/Renderer.h"

#include "render/Arguments.h"
#include "render/Emit.h"

namespace vorel {

namespace {

constexpr char kOpenList[] = "\":[";
constexpr char kOpenObject[] = "\":{";

/** Writes an unnamed opening. */
void open(Renderer& to, char bracket) {
   if (emit::hasEnoughRoom(to)) [[likely]] {
      char* const out = emit::putSeparator(to.buffer->writePtr, to);
      to.firstItem = true;
      *out = bracket;
      to.buffer->writePtr = out + 1;
      return;
   }
   emit::separator(to);
   to.firstItem = true;
   emit::character(to, bracket);
}

[[gnu::noinline]] void openNamedAnywhere(Renderer& to, const char* name, std::string_view opening) {
   emit::separator(to);
   to.firstItem = true;
   emit::raiseIfFailed(emit::piece(to, emit::kQuote, emit::text(name), opening));
}

/** Writes a name in quotes and what follows it, `":[` for instance. */
template <size_t Size>
void openNamed(Renderer& to, const char* name, const char (&opening)[Size]) {
   if (emit::hasEnoughRoom(to)) [[likely]] {
      char* out = emit::putSeparator(to.buffer->writePtr, to);
      *out++ = '"';
      out = emit::putName(out, name);
      if (out != nullptr) [[likely]] {
         std::memcpy(out, opening, Size - 1);
         to.buffer->writePtr = out + Size - 1;
         to.firstItem = true;
         return;
      }
   }
   openNamedAnywhere(to, name, {opening, Size - 1});
}

/** The text of a dictionary entry's key. */
class Key {
 public:
   Key(const Attr32Info& info, unsigned line, const char* function) : text_(digits_) {
      if (info.type == attrInt32)
         set(info.value.asInt32);
      else if (info.type == attrUint32)
         set(info.value.asUint32);
      else if (info.type == attrString)
         text_ = info.value.asString;
      else
         emit::impossible(line, function);
   }
   Key(const Attr64Info& info, unsigned line, const char* function) : text_(digits_) {
      if (info.type == attrUint64)
         set(info.value.asUint64);
      else
         emit::impossible(line, function);
   }
   Key(const Key&) = delete;
   Key& operator=(const Key&) = delete;
   const char* text() const { return text_; }

 private:
   template <class Integer>
   void set(Integer number) {
      static_assert(sizeof digits_ > kNumberRoom<Integer>);
      *putNumber(digits_, number) = '\0';
   }

   char digits_[kNumberRoom<uint64_t> + 1];
   const char* text_;
};

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
   openNamed(*this, key.text(), emit::kColon);
}

void Renderer::startSimpleDictEntry(const Attr64Info& info) {
   if (format == outputFormatText)
      return;
   const Key key(info, 206, "void vorel::Renderer::startSimpleDictEntry(const vorel::Attr64Info&)");
   openNamed(*this, key.text(), emit::kColon);
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
      emit::impossible(503, "int vorel::Renderer::addFrills(const char*, ...)");
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
      emit::impossible(375,
                       "int vorel::Renderer::addVaFrillsWrapper(const char*, int, __va_list_tag*)");
   ListArguments args(list);
   if (!buffered)
      return emit::formatAside(*buffer, fmt, args);
   const emit::Attempt attempt = emit::formatInPlace(*buffer, fmt, args);
   return attempt.fitted ? attempt.length : -1;
}

}  // namespace vorel
