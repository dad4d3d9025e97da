#include <climits>
#include <cstring>

#include "render/Emit.h"
#include "render/FormatScanner.h"
#include "text/Arguments.h"
#include "text/Conversion.h"

namespace vorel {

namespace {

/** Writes text as it stands. */
int unchanged(Renderer& to, std::string_view text) {
   emit::copy(to, text);
   return static_cast<int>(text.size());
}

/** The length modifier with which a conversion reads an argument of the size that the scanner
 * found: the sizes of integers are the scanner's, h and hh narrow what was read, and l before s and
 * c makes them wide without changing the size. */
std::string_view modifierFor(const text::Conversion& conversion, int argLen) {
   using Modifier = text::Conversion::Modifier;
   if (std::strchr("diouxX", conversion.letter) == nullptr) {
      const bool canBeWide = conversion.letter == 's' || conversion.letter == 'c';
      return canBeWide && conversion.modifier == Modifier::l ? "l" : "";
   }
   if (argLen == 8)
      return "l";
   if (conversion.modifier == Modifier::h)
      return "h";
   return conversion.modifier == Modifier::hh ? "hh" : "";
}

/** What a piece becomes for the C library: at most this many characters, with the NUL. */
constexpr size_t rebuiltRoom(size_t piece) {
   return 2 * piece + 1;
}

/**
 * Rebuilds a piece, which the scanner found to hold one conversion, into a format of which the C
 * library reads exactly that argument. Writes it, with a NUL, at `out`, and returns the letter of
 * the conversion; NUL when the piece is anything else to the C library.
 */
char rebuild(char* out, std::string_view piece, int argLen) {
   char letter = '\0';
   const char* const end = piece.data() + piece.size();
   for (const char* at = piece.data(); at != end;) {
      const char c = *at++;
      *out++ = c;
      if (c == '\\' && at != end && *at == '%') {
         out = text::put(out, "%%");
         ++at;
      } else if (c == '%') {
         text::Conversion conversion;
         const char* const begin = at;
         at = text::parseConversion(begin, conversion);
         if (at == nullptr)
            return '\0';
         if (conversion.letter == '%') {
            out = text::put(out, {begin, static_cast<size_t>(at - begin)});
            continue;
         }
         if (letter != '\0')
            return '\0';
         letter = conversion.letter;
         out = text::put(out, {begin, static_cast<size_t>(conversion.modifiers - begin)});
         out = text::put(out, modifierFor(conversion, argLen));
         *out++ = letter;
      }
   }
   *out = '\0';
   return letter;
}

/** Prints one piece of a format with its argument, by way of a format of its own. */
[[gnu::noinline]] int printRebuilt(Renderer& to, std::string_view piece, int argLen,
                                   text::OneArgument& arg) {
   emit::PieceRoom room(rebuiltRoom(piece.size()));
   if (room.start() == nullptr)
      return -1;
   const char letter = rebuild(room.start(), piece, argLen);
   if (letter == '\0')
      return unchanged(to, piece);
   if (letter == 's' || letter == 'p')
      arg.becomePointer();
   return emit::formatted(to, room.start(), arg);
}

/** Prints one piece of a format with its argument. */
int printPiece(Renderer& to, std::string_view piece, int argLen, text::OneArgument arg) {
   if (to.buffered) {
      PrintBuffer& buffer = *to.buffer;
      char* const out = buffer.getBuffer(1);
      const char* const from = piece.data();
      char* const end = text::direct::format<true>(out, emit::lastPlace(out, buffer.rlen()), from,
                                                   from + piece.size(), arg);
      if (end != nullptr) [[likely]] {
         buffer.writePtr = end;
         return static_cast<int>(end - out);
      }
   }
   return printRebuilt(to, piece, argLen, arg);
}

}  // namespace

int Renderer::vorel_vfprintf(const char* fmt, va_list list) {
   const FormatScan scan(fmt);
   if (scan.length > INT_MAX)
      return -1;
   if (scan.count == 0 || scan.count != scan.closed)
      return unchanged(*this, {fmt, scan.length});
   int length = 0;
   int begin = 0;
   for (int i = 0; i < scan.count && length >= 0; ++i) {
      const int end = scan.pieceEnds[i];
      const std::string_view piece(fmt + begin, static_cast<size_t>(end - begin));
      length = printPiece(*this, piece, scan.argLens[i],
                          text::OneArgument(list, scan.argLens[i], scan.isFloat[i]));
      begin = end;
   }
   return length;
}

}  // namespace vorel
