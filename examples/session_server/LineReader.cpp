#include "LineReader.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

LineReader::Result LineReader::readFrom(int fd) {
   std::array<char, kCapacity> piece;
   const ssize_t size = recv(fd, piece.data(), kCapacity - bytes_.size(), 0);
   if (size < 0)
      return errno == EAGAIN || errno == EINTR ? Result::more : Result::broken;
   if (size == 0)
      return Result::end;
   bytes_.append(piece.data(), static_cast<size_t>(size));
   dropEmptyLines();
   return Result::more;
}

std::string_view LineReader::line() const {
   const size_t newline = bytes_.find('\n');
   if (newline == std::string::npos)
      return full() ? std::string_view(bytes_) : std::string_view();
   const bool carriageReturn = bytes_[newline - 1] == '\r';
   return std::string_view(bytes_).substr(0, newline - (carriageReturn ? 1 : 0));
}

void LineReader::dropLine() {
   const size_t newline = bytes_.find('\n');
   bytes_.erase(0, newline == std::string::npos ? newline : newline + 1);
   dropEmptyLines();
}

void LineReader::dropEmptyLines() {
   size_t first = 0;
   for (;;) {
      const std::string_view rest = std::string_view(bytes_).substr(first);
      if (rest.substr(0, 1) == "\n")
         first += 1;
      else if (rest.substr(0, 2) == "\r\n")
         first += 2;
      else
         break;
   }
   bytes_.erase(0, first);
}
