// The bytes of a fuzzer, taken one after the other, and what must hold whatever they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

class Input {
 public:
   Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

   bool empty() const { return at_ == end_; }
   /** 0 when there is nothing left. */
   uint8_t byte() { return empty() ? uint8_t{0} : *at_++; }
   size_t below(size_t limit) { return byte() % limit; }
   uint32_t next() { return byte() | uint32_t{byte()} << 8; }
   uint64_t word() {
      uint64_t word = 0;
      for (size_t bytes = below(9); bytes != 0; --bytes)
         word = word << 8 | byte();
      return word;
   }
   std::string text(size_t limit, const char* alphabet = nullptr) {
      std::string text(below(limit), '\0');
      const size_t letters = alphabet == nullptr ? 0 : std::char_traits<char>::length(alphabet);
      for (char& c : text)
         c = letters == 0 ? static_cast<char>(byte()) : alphabet[below(letters)];
      return text;
   }

 private:
   const uint8_t* at_;
   const uint8_t* end_;
};

void require(bool holds, const auto&... what) {
   if (!holds)
      throw std::logic_error((std::string() + ... + (std::string(what) + ' ')));
}
