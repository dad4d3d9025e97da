#include <vorel/render/RendererV2.h>

#include "render/Emit.h"

namespace vorel {

namespace {

void write(PrintBuffer& buffer, std::string_view run) {
   if (run.empty())  // the write area may be null
      return;
   buffer.writePtr = text::put(buffer.getBuffer(run.size()), run);
}

}  // namespace

RendererV2::RendererV2(OutputFormat_t format_, PrintBuffer* buffer_, bool buffered_)
      : Renderer(format_, buffer_, buffered_) {}

RendererV2::~RendererV2() = default;

void RendererV2::writeQuotedString(const char* text) {
   const std::string_view all = emit::text(text);
   size_t runStart = 0;
   bool escaped = false;  // an odd number of backslashes stands before the character
   for (size_t i = 0; i < all.size(); ++i) {
      if (all[i] == '"' && !escaped) {
         write(*buffer, all.substr(runStart, i - runStart));
         write(*buffer, "\\\"");
         runStart = i + 1;
      }
      escaped = all[i] == '\\' && !escaped;
   }
   write(*buffer, all.substr(runStart));
}

}  // namespace vorel
