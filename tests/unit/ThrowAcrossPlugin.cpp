// A plug-in of ThrowAcrossTest, with hidden visibility; all it shows are these functions.
#include <vorel/interrupt/SigIntException.h>
#include <vorel/plain/PlainC.h>
#include <vorel/render/Renderer.h>

namespace {

class ThrowingBuffer : public vorel::PrintBuffer {
 public:
   void flush() override {}
   void rawWrite(const char*, size_t) override { throw vorel::SigIntException(); }
   bool wouldBlock() override { return false; }
   uint64_t fullness() override { return 0; }
   void allocateSpace(size_t) override {}
};

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void throwInLibrary() {
   vorel::setInterrupted();
   try {
      vorel::raiseSigIntIfNeeded();
   } catch (...) {
      vorel::resetInterrupted();
      throw;
   }
}

void throwInPlugin() {
   throw vorel::SigIntException();
}

bool catchInPlugin(void (*function)()) {
   try {
      function();
   } catch (const vorel::SigIntException&) {
      return true;
   }
   return false;
}

void catchInLibrary() {
   ThrowingBuffer buffer;
   vorel::Renderer renderer(vorel::outputFormatJson, &buffer, false);
   start(&renderer);
}
}
#pragma GCC visibility pop
