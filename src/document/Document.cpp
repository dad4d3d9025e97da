#include <vorel/document/Document.h>

#include <cstdio>
#include <cstring>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>

namespace vorel {

WriteError::WriteError(int error) noexcept : error_(error) {
   char reason[100];
   std::snprintf(what_, sizeof what_, "cannot write: %s", strerror_r(error, reason, sizeof reason));
}
WriteError::~WriteError() = default;

const char* WriteError::what() const noexcept {
   return what_;
}

void detail::rethrow() {
   if (const int error = writeError(); error != 0)
      throw WriteError(error);
   throw;
}

Document::Document(Renderer& out) : output_(out) {
   out.start();
   out.firstItem = true;
}

Document::~Document() = default;

void Document::end() {
   try {
      raiseSigIntIfNeeded();
      output_.closeDocument();
      Renderer& out = output_.renderer();
      const auto* const unsent = dynamic_cast<NonBlockingCliTxnBuffer*>(out.buffer);
      if (unsent == nullptr)  // otherwise its owner sends
         out.ioflush();
   } catch (const SigIntException&) {
      detail::rethrow();
   }
}

}  // namespace vorel
