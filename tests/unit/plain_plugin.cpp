// A shared library, linked in the ordinary way and loaded at run time, that calls `end`.
#include <vorel/plain/PlainC.h>

extern "C" [[gnu::visibility("default")]] void endFromPlugin(vorel_Renderer* handle) {
   end(handle);
}
