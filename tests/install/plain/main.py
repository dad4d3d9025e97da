"""The same from Python, with the functions looked up by name. Argument: the library."""

import ctypes
import sys

library = ctypes.CDLL(sys.argv[1])
library.initPrinter.restype = ctypes.c_void_p


def printer(format_name):
    return ctypes.c_void_p(library.initPrinter(1, library.stringToOutputFormat(format_name)))


out = printer(b"json")
library.start(out)
library.startList(out, b"interfaces")
library.startListEntry(out)
library.startSubmodel(out, b"state")
library.endSubmodel(out)
library.endListEntry(out)
library.endList(out)
library.startDict(out, b"speeds")
library.startSimpleDictEntry(out, b"eth0")
library.startListEntry(out)
library.endListEntry(out)
library.endSimpleDictEntry(out)
library.endDict(out)
library.end(out)
library.ioflush(out)
library.deinitPrinter(out)

out = printer(b"text")
assert library.addFrills(out, b"%s %d\n", 0, b"mtu", 1500) == 9
library.setInterruptedForTest()
assert library.addFrills(out, b"not printed\n", 0) == -1
library.resetInterruptedForTest()
library.deinitPrinter(out)

nobody = 1 << 30
library.vorel_setInterrupted(nobody)
assert library.vorel_isInterrupted(nobody) == 1
library.vorel_resetInterrupted(nobody)
library.vorel_delInterrupted(nobody)
assert library.vorel_isInterrupted(nobody) == 0
