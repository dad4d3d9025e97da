#include <vorel/document/Output.h>

#include <algorithm>
#include <cstring>
#include <new>

#include <vorel/ZyStrings/Assertion.h>
#include <vorel/buffers/VorelBuffer.h>
#include <vorel/document/Text.h>

namespace vorel::detail {

namespace {

constexpr ZyFmt::Assertion kFormatIsKnown = {"format is text or JSON", "Document", 12,
                                             "vorel::Document::Document(vorel::Renderer&)"};
constexpr ZyFmt::Assertion kScopeIsOpen = {"scope is open", "Document", 34,
                                           "vorel::Scope::use() const"};

}  // namespace

Output::Output(Renderer& renderer)
      : renderer_(&renderer),
        buffer_(renderer.buffer),
        json_(renderer.format != outputFormatText),
        direct_(renderer.buffered),
        innermost_(fewScopes_ + 1),
        scopes_(innermost_),
        scopesEnd_(fewScopes_ + kFewScopes) {
   if (renderer.format != outputFormatText && renderer.format != outputFormatJson)
      kFormatIsKnown.fail();
   fewScopes_[0] = {0, '\0'};
   fewScopes_[1] = {lastId_, '}'};
}

Output::~Output() {
   if (scopes_ != fewScopes_ + 1)
      delete[](scopes_ - 1);
}

void Output::failStale() {
   kScopeIsOpen.fail();
}

void Output::growScopes() {
   const auto count = static_cast<size_t>(scopesEnd_ - (scopes_ - 1));
   auto* const grown = new OpenScope[count * 2];
   std::copy(scopes_ - 1, scopesEnd_, grown);
   innermost_ = grown + 1 + (innermost_ - scopes_);
   if (scopes_ != fewScopes_ + 1)
      delete[](scopes_ - 1);
   scopes_ = grown + 1;
   scopesEnd_ = grown + count * 2;
}

char* Output::roomAside(size_t most) {
   return aside_.room(most);
}

namespace {

void put(PrintBuffer& buffer, std::string_view bytes) {
   if (bytes.empty())
      return;
   std::memcpy(buffer.writePtr, bytes.data(), bytes.size());
   buffer.writePtr += bytes.size();
}

/** Fills a write area of a fixed size as often as a piece takes. */
void fill(VorelBuffer& buffer, std::string_view piece) {
   char* const before = buffer.writePtr;
   bool sent = false;
   while (piece.size() > buffer.rlen()) {
      const size_t room = buffer.rlen();
      put(buffer, piece.substr(0, room));
      try {
         buffer.allocateSpace(1);
      } catch (const std::bad_alloc&) {
         if (!sent)  // so nothing of the piece has been written
            buffer.writePtr = before;
         throw;
      }
      sent = true;
      piece.remove_prefix(room);
   }
   put(buffer, piece);
}

}  // namespace

void Output::sendAside(char* end) {
   struct Emptied {
      Scratch& aside;
      ~Emptied() { aside.cut(0); }
   } emptied{aside_};
   aside_.keep(end);
   const std::string_view piece = aside_.from(0);
   if (piece.empty())
      return;
   if (!direct_)
      return buffer_->rawWrite(piece.data(), piece.size());
   if (auto* const blocking = dynamic_cast<VorelBuffer*>(buffer_))
      return fill(*blocking, piece);
   buffer_->getBuffer(piece.size());
   put(*buffer_, piece);
}

void Output::closeInTextSlow(uint64_t id) {
   OpenScope* at = innermost_;
   while (at->id > id)
      --at;
   if (at->id != id)
      failStale();
   innermost_ = at;
}

void Output::close(uint64_t id) {
   if (!json_)
      return closeInText(id);
   if (innermost_->id == id)
      return;
   char* const start = room(closingsRoom());
   OpenScope* scope = nullptr;
   bool comma = false;
   char* const end = putClosings(start, id, scope, comma);
   finish(start, end);
   stayIn(scope, comma);
}

void Output::closeDocument() {
   if (!json_)
      return closeInText(scopes_->id);
   constexpr char kEnd[] = "}\n";
   char* const start = room(closingsRoom() + sizeof kEnd);
   OpenScope* scope = nullptr;
   bool comma = false;
   finish(start, putLiteral(putClosings(start, scopes_->id, scope, comma), kEnd));
   innermost_ = scopes_ - 1;  // no handle is of use from now on
}

void Output::printPlain(uint64_t id, std::string_view text, bool hasBraces) {
   if (json_)
      return close(id);
   closeInText(id);
   char* const start = room(text.size());
   char* out = start;
   if (!hasBraces)
      out = putBytes(out, text);
   for (size_t i = 0; hasBraces && i < text.size(); ++i) {
      *out++ = text[i];
      if (text[i] == '{' || text[i] == '}')
         ++i;  // one of two stands
   }
   finish(start, out);
}

namespace {

/** The side of a column's heading, which knows the style of its column and not the values. */
char sideOfHeading(const Style& style) {
   if (style.align != '\0')
      return style.align;
   return style.type != '\0' && !isIn("cs", style.type) ? '>' : '<';
}

}  // namespace

void Output::printHeading(uint64_t id, const char* text, const Field* fields, size_t count) {
   if (json_)
      return close(id);
   closeInText(id);
   size_t most = fields[count].textEnd;
   for (size_t i = 0; i < count; ++i)
      most += fields[i].heading.size() + paddingRoom(fields[i].style);
   char* const start = room(most);
   char* out = start;
   for (size_t i = 0; i <= count; ++i) {
      const Field& field = fields[i];
      out = putBytes(out, {text + field.textBegin, field.textEnd - field.textBegin});
      if (i != count && !field.jsonOnly)
         out = putPadded(out, field.style, sideOfHeading(field.style), field.heading);
   }
   finish(start, out);
}

}  // namespace vorel::detail
