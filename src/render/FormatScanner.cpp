#include <cstring>

#include "render/Renderer.h"

namespace vorel {

namespace {

/** What closes a conversion. */
struct Closing {
   int size;  // of the argument in bytes; 0 when the character closes nothing
   bool isFloat;
   size_t length;  // characters up to and with the conversion character
};

Closing classify(const char* at) {
   switch (*at) {
      case 'l': {  // sizes an integer only directly before it, alone or doubled
         const size_t modifiers = at[1] == 'l' ? 2 : 1;
         switch (at[modifiers]) {
            case 'd':
            case 'i':
            case 'u':
            case 'x':
            case 'X':
               return {8, false, modifiers + 1};
            default:
               return {0, false, 1};
         }
      }
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
         return {8, true, 1};
      case 's':
      case 'p':
         return {8, false, 1};
      case 'c':
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
         return {4, false, 1};
      default:
         return {0, false, 1};
   }
}

}  // namespace

int getArgLenList(const char* fmt, int* argLens, int* pieceEnds, bool* isFloat) {
   const size_t length = std::strlen(fmt);
   int count = 0;   // conversions started and not cancelled
   int closed = 0;  // conversions closed, with an entry in the arrays
   bool open = false;
   bool backslash = false;  // the character before, outside a conversion
   for (size_t i = 0; i < length;) {
      const char c = fmt[i];
      if (!open) {
         ++i;
         if (c != '%') {
            backslash = c == '\\';
         } else if (backslash) {
            backslash = false;
         } else {
            open = true;
            if (++count > kMaxConversions)
               __assert_fail("0", "Renderer", 622,
                             "int vorel::getArgLenList(const char*, int*, int*, bool*)");
         }
         continue;
      }
      if (c == '%') {
         ++i;
         --count;
         open = false;
         continue;
      }
      const Closing closing = classify(fmt + i);
      i += closing.length;
      if (closing.size == 0)
         continue;
      argLens[closed] = closing.size;
      isFloat[closed] = closing.isFloat;
      pieceEnds[closed] = static_cast<int>(i);
      ++closed;
      open = false;
   }
   if (closed > 0)  // the last piece runs to the end of the format
      pieceEnds[closed - 1] = static_cast<int>(length);
   return count;
}

}  // namespace vorel
