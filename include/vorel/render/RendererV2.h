#pragma once

#include <deque>

#include <vorel/render/Renderer.h>

#pragma GCC visibility push(default)

namespace vorel {

/** The second-generation renderer. */
class RendererV2 : public Renderer {
 public:
   std::deque<bool> flags;  ///< Empty; used by no operation.

   RendererV2(OutputFormat_t format, PrintBuffer* buffer, bool buffered);
   ~RendererV2() override;

   /**
    * Copies `text` with a backslash before every double quote that has none yet (an odd number of
    * backslashes before a quote escapes it). No other character is escaped, no quotes are put
    * around the text, and the format does not matter. Always uses the buffer's write area, so it
    * is for buffered renderers.
    */
   void writeQuotedString(const char* text);
};

}  // namespace vorel

#pragma GCC visibility pop
