// A program on the classes: what it reads from the headers must be in the library as well, inlined
// and devirtualised calls included. Its exception is one type to the library, the program and a
// plug-in, which the argument names.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/plain/PlainC.h>
#include <vorel/render/Printer.h>
#include <vorel/render/PrinterV2.h>
#include "render/RendererV2.h"  // the short name

namespace {

using Function = void();

/** A buffer of the program's own, whose writes call a function. */
class Calling : public vorel::PrintBuffer {
 public:
   explicit Calling(Function* function_) : function(function_) {}
   void flush() override {}
   void rawWrite(const char*, size_t) override { function(); }
   bool wouldBlock() override { return false; }
   uint64_t fullness() override { return 0; }
   void allocateSpace(size_t) override {}

   Function* function;
};

void print(vorel::Renderer& out, const char* name) {
   const vorel::Attr32Info mtu("mtu", 1500);
   const vorel::Attr64Info rate("rate", 2.5);
   out.start();
   out.startSubmodel(name);
   out.addAttributesJson(2, &mtu, &rate);
   out.endSubmodel();
   out.end();
   out.ioflush();
}

void throwInProgram() {
   throw vorel::SigIntException();
}

bool catchInProgram(Function* function) {
   try {
      function();
   } catch (const vorel::SigIntException&) {
      return true;
   }
   return false;
}

void catchInLibrary(Function* function) {
   Calling buffer(function);
   vorel::Renderer renderer(vorel::outputFormatJson, &buffer, false);
   start(&renderer);
}

bool exceptionsCross(const char* pluginFile) {
   void* const plugin = dlopen(pluginFile, RTLD_NOW | RTLD_LOCAL);
   if (plugin == nullptr) {
      std::puts(dlerror());
      return false;
   }
   auto* const throwInPlugin = reinterpret_cast<Function*>(dlsym(plugin, "throwInPlugin"));
   auto* const catchInPlugin =
         reinterpret_cast<bool (*)(Function*)>(dlsym(plugin, "catchInPlugin"));
   Function* const throwInLibrary = vorel::raiseSigIntIfNeeded;
   catchInLibrary(throwInProgram);
   catchInLibrary(throwInPlugin);
   vorel::setInterrupted();
   return catchInProgram(throwInLibrary) && catchInProgram(throwInPlugin) &&
          catchInPlugin(throwInLibrary) && catchInPlugin(throwInProgram);
}

}  // namespace

int main(int, char** argv) {
   vorel_globalBufsize = 64;
   vorel::PrinterV2 second(1, vorel::outputFormatJson);
   vorel::Renderer& base = second;
   if (second.ownBuffer.rlen() != 64 || dynamic_cast<vorel::PrinterV2*>(&base) != &second)
      return 1;
   print(second, "second");
   {
      vorel::PrinterConfig config;
      vorel::initPrinterConfig(config, 1, stringToOutputFormat("json"));
      vorel::Printer first(config);
      print(first, "first");
   }

   vorel::NonBlockingCliTxnBuffer growing(8);
   std::memcpy(growing.getBuffer(16), "kept\n", 5);
   growing.writePtr += 5;
   {
      vorel::NonBlockingCliTxnBuffer::Transaction transaction(&growing);
      std::memcpy(growing.getBuffer(100), "taken back\n", 11);
      growing.writePtr += 11;
   }
   while (growing.haveData())
      growing.writeSome(1);

   if (!exceptionsCross(argv[1]))
      return 2;
   std::puts("passed");
}
