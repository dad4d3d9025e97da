// A plug-in, with hidden visibility, that brings the library along.
#include <vorel/interrupt/SigIntException.h>

extern "C" [[gnu::visibility("default")]] void throwInPlugin() {
   throw vorel::SigIntException();
}

extern "C" [[gnu::visibility("default")]] bool catchInPlugin(void (*function)()) {
   try {
      function();
   } catch (const vorel::SigIntException&) {
      return true;
   }
   return false;
}
