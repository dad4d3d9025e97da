#include <vorel/plain/PlainC.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <vorel/interrupt/SigIntException.h>
#include <vorel/render/Printer.h>
#include <vorel/render/Renderer.h>

namespace {

constexpr ZyFmt::Assertion kTextIsPrinted = {
      "0", "PlainC", 196, "int addFrills(vorel::Renderer*, const char*, int, ...)"};

/** Calls a member; an interruption ends it quietly. */
template <class... Parameter, class... Argument>
void forward(vorel::Renderer* handle, void (vorel::Renderer::*member)(Parameter...),
             Argument&&... arguments) {
   try {
      (handle->*member)(arguments...);
   } catch (const vorel::SigIntException&) {
      // The interrupt flag stays set, so the rest of the document is skipped.
   }
}

}  // namespace

using vorel::Renderer;

vorel_OutputFormat stringToOutputFormat(const char* name) {
   const std::string_view word = name == nullptr ? "" : name;
   if (word == "text")
      return vorel::outputFormatText;
   if (word == "json")
      return vorel::outputFormatJson;
   return vorel::outputFormatUnknown;
}

Renderer* initPrinter(int fd, unsigned int format) {
   return new vorel::Printer(fd, format, true, false, false, 0);
}

void deinitPrinter(Renderer* handle) {
   delete handle;
}

void start(Renderer* handle) {
   forward(handle, &Renderer::start);
}
void end(Renderer* handle) {
   forward(handle, &Renderer::end);
}
// The same function by the name that the linkers take from compiled callers.
#pragma GCC visibility push(default)
extern "C" void endByName(Renderer* handle) __asm__("end") __attribute__((alias("vorel_end")));
#pragma GCC visibility pop

void startList(Renderer* handle, const char* name) {
   forward(handle, &Renderer::startList, name);
}
void endList(Renderer* handle) {
   forward(handle, &Renderer::endList);
}
void startListEntry(Renderer* handle) {
   forward(handle, &Renderer::startListEntry);
}
void endListEntry(Renderer* handle) {
   forward(handle, &Renderer::endListEntry);
}
void startSubmodel(Renderer* handle, const char* name) {
   forward(handle, &Renderer::startSubmodel, name);
}
void endSubmodel(Renderer* handle) {
   forward(handle, &Renderer::endSubmodel);
}
void startDict(Renderer* handle, const char* name) {
   forward(handle, &Renderer::startDict, name);
}
void endDict(Renderer* handle) {
   forward(handle, &Renderer::endDict);
}

void startSimpleDictEntry(Renderer* handle, const char* key) {
   vorel::Attr32Info info("attr", key);
   info.reservedFlag = true;
   info.reservedCount = 1;
   forward<const vorel::Attr32Info&>(handle, &Renderer::startSimpleDictEntry, info);
}

void endSimpleDictEntry(Renderer* handle) {
   forward(handle, &Renderer::endSimpleDictEntry);
}
void ioflush(Renderer* handle) {
   forward(handle, &Renderer::ioflush);
}

int addFrills(Renderer* handle, const char* fmt, int unused, ...) {
   va_list list;
   int length = 0;
   try {
      va_start(list, unused);
      length = handle->addVaFrillsWrapper(fmt, unused, list);
      va_end(list);
      if (length != -1)
         return length;
      // Room has been made: the same text fits now.
      va_start(list, unused);
      length = handle->addVaFrillsWrapper(fmt, unused, list);
      va_end(list);
   } catch (const vorel::SigIntException&) {
      return -1;
   }
   if (length >= 0 || vorel::isInterrupted())
      return length;
   const int error = errno;
   if (error == EPIPE)
      return length;
   std::printf("vorel '%s' longer than buffer (error: %s)\n", fmt, std::strerror(error));
   std::fflush(stdout);
   kTextIsPrinted.fail();
}

void setInterruptedForTest() {
   vorel::setInterrupted();
}
void resetInterruptedForTest() {
   vorel::resetInterrupted();
}
