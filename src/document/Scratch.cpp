#include <vorel/document/Scratch.h>

#include <algorithm>
#include <new>

namespace vorel::detail {

void Scratch::grow(size_t most) {
   constexpr size_t kLeast = 1024;
   const size_t needed = size_ + most;
   if (needed < most)
      throw std::bad_alloc();
   const size_t capacity = std::max({needed, kLeast, capacity_ + capacity_ / 2});
   auto* const data = static_cast<char*>(std::realloc(data_, capacity));
   if (data == nullptr)
      throw std::bad_alloc();
   data_ = data;
   capacity_ = capacity;
}

void Scratch::release() {
   std::free(data_);
   data_ = nullptr;
   capacity_ = 0;
}

}  // namespace vorel::detail
