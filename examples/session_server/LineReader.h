#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/**
 * The bytes that a client has sent, taken off line by line. A line ends with a newline, before
 * which a carriage return may stand; empty lines are passed over. What does not fit stays in the
 * socket.
 */
class LineReader {
 public:
   /** Bytes held at most. So many without a newline count as a line, which is too long. */
   static constexpr size_t kCapacity = 4096;

   enum class Result { more, end, broken };
   /** Reads once from a socket that does not block, and not while full. `end` says that the client
    * will send nothing more. */
   Result readFrom(int fd);

   bool full() const { return bytes_.size() == kCapacity; }
   /** The first line; empty when none is complete. Valid until more is read or taken off. */
   std::string_view line() const;
   void dropLine();
   void clear() { bytes_.clear(); }

 private:
   void dropEmptyLines();

   std::string bytes_;  // does not begin with an empty line
};
