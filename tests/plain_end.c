/* A C program, linked in the ordinary way: its call of `end` must reach the library, and not the
 * symbol of that name that linkers define. Prints a document on standard output. */
#include "plain/PlainC.h"

int main(void) {
   vorel_Renderer* out = initPrinter(1, stringToOutputFormat("json"));
   start(out);
   startList(out, "list");
   endList(out);
   end(out);
   deinitPrinter(out);
   return 0;
}
