#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>

#include <vorel/document/Json.h>
#include <vorel/document/Scratch.h>
#include <vorel/document/Style.h>
#include <vorel/document/Value.h>

// Values as text, under a style. As with JSON: mostText bytes at most, and putText.
namespace vorel::detail {

#pragma GCC visibility push(default)
// The whole of what styles can ask for. Strings are made harmless to a terminal, and cut and padded
// by their width on the display.
char* putStyled(char* out, const Style& style, std::string_view value);
char* putStyled(char* out, const Style& style, int64_t value);
char* putStyled(char* out, const Style& style, uint64_t value);
char* putStyled(char* out, const Style& style, double value);
char* putStyled(char* out, const Style& style, float value);
// The texts that most columns are made of, padded with blanks to `width` columns on the side of the
// type or on `side`.
char* putPlainString(char* out, std::string_view value, size_t width, char side);
char* putPlainDecimal(char* out, int32_t value, size_t width, char side);
char* putPlainDecimal(char* out, uint32_t value, size_t width, char side);
char* putPlainDecimal(char* out, int64_t value, size_t width, char side);
char* putPlainDecimal(char* out, uint64_t value, size_t width, char side);
/** Puts the `-` of a value that is missing; it stands where one of `kind` would. */
char* putMissing(char* out, const Style& style, TextKind kind);
/** Puts the program's own text, such as a heading, padded on `side` but not changed. */
char* putPadded(char* out, const Style& style, char side, std::string_view text);
/** How many columns of the display a text takes. */
size_t displayWidth(std::string_view text);
#pragma GCC visibility pop

/** What a type's text is to a style. */
template <class T>
constexpr TextKind textKindOf() {
   constexpr Kind kind = kKind<T>;
   if constexpr (kind == Kind::taught || kind == Kind::as)
      return textKindOf<Text<T>>();
   else if constexpr (kind == Kind::optional)
      return textKindOf<typename std::remove_cvref_t<T>::value_type>();
   else if constexpr (kind == Kind::integer)
      return TextKind::integer;
   else if constexpr (kind == Kind::floating)
      return TextKind::floating;
   else if constexpr (kind == Kind::boolean)
      return TextKind::boolean;
   else if constexpr (kind == Kind::character)
      return TextKind::character;
   else
      return TextKind::string;
}

/** Scratch: blanks are put in whole blocks. */
constexpr size_t kBlock = 16;

constexpr size_t paddingRoom(const Style& style) {
   return static_cast<size_t>(style.width) * style.fillSize;
}
/** The most that a number's text takes: the digits before the point of the largest double, or those
 * of 64 bits in base 2, with sign, prefix, point and exponent. */
constexpr size_t numberRoom(const Style& style) {
   constexpr size_t kMostDigits = 340;
   return kMostDigits + static_cast<size_t>(std::max(style.precision, 0)) + paddingRoom(style) +
          kBlock;
}

constexpr bool isBlankFilled(const Style& style) {
   return style.fillSize == 1 && style.fill[0] == ' ';
}
/** Whether an integer is its digits, padded with blanks. */
constexpr bool isPlainDecimal(const Style& style) {
   return (style.type == '\0' || style.type == 'd') && (style.sign == '\0' || style.sign == '-') &&
          !style.alternate && (!style.zero || style.align != '\0' || style.width == 0) &&
          (isBlankFilled(style) || style.width == 0) && style.align != '^';
}
/** Whether a string that is plain ASCII stands as it is, padded with blanks. */
constexpr bool isPlainString(const Style& style) {
   return style.precision < 0 && (isBlankFilled(style) || style.width == 0) && style.align != '^';
}

template <Style style>
[[gnu::always_inline]] inline char* putText(char* out, std::string_view value) {
   if constexpr (isPlainString(style))
      return putPlainString(out, value, static_cast<size_t>(style.width), style.align);
   else
      return putStyled(out, style, value);
}
template <Style style>
size_t mostText(std::string_view value) {
   return value.size() + paddingRoom(style) + kBlock;
}

template <Style style>
size_t mostText(std::nullptr_t) {
   return 1 + paddingRoom(style);
}
template <Style style>
char* putText(char* out, std::nullptr_t) {
   return putMissing(out, style, TextKind::string);
}

template <Style style>
size_t mostText(CharPointer value) {
   return value.size + 1 + paddingRoom(style) + kBlock;
}
template <Style style>
[[gnu::always_inline]] inline char* putText(char* out, CharPointer value) {
   if (value.data == nullptr) [[unlikely]]
      return putText<style>(out, nullptr);
   return putText<style>(out, std::string_view(value.data, value.size));
}

template <Style style>
constexpr size_t mostText(std::same_as<bool> auto) {
   return 8 + paddingRoom(style) + kBlock;
}
template <Style style>
char* putText(char* out, std::same_as<bool> auto value) {
   return putText<style>(out, value ? std::string_view("true") : std::string_view("false"));
}

template <Style style>
constexpr size_t mostText(std::same_as<char> auto) {
   return 1 + paddingRoom(style) + kBlock;
}
template <Style style>
char* putText(char* out, std::same_as<char> auto value) {
   return putText<style>(out, std::string_view(&value, 1));
}

template <Style style, Integer Number>
constexpr size_t mostText(Number) {
   return numberRoom(style);
}
template <Style style, Integer Number>
[[gnu::always_inline]] inline char* putText(char* out, Number value) {
   if constexpr (isPlainDecimal(style))
      return putPlainDecimal(out, static_cast<Wide<Number>>(value),
                             static_cast<size_t>(style.width), style.align);
   else
      return putStyled(
            out, style,
            static_cast<std::conditional_t<std::is_signed_v<Number>, int64_t, uint64_t>>(value));
}

template <Style style>
constexpr size_t mostText(Floating auto) {
   return numberRoom(style);
}
template <Style style>
char* putText(char* out, Floating auto value) {
   return putStyled(out, style, value);
}

template <Style style>
size_t mostText(const Made& value) {
   return value.size + paddingRoom(style) + kBlock;
}
template <Style style>
char* putText(char* out, const Made& value) {
   return putText<style>(out, value.view());
}

template <class Plain>
inline constexpr TextKind kPlainTextKind = Integer<Plain>              ? TextKind::integer
                                           : Floating<Plain>           ? TextKind::floating
                                           : std::same_as<Plain, bool> ? TextKind::boolean
                                           : std::same_as<Plain, char> ? TextKind::character
                                                                       : TextKind::string;
template <class Plain>
inline constexpr TextKind kPlainTextKind<Maybe<Plain>> = kPlainTextKind<Plain>;

template <Style style, class Plain>
size_t mostText(const Maybe<Plain>& value) {
   return value.present ? mostText<style>(value.value) : 1 + paddingRoom(style);
}
template <Style style, class Plain>
[[gnu::always_inline]] inline char* putText(char* out, const Maybe<Plain>& value) {
   return value.present ? putText<style>(out, value.value)
                        : putMissing(out, style, kPlainTextKind<Plain>);
}

template <class T>
auto plainTextOf(Scratch& pool, const T& text);

/** Appends a value of any type to the pool, as text: elements separated by a space, entries of a
 * map as key=value. */
template <class T>
void appendText(Scratch& pool, const T& value) {
   decltype(auto) shown = textOf(value);
   using Type = std::remove_cvref_t<decltype(shown)>;
   const auto append = [&pool](std::string_view text) {
      pool.keep(putBytes(pool.room(text.size()), text));
   };
   if constexpr (kKind<Type> == Kind::optional) {
      if (shown)
         appendText(pool, *shown);
      else
         append("-");
   } else if constexpr (kKind<Type> == Kind::range || kKind<Type> == Kind::map) {
      bool first = true;
      forEach(shown, [&](const auto& element) {
         if (!first)
            append(" ");
         first = false;
         if constexpr (kKind<Type> == Kind::map) {
            appendText(pool, element.first);
            append("=");
            appendText(pool, element.second);
         } else {
            appendText(pool, element);
         }
      });
   } else if constexpr (kKind<Type> == Kind::string) {
      // As it is: the whole is made harmless when it is put.
      const auto plain = plainTextOf(pool, shown);
      if constexpr (std::same_as<decltype(plain), const CharPointer>)
         append(plain.data == nullptr ? "-" : std::string_view(plain.data, plain.size));
      else
         append(plain);
   } else {
      const auto plain = plainTextOf(pool, shown);
      pool.keep(putText<Style{}>(pool.room(mostText<Style{}>(plain)), plain));
   }
}

template <class T>
auto plainTextOf(Scratch& pool, const T& text) {
   return plainWith(text, [&pool](const auto& range) {
      const size_t begin = pool.size();
      appendText(pool, range);
      return Made{&pool, begin, pool.size() - begin};
   });
}

}  // namespace vorel::detail
