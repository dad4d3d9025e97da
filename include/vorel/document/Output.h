#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <vorel/document/Format.h>
#include <vorel/document/Scratch.h>
#include <vorel/interrupt/SigIntException.h>
#include <vorel/render/Renderer.h>

namespace vorel::detail {

#pragma GCC visibility push(default)

/**
 * What the handles of a document share: where the bytes of a call go, and which scopes are open.
 *
 * The bytes of a call are one piece. They are put where room() says, at most as many as it was
 * asked for, and committed by finish(): in the write area, if it has room for the most that they
 * can be, otherwise aside. What throws before finish() has written nothing.
 */
class Output {
 public:
   explicit Output(Renderer& renderer);
   Output(const Output&) = delete;
   Output& operator=(const Output&) = delete;
   ~Output();

   /** Throws SigIntException when the thread is marked interrupted. */
   static void checkInterrupt() {
      if (markedThreads.load(std::memory_order_acquire) != 0) [[unlikely]]
         raiseSigIntIfNeeded();
   }

   Renderer& renderer() { return *renderer_; }
   bool isJson() const { return json_; }

   /** A place for `most` bytes, until finish. */
   char* room(size_t most) {
      PrintBuffer& buffer = *buffer_;
      if (direct_ && buffer.rlen() >= most) [[likely]]
         return buffer.writePtr;
      return roomAside(most);
   }
   /** Commits the bytes from `start`, where room was, up to `end`. */
   void finish(char* start, char* end) {
      PrintBuffer& buffer = *buffer_;
      if (start == buffer.writePtr) [[likely]]
         buffer.writePtr = end;
      else
         sendAside(end);
   }

   /** An open scope. Its id is greater than those of the scopes around it, and is never given
    * again. */
   struct OpenScope {
      uint64_t id;
      char closing;  ///< The bracket that closes it in JSON.
   };

   /** How many bytes closing all scopes but the outermost takes at most. */
   size_t closingsRoom() const { return static_cast<size_t>(innermost_ - scopes_); }
   /** Puts the brackets that close the scopes within scope `id`, and finds that scope; sets `comma`
    * to whether its next item needs one. Stops the process when that scope is closed. */
   [[gnu::always_inline]] char* putClosings(char* out, uint64_t id, OpenScope*& scope,
                                            bool& comma) {
      scope = innermost_;
      comma = scope->id != id || !renderer_->firstItem;
      for (; scope->id > id; --scope)
         *out++ = scope->closing;
      if (scope->id != id) [[unlikely]]
         failStale();
      return out;
   }
   /** The same for where scopes are rarely open: smaller code in the caller. */
   [[gnu::always_inline]] char* putRareClosings(char* out, uint64_t id, OpenScope*& scope,
                                                bool& comma) {
      scope = innermost_;
      comma = !renderer_->firstItem;
      return scope->id == id ? out : putClosingsAside(out, id, scope, comma);
   }
   /** After finish: makes `scope` the innermost one, whose next item needs a comma or not. */
   void stayIn(OpenScope* scope, bool comma) {
      innermost_ = scope;
      renderer_->firstItem = !comma;
   }
   /** After finish: opens a scope in `parent`, for which makeScope has made room. */
   uint64_t openIn(OpenScope* parent, char closing) {
      innermost_ = parent + 1;
      *innermost_ = {++lastId_, closing};
      return lastId_;
   }
   /** Before room is asked for: makes sure that one more scope can be opened. */
   void makeScope() {
      if (innermost_ + 1 == scopesEnd_) [[unlikely]]
         growScopes();
   }
   OpenScope* innermost() { return innermost_; }

   /** In text: closes the scopes within scope `id`. */
   void closeInText(uint64_t id) {
      if (innermost_->id != id) [[unlikely]]
         closeInTextSlow(id);
   }
   /** Closes the scopes within scope `id`, in either output, as a piece of its own. */
   void close(uint64_t id);
   /** Closes all scopes and the document that they are in. */
   void closeDocument();

   /** Prints, in text, what holds no fields; `hasBraces` says that braces in it are doubled. */
   void printPlain(uint64_t id, std::string_view text, bool hasBraces);
   /** Prints, in text, the headings of fields with the text between them. */
   void printHeading(uint64_t id, const char* text, const Field* fields, size_t count);

   /** What is made of ranges, while a call runs. */
   Scratch& pool() { return pool_; }

 private:
   [[gnu::noinline]] char* putClosingsAside(char* out, uint64_t id, OpenScope*& scope,
                                            bool& comma) {
      return putClosings(out, id, scope, comma);
   }
   char* roomAside(size_t most);
   void sendAside(char* end);
   void growScopes();
   void closeInTextSlow(uint64_t id);
   [[noreturn]] static void failStale();

   Renderer* renderer_;
   PrintBuffer* buffer_;
   bool json_;
   bool direct_;  // buffered: bytes may go straight into the write area
   OpenScope* innermost_;
   OpenScope* scopes_;  // the outermost; before it stands one with the id 0
   OpenScope* scopesEnd_;
   uint64_t lastId_ = 1;
   Scratch aside_;
   Scratch pool_;
   static constexpr size_t kFewScopes = 24;
   OpenScope fewScopes_[kFewScopes];
};

#pragma GCC visibility pop

}  // namespace vorel::detail
