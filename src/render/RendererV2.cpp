#include <vorel/render/RendererV2.h>

#include "render/Emit.h"

namespace vorel {

RendererV2::RendererV2(OutputFormat_t format_, PrintBuffer* buffer_, bool buffered_)
      : Renderer(format_, buffer_, buffered_) {}

RendererV2::~RendererV2() = default;

void RendererV2::writeQuotedString(const char* text) {
   const std::string_view all = emit::text(text);
   size_t runStart = 0;
   bool escaped = false;  // an odd number of backslashes stands before the character
   for (size_t i = 0; i < all.size(); ++i) {
      if (all[i] == '"' && !escaped) {
         emit::copyIntoArea(*buffer, all.substr(runStart, i - runStart));
         emit::copyIntoArea(*buffer, "\\\"");
         runStart = i + 1;
      }
      escaped = all[i] == '\\' && !escaped;
   }
   emit::copyIntoArea(*buffer, all.substr(runStart));
}

}  // namespace vorel
