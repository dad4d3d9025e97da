#include <vorel/render/Printer.h>

namespace vorel {

bool initPrinterConfig(PrinterConfig& config, int fd, unsigned format) {
   config = {fd, format, true, false, true, 0};
   return true;
}

namespace {

size_t areaSize(bool buffered, unsigned bufsize) {
   if (!buffered)
      return 0;
   return bufsize != 0 ? bufsize : vorel_globalBufsize;
}

}  // namespace

Printer::Printer(int fd, unsigned format_, bool resetInterrupt1, bool resetInterrupt2,
                 bool buffered_, unsigned bufsize)
      : Renderer(static_cast<OutputFormat_t>(format_), nullptr, buffered_),
        ownBuffer(fd, areaSize(buffered_, bufsize),
                  (resetInterrupt1 ? VorelBuffer::kResetInterrupt1 : 0) |
                        (resetInterrupt2 ? VorelBuffer::kResetInterrupt2 : 0)) {
   buffer = &ownBuffer;
}

Printer::Printer(const PrinterConfig& config)
      : Printer(config.fd, config.format, config.resetInterrupt1, config.resetInterrupt2,
                config.buffered, config.bufsize) {}

Printer::~Printer() = default;

}  // namespace vorel
