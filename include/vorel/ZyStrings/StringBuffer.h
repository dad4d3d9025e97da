#pragma once

#include <cstddef>

#include <vorel/ZyStrings/Assertion.h>

#pragma GCC visibility push(default)

namespace ZyFmt {

namespace assertions {
inline constexpr Assertion kRoomWasMade = {
      "endPtr - writePtr >= ptrdiff_t( required )", "ZyStrings/StringBuffer", 94,
      "char* ZyFmt::DynamicBufferInterface::getBuffer(size_t)"};
}

/**
 * A growable write area: a stretch of free bytes, [writePtr, endPtr), that writers fill in place.
 *
 * A writer asks for room with getBuffer, stores bytes at writePtr, and commits them by advancing
 * writePtr. Bytes before writePtr are output and belong to the buffer; bytes from writePtr on are
 * scratch. Every call that can reach allocateSpace may move both pointers to other memory, so a
 * writer reads them again after it.
 *
 * One thread at a time uses a write area.
 */
class DynamicBufferInterface {
 public:
   char* writePtr = nullptr;  ///< Next free byte. Writers move it forward, buffers anywhere.
   char* endPtr = nullptr;    ///< One past the last free byte. Moved by the buffer alone.

   /** Makes at least `count` bytes free; all committed bytes stay in the output, in order. */
   virtual void allocateSpace(size_t count) = 0;
   virtual ~DynamicBufferInterface() = default;

   /** Count of free bytes. */
   size_t rlen() const { return static_cast<size_t>(endPtr - writePtr); }

   /** Makes sure that `required` bytes are free and returns writePtr, which it never advances.
    * Stops the process when the buffer could not make the room. */
   char* getBuffer(size_t required) {
      if (endPtr - writePtr < static_cast<ptrdiff_t>(required))
         grow(required);
      return writePtr;
   }

 private:
   [[gnu::noinline, gnu::cold]] void grow(size_t required) {
      allocateSpace(required);
      if (endPtr - writePtr < static_cast<ptrdiff_t>(required))
         assertions::kRoomWasMade.fail();
   }
};

}  // namespace ZyFmt

#pragma GCC visibility pop
