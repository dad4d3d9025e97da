#include <vorel/render/PrinterV2.h>

namespace vorel {

PrinterV2::PrinterV2(int fd, unsigned format_)
      : RendererV2(static_cast<OutputFormat_t>(format_), nullptr, true),
        ownBuffer(fd, vorel_globalBufsize, 0) {
   buffer = &ownBuffer;
}

PrinterV2::~PrinterV2() = default;

}  // namespace vorel
