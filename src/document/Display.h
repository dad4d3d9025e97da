#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorel::detail {

/** The size of a text: in bytes, and in columns of the display. */
struct Shown {
   size_t bytes = 0;
   size_t columns = 0;
};

/** Puts as much of a text as `mostColumns` hold, made harmless to a terminal: never more bytes than
 * it has. What is harmless stays what it is. */
Shown putHarmless(char* out, std::string_view text, size_t mostColumns = SIZE_MAX);

}  // namespace vorel::detail
