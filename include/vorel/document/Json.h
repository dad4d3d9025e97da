#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <vorel/document/CheckedCopy.h>
#include <vorel/document/Scratch.h>
#include <vorel/document/Value.h>
#include <vorel/text/Number.h>

// Values as JSON. For each type that data can have there is mostJson, the most bytes that it takes,
// scratch behind its end included, and putJson, which puts it at `out` and returns the end.
namespace vorel::detail {

#pragma GCC visibility push(default)
/** Puts a string, without quotes but with escapes: at most six bytes for each of its own. */
char* putEscaped(char* out, const char* from, size_t size);
/** The shortest text that reads back the same, without an exponent from 1e-4 up to below 1e16;
 * `null` for NaN and infinities. */
char* putFloating(char* out, double value);
char* putFloating(char* out, float value);
#pragma GCC visibility pop

constexpr size_t kFloatingRoom = 40;  // 24 characters, and scratch

/** A string that may be null. */
struct CharPointer {
   const char* data;
   size_t size;
};

/** What has been made already, in the pool of an output. */
struct Made {
   const Scratch* pool;
   size_t begin;
   size_t size;
   std::string_view view() const { return {pool->data() + begin, size}; }
};

/** A value that may be missing. */
template <class Plain>
struct Maybe {
   bool present = false;
   Plain value{};
};

// Copies what has a constant size, in the fewest instructions.
template <size_t Size>
[[gnu::always_inline]] inline char* putLiteral(char* out, const char (&text)[Size]) {
   std::memcpy(out, text, Size - 1);
   return out + (Size - 1);
}
[[gnu::always_inline]] inline char* putBytes(char* out, std::string_view text) {
   if (!text.empty())  // whose place may be null
      std::memcpy(out, text.data(), text.size());
   return out + text.size();
}

inline size_t mostJson(std::string_view value) {
   return 2 + 6 * value.size();
}
[[gnu::noinline]] inline char* putJson(char* out, std::string_view value) {
   *out++ = '"';
   char* end = out + value.size();
   if (!copyChecked<PlainInJson>(out, value.data(), value.size())) [[unlikely]]
      end = putEscaped(out, value.data(), value.size());
   *end = '"';
   return end + 1;
}

inline size_t mostJson(std::nullptr_t) {
   return 4;
}
inline char* putJson(char* out, std::nullptr_t) {
   return putLiteral(out, "null");
}

inline size_t mostJson(CharPointer value) {
   return value.data == nullptr ? 4 : mostJson(std::string_view(value.data, value.size));
}
inline char* putJson(char* out, CharPointer value) {
   return value.data == nullptr ? putJson(out, nullptr)
                                : putJson(out, std::string_view(value.data, value.size));
}

constexpr size_t mostJson(std::same_as<bool> auto) {
   return 8;
}
inline char* putJson(char* out, std::same_as<bool> auto value) {
   static constexpr char kWords[2][8] = {"false", "true"};
   std::memcpy(out, kWords[value ? 1 : 0], sizeof kWords[0]);
   return out + (value ? 4 : 5);
}

constexpr size_t mostJson(std::same_as<char> auto) {
   return 8;
}
inline char* putJson(char* out, std::same_as<char> auto value) {
   return putJson(out, std::string_view(&value, 1));
}

/** The integers that numbers are made from. */
template <Integer Number>
using Wide = std::conditional_t<sizeof(Number) == 8,
                                std::conditional_t<std::is_signed_v<Number>, int64_t, uint64_t>,
                                std::conditional_t<std::is_signed_v<Number>, int32_t, uint32_t>>;

template <Integer Number>
constexpr size_t mostJson(Number) {
   return text::kNumberRoom<Wide<Number>>;
}
template <Integer Number>
[[gnu::noinline]] char* putJson(char* out, Number value) {
   return text::putNumber(out, static_cast<Wide<Number>>(value));
}

constexpr size_t mostJson(Floating auto) {
   return kFloatingRoom;
}
inline char* putJson(char* out, Floating auto value) {
   return putFloating(out, value);
}

inline size_t mostJson(const Made& value) {
   return value.size;
}
inline char* putJson(char* out, const Made& value) {
   return putBytes(out, value.view());
}

template <class Plain>
size_t mostJson(const Maybe<Plain>& value) {
   return value.present ? mostJson(value.value) : 4;
}
template <class Plain>
char* putJson(char* out, const Maybe<Plain>& value) {
   return value.present ? putJson(out, value.value) : putJson(out, nullptr);
}

/** Puts the key of an entry, in quotes. */
inline char* putKey(char* out, std::string_view key) {
   return putJson(out, key);
}
template <class Key>
char* putKey(char* out, const Key& key) {
   if constexpr (std::same_as<Key, char>)
      return putJson(out, key);
   else if constexpr (std::same_as<Key, CharPointer>)
      return key.data != nullptr ? putJson(out, key) : putLiteral(out, "\"null\"");
   else {
      *out = '"';
      out = putJson(out + 1, key);
      *out = '"';
      return out + 1;
   }
}
template <class Key>
size_t mostKey(const Key& key) {
   return mostJson(key) + 2;
}

// What the values of a call become before its room is known: plain, which is one of the types
// above.

template <class T>
constexpr auto plainOf(Scratch& pool, const T& value);

/** Appends a value of any type to the pool, as JSON. */
template <class T>
void appendJson(Scratch& pool, const T& value) {
   decltype(auto) data = dataOf(value);
   using Type = std::remove_cvref_t<decltype(data)>;
   const auto append = [&pool](const auto& plain) {
      pool.keep(putJson(pool.room(mostJson(plain)), plain));
   };
   const auto appendCharacter = [&pool](char c) {
      char* const end = pool.room(1);
      *end = c;
      pool.keep(end + 1);
   };
   if constexpr (kKind<Type> == Kind::optional) {
      if (data)
         appendJson(pool, *data);
      else
         append(nullptr);
   } else if constexpr (kKind<Type> == Kind::range) {
      appendCharacter('[');
      bool comma = false;
      forEach(data, [&](const auto& element) {
         if (comma)
            appendCharacter(',');
         comma = true;
         appendJson(pool, element);
      });
      appendCharacter(']');
   } else if constexpr (kKind<Type> == Kind::map) {
      appendCharacter('{');
      bool comma = false;
      forEach(data, [&](const auto& entry) {
         if (comma)
            appendCharacter(',');
         comma = true;
         decltype(auto) key = dataOf(entry.first);
         const auto plain = plainOf(pool, key);
         pool.keep(putKey(pool.room(mostKey(plain)), plain));
         appendCharacter(':');
         appendJson(pool, entry.second);
      });
      appendCharacter('}');
   } else {
      append(plainOf(pool, data));
   }
}

/** The length of a string in an array of `size` characters. */
[[gnu::always_inline]] inline size_t lengthOf(const char* array, size_t size) {
   // The compiler knows the length of a literal, and not what strnlen makes of it.
   return __builtin_constant_p(std::strlen(array)) ? std::strlen(array) : strnlen(array, size);
}

/** Makes a plain value of one that dataOf or textOf gave. What becomes of ranges is `makeRange`'s
 * to say. */
template <class T, class MakeRange>
[[gnu::always_inline]] inline constexpr auto plainWith(const T& value, MakeRange makeRange) {
   constexpr Kind kind = kKind<T>;
   if constexpr (kind == Kind::null) {
      return nullptr;
   } else if constexpr (kind == Kind::string) {
      if constexpr (CString<T>)
         return CharPointer{value, value == nullptr ? 0 : std::strlen(value)};
      else if constexpr (kIsCharArray<T>)
         return std::string_view(value, lengthOf(value, sizeof value));
      else
         return static_cast<std::string_view>(value);
   } else if constexpr (kind == Kind::optional) {
      using Plain = decltype(plainWith(*value, makeRange));
      return value ? Maybe<Plain>{true, plainWith(*value, makeRange)} : Maybe<Plain>{};
   } else if constexpr (kind == Kind::range || kind == Kind::map) {
      return makeRange(value);
   } else {
      return value;
   }
}
template <class T>
[[gnu::always_inline]] inline constexpr auto plainOf(Scratch& pool, const T& data) {
   return plainWith(data, [&pool](const auto& range) {
      const size_t begin = pool.size();
      appendJson(pool, range);
      return Made{&pool, begin, pool.size() - begin};
   });
}

}  // namespace vorel::detail
