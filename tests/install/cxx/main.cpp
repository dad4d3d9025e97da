// A program on the classes: what it reads from the headers must be in the library as well, inlined
// and devirtualised calls included.
#include <cstdio>
#include <cstring>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/plain/PlainC.h>
#include <vorel/render/Printer.h>
#include <vorel/render/PrinterV2.h>

namespace {

/** A buffer of the program's own. */
class Interrupting : public vorel::PrintBuffer {
 public:
   void flush() override {}
   void rawWrite(const char*, size_t) override { throw vorel::SigIntException(); }
   bool wouldBlock() override { return false; }
   uint64_t fullness() override { return 0; }
   void allocateSpace(size_t) override {}
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

bool isInterrupted(vorel::Renderer& out) {
   try {
      out.start();
   } catch (const vorel::SigIntException&) {
      return true;
   }
   return false;
}

}  // namespace

int main() {
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

   Interrupting interrupting;
   vorel::Renderer renderer(vorel::outputFormatJson, &interrupting, false);
   if (!isInterrupted(renderer))
      return 2;
   start(&renderer);  // the library catches what the program throws
   vorel::setInterrupted();
   vorel::Printer interrupted(1, vorel::outputFormatJson, false, false, false, 0);
   if (!isInterrupted(interrupted))  // and the program what the library throws
      return 3;
   std::puts("passed");
}
