#pragma once

#include <cstddef>

#include <vorel/render/Renderer.h>

namespace vorel {

/** What getArgLenList finds out about a format, and how far it got. */
struct FormatScan {
   int argLens[kMaxConversions];
   int pieceEnds[kMaxConversions];
   bool isFloat[kMaxConversions];
   int count;      // conversions, one left open at the end included
   int closed;     // entries in the arrays
   size_t length;  // of the format; if it is more than INT_MAX, the piece ends are of no use

   explicit FormatScan(const char* fmt);
};

}  // namespace vorel
