#pragma once

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include <vorel/render/Renderer.h>
#include <vorel/text/Number.h>
#include "text/Copy.h"
#include "text/DirectFormat.h"

// The primitives that all output of a renderer goes through. A piece is a text that is written as
// a whole; it fits the write area when it leaves at least one byte free, as a formatter's text does
// with its NUL. Functions that write a piece return its length, or a negative number when it could
// not be formatted and nothing was written.
namespace vorel::emit {

constexpr std::string_view kQuote = "\"";
constexpr std::string_view kColon = "\":";  // behind a key

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

/** Room for a piece that is handed to rawWrite: automatic for most, from the heap for a long one;
 * null when there is no memory. */
class PieceRoom {
 public:
   explicit PieceRoom(size_t size)
         : long_(size > sizeof short_ ? static_cast<char*>(std::malloc(size)) : nullptr),
           start_(size > sizeof short_ ? long_ : short_) {}
   PieceRoom(const PieceRoom&) = delete;
   PieceRoom& operator=(const PieceRoom&) = delete;
   ~PieceRoom() {
      if (long_ != nullptr)
         std::free(long_);
   }
   char* start() { return start_; }

 private:
   char short_[512];
   char* long_;
   char* start_;
};

// The slow path, on which the buffer is asked for the room of each piece.

/** Copies text as it stands. Unlike a piece it takes no byte for a NUL, and may be of any length.
 */
void copy(Renderer& to, std::string_view text);
void copy(Renderer& to, char c);
/** Copies text as a buffered renderer does. */
void copyIntoArea(PrintBuffer& buffer, std::string_view text);
/** Writes a piece that is put together from `parts`. */
int piece(Renderer& to, std::initializer_list<std::string_view> parts);

inline void character(Renderer& to, char c) {
   PrintBuffer& buffer = *to.buffer;
   char* const out = buffer.writePtr;
   if (!to.buffered || out >= buffer.endPtr) [[unlikely]]
      return copy(to, c);
   *out = c;
   buffer.writePtr = out + 1;
}

/** Writes the comma before an item, if one is due. */
inline void separator(Renderer& to) {
   if (!to.firstItem)
      character(to, ',');
}

// The fast path, for the usual case of a write area with room enough: texts are put together there
// at once, and no room has to be asked for.

constexpr size_t kShortName = 20;
/** More than anything takes that is written on the fast path: a separator, a name and a number,
 * with their punctuation. */
constexpr size_t kEnoughRoom = kShortName + text::kNumberRoom<double> + 16;

inline bool hasEnoughRoom(const Renderer& to) {
   return to.buffered && to.buffer->rlen() >= kEnoughRoom;
}

/** Puts the comma before an item, if one is due. A branch, and not an addition: the place of
 * everything that follows then does not wait for the flag. */
inline char* putSeparator(char* out, bool firstItem) {
   if (!firstItem)
      *out++ = ',';
   return out;
}

/** Puts a constant. */
[[gnu::always_inline]] inline char* putConstant(char* out, std::string_view constant) {
   std::memcpy(out, constant.data(), constant.size());
   return out + constant.size();
}

/** Puts a short name; null for a longer one or a null pointer. Names are mostly so short that
 * copying them takes less time than first finding their length, and as straight code less than in a
 * loop. */
[[gnu::always_inline]] inline char* putName(char* out, const char* name) {
   if (name == nullptr) [[unlikely]]
      return nullptr;
#pragma GCC unroll kShortName
   for (size_t i = 0; i < kShortName; ++i) {
      out[i] = name[i];
      if (name[i] == '\0')
         return out + i;
   }
   return nullptr;
}

// Formatted pieces.

/** The end of what a text may take of `room` bytes: all but one, as with a NUL. */
inline char* lastPlace(char* out, size_t room) {
   return out + std::min(room - 1, size_t{INT_MAX});
}

/** What vsnprintf does, faster for plain formats whose text fits. */
template <class Arguments>
int format(char* out, size_t room, const char* fmt, Arguments& args) {
   char* const limit = lastPlace(out, room);
   if (const char* end = text::direct::format<false>(out, limit, fmt, nullptr, args)) [[likely]]
      return static_cast<int>(end - out);
   return args.print(out, room, fmt);
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
   const int length = format(out, room, fmt, args);
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
   const int length = format(room.start(), kUsual, fmt, args);
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
