#pragma once

#include <vorel/buffers/VorelBuffer.h>
#include <vorel/render/RendererV2.h>

#pragma GCC visibility push(default)

namespace vorel {

/** A second-generation renderer with a buffer of its own on a descriptor: always buffered, with
 * vorel_globalBufsize bytes, and leaving the thread's interrupt flag as it is. */
class PrinterV2 : public RendererV2 {
 public:
   VorelBuffer ownBuffer;

   /** `fd`, not 0, stays the caller's; `format` is an OutputFormat_t. Throws std::bad_alloc. */
   PrinterV2(int fd, unsigned format);
   ~PrinterV2() override;
};

}  // namespace vorel

#pragma GCC visibility pop
