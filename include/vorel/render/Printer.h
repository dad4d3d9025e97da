#pragma once

#include <cstdint>

#include <vorel/buffers/VorelBuffer.h>
#include <vorel/render/Renderer.h>

#pragma GCC visibility push(default)

namespace vorel {

/** The settings of a printer; initPrinterConfig gives them their defaults. */
struct PrinterConfig {
   int fd;                ///< The descriptor to print to, not 0. It stays the caller's.
   uint32_t format;       ///< An OutputFormat_t.
   bool resetInterrupt1;  ///< Either resets the constructing thread's interrupt flag.
   bool resetInterrupt2;
   bool buffered;     ///< Without, each piece is its own write.
   uint32_t bufsize;  ///< Write area in bytes; 0 means vorel_globalBufsize.
};

/** Fills all fields: a buffered printer with a write area of the default size, which resets the
 * interrupt flag of the thread that builds it. Returns true. */
bool initPrinterConfig(PrinterConfig& config, int fd, unsigned format);

/** A renderer with a buffer of its own on a descriptor. What is pending when it is destroyed is
 * written out, unless the thread is interrupted; call ioflush first to learn of failures. */
class Printer : public Renderer {
 public:
   VorelBuffer ownBuffer;

   /** The settings of PrinterConfig. Throws std::bad_alloc. */
   Printer(int fd, unsigned format, bool resetInterrupt1, bool resetInterrupt2, bool buffered,
           unsigned bufsize);
   explicit Printer(const PrinterConfig& config);
   ~Printer() override;
};

}  // namespace vorel

#pragma GCC visibility pop
