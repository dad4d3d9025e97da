#pragma once

namespace vorel::interrupt {

/** Sets the calling thread's flag after a write that has failed with `error`. */
void setInterruptedByWrite(int error);

}  // namespace vorel::interrupt
