#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace vorel {

/**
 * How a program teaches the layer a type of its own: a specialisation with
 *
 *    static auto data(const T&);  // what JSON shows
 *    static auto text(const T&);  // what text shows; without it, the data
 *
 * each of which returns something that can be shown. A view or pointer that they return must stay
 * valid as long as the value.
 */
template <class T>
struct Value;

/** A value that JSON and text show differently; see as. */
template <class Data, class Text>
struct As {
   Data data;
   Text text;
};

/** Shows `data` in JSON and `text` in text. Refers to what is passed by name, so use it as an
 * argument at once. */
template <class Data, class Text>
[[nodiscard]] constexpr As<Data, Text> as(Data&& data, Text&& text) {
   return {std::forward<Data>(data), std::forward<Text>(text)};
}

namespace detail {

template <class T>
concept Taught = requires(const T& value) {
   Value<T>::data(value);
};

template <class T>
concept TaughtText = requires(const T& value) {
   Value<T>::text(value);
};

template <class T>
inline constexpr bool kIsAs = false;
template <class Data, class Text>
inline constexpr bool kIsAs<As<Data, Text>> = true;

template <class T>
inline constexpr bool kIsOptional = false;
template <class T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

template <class T>
concept NullType = std::same_as<T, std::nullptr_t> || std::same_as<T, std::nullopt_t>;

template <class T>
concept CString = std::same_as<T, const char*> || std::same_as<T, char*>;

template <class T>
inline constexpr bool kIsCharArray = false;
template <size_t Size>
inline constexpr bool kIsCharArray<char[Size]> = true;

template <class T>
concept String = CString<T> || kIsCharArray<T> || std::same_as<T, std::string_view> ||
      (std::is_class_v<T>&& std::convertible_to<const T&, std::string_view>);

template <class T>
inline constexpr bool kIsOtherCharacter = std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
                                          std::same_as<T, char16_t> || std::same_as<T, char32_t>;

template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                  !kIsOtherCharacter<T> && sizeof(T) <= sizeof(uint64_t);

template <class T>
concept Floating = std::same_as<T, float> || std::same_as<T, double>;

template <class T>
concept Iterable = requires(T& range, decltype(std::begin(range)) at) {
   at != std::end(range);
   ++at;
   *at;
};

/** What the elements of a range are. */
template <class Range>
using Element = std::remove_cvref_t<typename std::iterator_traits<
      std::remove_cvref_t<decltype(std::begin(std::declval<Range&>()))>>::value_type>;

/** Whether elements are pairs with something that can be a key. */
template <class T>
concept PairLike = requires(const T& pair) {
   pair.first;
   pair.second;
};

/** A range, other than one of itself as a path is. */
template <class T>
concept Range = Iterable<T> && !String<T> && !std::same_as<Element<T>, T>;

/** Calls `visit` with each element. A range that cannot be walked while it is const, as some views,
 * is copied. */
template <class R, class Visit>
void forEach(const R& range, Visit visit) {
   if constexpr (Iterable<const R>) {
      for (auto&& element : range)
         visit(static_cast<const Element<const R>&>(element));
   } else {
      R copy = range;
      for (auto&& element : copy)
         visit(static_cast<const Element<R>&>(element));
   }
}

enum class Kind : uint8_t {
   none,  ///< Cannot be shown.
   taught,
   as,
   null,
   optional,
   boolean,
   character,
   integer,
   floating,
   string,
   map,
   range
};

template <class T>
constexpr bool isKeyType();

template <class T>
constexpr Kind kindOf() {
   if constexpr (Taught<T>)
      return Kind::taught;
   else if constexpr (kIsAs<T>)
      return Kind::as;
   else if constexpr (NullType<T>)
      return Kind::null;
   else if constexpr (kIsOptional<T>)
      return Kind::optional;
   else if constexpr (std::same_as<T, bool>)
      return Kind::boolean;
   else if constexpr (std::same_as<T, char>)
      return Kind::character;
   else if constexpr (Integer<T>)
      return Kind::integer;
   else if constexpr (Floating<T>)
      return Kind::floating;
   else if constexpr (String<T>)
      return Kind::string;
   else if constexpr (Range<const T> || Range<T>) {
      if constexpr (PairLike<Element<T>>)
         return isKeyType<std::remove_cvref_t<decltype(Element<T>::first)>>() ? Kind::map
                                                                              : Kind::none;
      else
         return Kind::range;
   } else
      return Kind::none;
}

template <class T>
inline constexpr Kind kKind = kindOf<std::remove_cvref_t<T>>();

/** Whether what is in an optional value has to be converted. */
template <class T>
inline constexpr bool kIsOptionalOfTaught = false;
template <class T>
inline constexpr bool kIsOptionalOfTaught<std::optional<T>> =
      kKind<T> == Kind::taught || kKind<T> == Kind::as || kIsOptionalOfTaught<T>;

// What a value is in JSON, and in text, with what has been taught and vorel::as taken away. The
// result refers to the value where it can, and is a value of its own where it was made.

template <class T>
constexpr decltype(auto) dataOf(const T& value) {
   if constexpr (kKind<T> == Kind::taught) {
      using Made = decltype(Value<T>::data(value));
      using Type = std::remove_cvref_t<Made>;
      if constexpr (kKind<Type> != Kind::taught && kKind<Type> != Kind::as)
         return Value<T>::data(value);
      else if constexpr (std::is_reference_v<Made>)
         return dataOf(Value<T>::data(value));
      else  // of something that ends here
         return std::remove_cvref_t<decltype(dataOf(std::declval<const Type&>()))>(
               dataOf(Value<T>::data(value)));
   } else if constexpr (kKind<T> == Kind::as) {
      return dataOf(value.data);
   } else if constexpr (kIsOptionalOfTaught<T>) {
      using Inner = std::remove_cvref_t<decltype(dataOf(*value))>;
      return value ? std::optional<Inner>(dataOf(*value)) : std::optional<Inner>();
   } else {
      return (value);
   }
}

template <class T>
constexpr decltype(auto) textOf(const T& value) {
   if constexpr (kKind<T> == Kind::taught) {
      const auto make = [](const T& from) -> decltype(auto) {
         if constexpr (TaughtText<T>)
            return Value<T>::text(from);
         else
            return Value<T>::data(from);
      };
      using Made = decltype(make(value));
      using Type = std::remove_cvref_t<Made>;
      if constexpr (kKind<Type> != Kind::taught && kKind<Type> != Kind::as)
         return make(value);
      else if constexpr (std::is_reference_v<Made>)
         return textOf(make(value));
      else
         return std::remove_cvref_t<decltype(textOf(std::declval<const Type&>()))>(
               textOf(make(value)));
   } else if constexpr (kKind<T> == Kind::as) {
      return textOf(value.text);
   } else if constexpr (kIsOptionalOfTaught<T>) {
      using Inner = std::remove_cvref_t<decltype(textOf(*value))>;
      return value ? std::optional<Inner>(textOf(*value)) : std::optional<Inner>();
   } else {
      return (value);
   }
}

template <class T>
using Data = std::remove_cvref_t<decltype(dataOf(std::declval<const std::remove_cvref_t<T>&>()))>;
template <class T>
using Text = std::remove_cvref_t<decltype(textOf(std::declval<const std::remove_cvref_t<T>&>()))>;

/** Whether a value of this type can be the key of a dictionary entry. */
template <class T>
constexpr bool isKeyType() {
   constexpr Kind kind = kKind<T>;
   if constexpr (kind == Kind::taught || kind == Kind::as)
      return isKeyType<Data<T>>();
   else
      return kind == Kind::string || kind == Kind::integer || kind == Kind::character;
}

/** Whether all of a value can be shown, in either output. */
template <class T>
constexpr bool isShowable() {
   constexpr Kind kind = kKind<T>;
   using Type = std::remove_cvref_t<T>;
   if constexpr (kind == Kind::taught)
      return isShowable<decltype(Value<Type>::data(std::declval<const Type&>()))>() &&
             isShowable<Text<Type>>();
   else if constexpr (kind == Kind::as)
      return isShowable<decltype(Type::data)>() && isShowable<decltype(Type::text)>();
   else if constexpr (kind == Kind::optional)
      return isShowable<typename Type::value_type>();
   else if constexpr (kind == Kind::range)
      return isShowable<Element<Type>>();
   else if constexpr (kind == Kind::map)
      return isShowable<decltype(Element<Type>::second)>();
   else
      return kind != Kind::none;
}

}  // namespace detail

}  // namespace vorel
