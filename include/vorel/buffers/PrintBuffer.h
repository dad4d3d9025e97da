#pragma once

#include <cstdint>

#include <orv/Orv.h>
#include <vorel/ZyStrings/StringBuffer.h>
#include <vorel/buffers/TrackedAllocation.h>

#pragma GCC visibility push(default)

namespace vorel {

/**
 * What a renderer prints into: a write area and the ways its bytes go on.
 *
 * A writer uses a buffer through its write area or through rawWrite, never both: rawWrite does not
 * wait for committed bytes that have not been flushed. One thread at a time uses a buffer.
 */
class PrintBuffer : public Orv::PtrInterface,
                    public ZyFmt::DynamicBufferInterface,
                    public TrackedAllocation {
 public:
   // The host framework's base may bring operators of its own.
   using TrackedAllocation::operator new;
   using TrackedAllocation::operator new[];
   using TrackedAllocation::operator delete;
   using TrackedAllocation::operator delete[];

   ~PrintBuffer() override = default;
   /** Sends the committed bytes on. */
   virtual void flush() = 0;
   /** Sends `len` bytes on at once, past the write area. */
   virtual void rawWrite(const char* data, size_t len) = 0;
   /** Whether sending the committed bytes now could block. */
   virtual bool wouldBlock() = 0;
   /** Fill level of the write area in whole percent. */
   virtual uint64_t fullness() = 0;
};

}  // namespace vorel

#pragma GCC visibility pop
