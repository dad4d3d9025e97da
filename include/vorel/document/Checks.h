#pragma once

#include <vorel/document/Format.h>
#include <vorel/document/Members.h>
#include <vorel/document/Style.h>
#include <vorel/document/Text.h>
#include <vorel/document/Value.h>

// What the compiler checks of a call. The messages are for those who write commands.
namespace vorel::detail {

// Each check is true where the call can be compiled, so that one mistake gives one message.

template <class T>
constexpr bool checkValue() {
   static_assert(isShowable<T>(),
                 "a value of this type cannot be shown: give the type a vorel::Value");
   return isShowable<T>();
}

template <class T>
constexpr bool checkKey() {
   static_assert(!isShowable<T>() || isKeyType<T>(),
                 "the key of an entry must be a string or an integer");
   return checkValue<T>() && isKeyType<T>();
}

/** The first field whose style does not fit the text of its value; kNoField if there is none. */
template <class F, class... T>
constexpr size_t firstMisfit() {
   constexpr TextKind kKinds[] = {textKindOf<T>()..., TextKind::string};
   for (size_t i = 0; i < sizeof...(T); ++i)
      if (!styleFits(F::kParsed.fields[i].style, kKinds[i]))
         return i;
   return kNoField;
}

/** Tells the field whose style does not fit; the compiler's notes say which it is. */
template <class F, size_t Index>
constexpr bool checkStyle() {
   static_assert(Index == kNoField, "the style of a field does not fit the type of its value");
   return Index == kNoField;
}

template <class F, class... T>
constexpr bool checkFields() {
   constexpr bool kFormat = F::kError == FormatError::none;  // otherwise it has been told already
   static_assert(!kFormat || F::kFields <= sizeof...(T),
                 "too few values: the format has more fields");
   static_assert(!kFormat || F::kFields >= sizeof...(T),
                 "too many values: the format has fewer fields");
   if constexpr (((checkValue<T>() ? 0 : 1) + ... + 0) != 0 || !kFormat ||
                 F::kFields != sizeof...(T))
      return false;
   else
      return checkStyle<F, firstMisfit<F, T...>()>();
}

/** Checks a format and values where values have no names. */
template <class F, class... T>
constexpr bool checkElements() {
   constexpr bool kBare = [] {
      for (size_t i = 0; i < F::kFields; ++i)
         if (!F::kParsed.fields[i].name.empty())
            return false;
      return true;
   }();
   static_assert(kBare,
                 "a field has a name where values have none: in the elements of a list, the "
                 "entries of a dictionary, or text");
   return checkFields<F, T...>() && kBare;
}

/** Checks a row of a dictionary. */
template <class F, class Key, class... T>
constexpr bool checkKeyedRow() {
   constexpr bool kKeyed = F::kParsed.fields[0].name.empty();
   static_assert(kKeyed, "the first field of a dictionary's row is its key, and has no name");
   constexpr bool kKey = checkKey<Key>();
   return checkFields<F, Key, T...>() && kKey && kKeyed;
}

template <class T>
inline constexpr bool kIsFormat = false;
template <Literal literal>
inline constexpr bool kIsFormat<Format<literal>> = true;

/** What stands where a format should, and is none; a literal on its own is checked by PlainText. */
template <class T, class... Values>
concept NoFormat = !kIsFormat<T> && (sizeof...(Values) != 0 || !kIsCharArray<T>);

template <class T>
constexpr void refuseFormat() {
   static_assert(kIsFormat<T>, "a format is a string literal with _f behind it");
}

}  // namespace vorel::detail
