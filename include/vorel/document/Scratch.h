#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace vorel::detail {

/** Bytes that grow at the end, and that keep their memory for the next use. */
class Scratch {
 public:
   Scratch() = default;
   Scratch(const Scratch&) = delete;
   Scratch& operator=(const Scratch&) = delete;
   ~Scratch() { std::free(data_); }

   size_t size() const { return size_; }
   std::string_view from(size_t begin) const { return {data_ + begin, size_ - begin}; }
   const char* data() const { return data_; }

   /** The end, with room for `most` bytes behind it. Throws std::bad_alloc, and is then what it
    * was; moves the bytes. */
   char* room(size_t most) {
      if (capacity_ - size_ < most) [[unlikely]]
         grow(most);
      return data_ + size_;
   }
   /** Keeps what was put where room was, up to `end`. */
   void keep(const char* end) { size_ = static_cast<size_t>(end - data_); }
   /** Drops what stands behind the first `size` bytes, and memory beyond the usual. */
   void cut(size_t size) {
      size_ = size;
      if (size == 0 && capacity_ > kUsual) [[unlikely]]
         release();
   }

 private:
   static constexpr size_t kUsual = size_t{1} << 20;

   [[gnu::visibility("default")]] void grow(size_t most);
   [[gnu::visibility("default")]] void release();

   char* data_ = nullptr;
   size_t size_ = 0;
   size_t capacity_ = 0;
};

}  // namespace vorel::detail
