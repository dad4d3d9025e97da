#pragma once

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "render/Number.h"
#include "render/Renderer.h"

// The primitives that all output of a renderer goes through. A piece is a text that is written as
// a whole; it fits the write area when it leaves at least one byte free, as a formatter's text does
// with its NUL. Functions that write a piece return its length, or a negative number when it could
// not be formatted and nothing was written.
namespace vorel::emit {

inline std::string_view text(const char* string) {
   return string == nullptr ? "(null)" : string;  // as the C library's "%s" prints it
}

/** Marks the thread and raises SigIntException for a piece that could not be formatted. */
inline int raiseIfFailed(int length) {
   if (length < 0) [[unlikely]] {
      setInterrupted();
      raiseSigIntIfNeeded();
   }
   return length;
}

inline char* put(char* out, std::string_view part) {
   std::memcpy(out, part.data(), part.size());
   return out + part.size();
}

inline void character(Renderer& to, char c) {
   if (to.buffered) {
      *to.buffer->getBuffer(1) = c;
      ++to.buffer->writePtr;
   } else {
      to.buffer->rawWrite(&c, 1);
   }
}

inline void separator(Renderer& to) {
   if (!to.firstItem)
      character(to, ',');
}

/** Room for a piece that is handed to rawWrite: automatic for most, from the heap for a long one;
 * null when there is no memory. */
class PieceRoom {
 public:
   explicit PieceRoom(size_t size)
         : long_(size > sizeof short_ ? static_cast<char*>(std::malloc(size)) : nullptr),
           start_(size > sizeof short_ ? long_ : short_) {}
   PieceRoom(const PieceRoom&) = delete;
   PieceRoom& operator=(const PieceRoom&) = delete;
   ~PieceRoom() { std::free(long_); }
   char* start() { return start_; }

 private:
   char short_[512];
   char* long_;
   char* start_;
};

/** Writes a piece that is put together from `parts`, when it is not sure to fit. */
template <class... Part>
[[gnu::noinline]] int piecewise(Renderer& to, Part... parts) {
   PrintBuffer& buffer = *to.buffer;
   const size_t length = (parts.size() + ...);
   if (to.buffered)
      buffer.getBuffer(1);
   if (length > INT_MAX)
      return -1;
   if (to.buffered) {
      if (buffer.rlen() <= length)
         buffer.getBuffer(length + 1);
      ((buffer.writePtr = put(buffer.writePtr, parts)), ...);
   } else {
      PieceRoom room(length);
      char* out = room.start();
      if (out == nullptr)
         return -1;
      ((out = put(out, parts)), ...);
      buffer.rawWrite(room.start(), length);
   }
   return static_cast<int>(length);
}

/** Writes a piece that is put together from `parts`, each a std::string_view. */
template <class... Part>
int piece(Renderer& to, Part... parts) {
   PrintBuffer& buffer = *to.buffer;
   const size_t length = (parts.size() + ...);
   if (!to.buffered || buffer.rlen() <= length || length > INT_MAX) [[unlikely]]
      return piecewise(to, parts...);
   char* out = buffer.writePtr;
   ((out = put(out, parts)), ...);
   buffer.writePtr = out;
   return static_cast<int>(length);
}

/** Formats a piece in the write area, and commits it if it fits; otherwise makes room for it. */
struct Attempt {
   int length;
   bool fitted;  // or failed: a second attempt would not help
};
template <class Arguments>
Attempt formatInPlace(PrintBuffer& buffer, const char* fmt, Arguments& args) {
   char* out = buffer.getBuffer(1);
   const size_t room = buffer.rlen();
   const int length = args.print(out, room, fmt);
   if (length < 0)
      return {length, true};
   if (static_cast<size_t>(length) < room) {
      buffer.writePtr += length;
      return {length, true};
   }
   buffer.getBuffer(static_cast<size_t>(length) + 1);
   return {length, false};
}

/** Formats a piece for rawWrite. */
template <class Arguments>
int formatAside(PrintBuffer& buffer, const char* fmt, Arguments& args) {
   constexpr size_t kUsual = 512;
   PieceRoom room(kUsual);
   const int length = args.print(room.start(), kUsual, fmt);
   if (length < 0)
      return length;
   const auto size = static_cast<size_t>(length);
   if (size < kUsual) {
      buffer.rawWrite(room.start(), size);
      return length;
   }
   PieceRoom longRoom(size + 1);
   if (longRoom.start() == nullptr || args.print(longRoom.start(), size + 1, fmt) != length)
      return -1;  // no memory, or a string has changed under the formatter's hands
   buffer.rawWrite(longRoom.start(), size);
   return length;
}

/** Writes a printf-style piece. */
template <class Arguments>
int formatted(Renderer& to, const char* fmt, Arguments& args) {
   PrintBuffer& buffer = *to.buffer;
   if (!to.buffered)
      return formatAside(buffer, fmt, args);
   const Attempt first = formatInPlace(buffer, fmt, args);
   if (first.fitted)
      return first.length;
   // The text fits now, unless a string has grown under the formatter's hands.
   const size_t room = buffer.rlen();
   const int length = args.print(buffer.writePtr, room, fmt);
   if (length < 0 || static_cast<size_t>(length) >= room)
      return -1;
   buffer.writePtr += length;
   return length;
}

}  // namespace vorel::emit
