#include "render/Emit.h"

namespace vorel::emit {

void copyIntoArea(PrintBuffer& buffer, std::string_view text) {
   if (!text.empty())  // the write area may be null
      buffer.writePtr = text::put(buffer.getBuffer(text.size()), text);
}

void copy(Renderer& to, std::string_view text) {
   if (to.buffered)
      copyIntoArea(*to.buffer, text);
   else
      to.buffer->rawWrite(text.data(), text.size());
}

void copy(Renderer& to, char c) {
   copy(to, std::string_view(&c, 1));
}

namespace {

char* put(char* out, std::initializer_list<std::string_view> parts) {
   for (const std::string_view part : parts)
      out = text::put(out, part);
   return out;
}

}  // namespace

int piece(Renderer& to, std::initializer_list<std::string_view> parts) {
   PrintBuffer& buffer = *to.buffer;
   size_t length = 0;
   for (const std::string_view part : parts)
      length += part.size();
   if (to.buffered)
      buffer.getBuffer(1);
   if (length > INT_MAX)
      return -1;
   if (to.buffered) {
      buffer.writePtr = put(buffer.getBuffer(length + 1), parts);
   } else {
      PieceRoom room(length);
      if (room.start() == nullptr)
         return -1;
      put(room.start(), parts);
      buffer.rawWrite(room.start(), length);
   }
   return static_cast<int>(length);
}

}  // namespace vorel::emit
