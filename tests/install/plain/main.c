/* A C program that calls every function of the library. */
#include <stddef.h>

#include <vorel/plain/PlainC.h>

int main(void) {
   const int nobody = 1 << 30; /* no thread has this id */
   vorel_Renderer* out = initPrinter(1, stringToOutputFormat("json"));
   start(out);
   startList(out, "interfaces");
   startListEntry(out);
   startSubmodel(out, "state");
   endSubmodel(out);
   endListEntry(out);
   endList(out);
   startDict(out, "speeds");
   startSimpleDictEntry(out, "eth0");
   startListEntry(out);
   endListEntry(out);
   endSimpleDictEntry(out);
   endDict(out);
   end(out);
   ioflush(out);
   deinitPrinter(out);

   out = initPrinter(1, outputFormatText);
   if (addFrills(out, "%s %d\n", 0, "mtu", 1500) != 9)
      return 1;
   setInterruptedForTest();
   if (addFrills(out, "not printed\n", 0) != -1)
      return 2;
   resetInterruptedForTest();
   deinitPrinter(out);
   deinitPrinter(NULL);

   vorel_setInterrupted(nobody);
   if (vorel_isInterrupted(nobody) != 1)
      return 3;
   vorel_resetInterrupted(nobody);
   if (vorel_isInterrupted(nobody) != 0)
      return 4;
   vorel_setInterrupted(nobody);
   vorel_delInterrupted(nobody);
   if (vorel_isInterrupted(nobody) != 0)
      return 5;
   return 0;
}
