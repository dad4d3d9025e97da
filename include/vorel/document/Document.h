#pragma once

#include <utility>

#include <vorel/document/Duration.h>
#include <vorel/document/Output.h>
#include <vorel/document/Scopes.h>
#include <vorel/interrupt/SigIntException.h>
#include <vorel/render/Renderer.h>

namespace vorel {

#pragma GCC visibility push(default)

/** Ends the output of a document of which a write has failed. */
class WriteError : public SigIntException {
 public:
   explicit WriteError(int error) noexcept;
   ~WriteError() override;
   /** "cannot write: " and what the error is. */
   const char* what() const noexcept override;
   /** The errno of the write. */
   int error() const noexcept { return error_; }

 private:
   int error_;
   char what_[128];
};

/**
 * A document in pieces, for hosts that cannot wrap it in one call of vorel::document.
 *
 * The renderer, of a known format, outlives it; nobody else uses the renderer meanwhile, unless a
 * handle gives it. The destructor writes nothing.
 */
class Document {
 public:
   /** Starts the document. Throws as a renderer's start does. */
   explicit Document(Renderer& out);
   Document(const Document&) = delete;
   Document& operator=(const Document&) = delete;
   ~Document();

   /** The object that the document is. */
   Object root() { return {&output_, kRoot}; }
   /** Closes all scopes and the document, and flushes the buffer, unless it is one that its owner
    * sends. Throws WriteError when a write has failed, now or before, and SigIntException when the
    * thread is interrupted. */
   void end();

 private:
   static constexpr uint64_t kRoot = 1;

   detail::Output output_;
};

namespace detail {
/** To be called in a handler of SigIntException: throws what a document ends with. */
[[noreturn]] void rethrow();
}  // namespace detail

#pragma GCC visibility pop

/** Prints a document: `body(vorel::Object)` prints its members. Closes what is open and flushes, as
 * Document::end does. When `body` throws, nothing more is written; a SigIntException becomes a
 * WriteError if a write has failed. */
template <class Body>
void document(Renderer& out, Body&& body) {
   try {
      Document document(out);
      std::forward<Body>(body)(document.root());
      document.end();
   } catch (const SigIntException&) {
      detail::rethrow();
   }
}

/** Prints members at the place where a renderer stands, in an object that it has opened:
 * `body(vorel::Object)` prints them, and the scopes that it has opened are closed. */
template <class Body>
void within(Renderer& out, Body&& body) {
   detail::Output output(out);
   std::forward<Body>(body)(Object(&output, output.innermost()->id));
   output.close(1);
}

}  // namespace vorel
