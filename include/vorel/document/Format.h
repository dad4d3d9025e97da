#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <vorel/document/Style.h>
#include <vorel/document/Utf8.h>

namespace vorel {

namespace detail {

/** A field of a format, `{name!=heading:style}`, and the literal text before it. */
struct Field {
   size_t textBegin = 0;  ///< The literal text, in what the format's text becomes.
   size_t textEnd = 0;
   std::string_view name;     ///< With its dots; empty for a bare value.
   std::string_view heading;  ///< Of its column; the last component of the name if none is given.
   Style style;
   bool jsonOnly = false;
};

/** What is wrong with a format. */
enum class FormatError : uint8_t {
   none,
   braceLeftOpen,
   braceNotOpened,
   braceInField,
   emptyComponent,
   nameNeedsEscaping,
   nameTwice,
   nameIsPrefix,
   prefixTakenUpAgain,
   badStyle,
};

/** Whether a name stands in JSON as it is. */
constexpr bool isPlainName(std::string_view name) {
   while (!name.empty()) {
      const Character c = decodeUtf8(name.data(), name.size());
      if (c.size == 0 || c.code < 0x20 || c.code == '"' || c.code == '\\')
         return false;
      name.remove_prefix(c.size);
   }
   return true;
}

constexpr size_t countComponents(std::string_view name) {
   size_t count = 1;
   for (const char c : name)
      count += c == '.' ? 1 : 0;
   return count;
}

/** The first `count` components of a name, dots between them. */
constexpr std::string_view firstComponents(std::string_view name, size_t count) {
   size_t end = 0;
   for (; count != 0 && end < name.size(); --count) {
      end = findIn(name, '.', end + (end == 0 ? 0 : 1));
      if (end == name.npos)
         return name;
   }
   return name.substr(0, end);
}

constexpr std::string_view lastComponent(std::string_view name) {
   for (size_t dot = findIn(name, '.'); dot != name.npos; dot = findIn(name, '.'))
      name.remove_prefix(dot + 1);
   return name;
}

/** How many objects two neighbours are both in. */
constexpr size_t sharedPrefix(std::string_view a, std::string_view b) {
   const size_t most =
         (countComponents(a) < countComponents(b) ? countComponents(a) : countComponents(b)) - 1;
   size_t shared = 0;
   while (shared < most && isSame(firstComponents(a, shared + 1), firstComponents(b, shared + 1)))
      ++shared;
   return shared;
}

/** Whether `name` lies in the object called `prefix`. */
constexpr bool isWithin(std::string_view name, std::string_view prefix) {
   return name.size() > prefix.size() && name[prefix.size()] == '.' &&
          isSame(name.substr(0, prefix.size()), prefix);
}

/** Checks the name of a field against itself and those before it. */
constexpr FormatError checkName(const Field* fields, size_t index) {
   const std::string_view name = fields[index].name;
   if (name.empty())
      return FormatError::none;
   for (size_t begin = 0; begin <= name.size();) {
      const size_t dot = std::min(findIn(name, '.', begin), name.size());
      if (dot == begin)
         return FormatError::emptyComponent;
      begin = dot + 1;
   }
   if (!isPlainName(name))
      return FormatError::nameNeedsEscaping;
   for (size_t i = 0; i < index; ++i) {
      const std::string_view other = fields[i].name;
      if (other.empty())
         continue;
      if (isSame(other, name))
         return FormatError::nameTwice;
      if (isWithin(name, other) || isWithin(other, name))
         return FormatError::nameIsPrefix;
      const size_t shared = sharedPrefix(other, name);
      for (size_t j = i + 1; j < index; ++j)
         if (!fields[j].name.empty() && sharedPrefix(fields[j].name, name) < shared)
            return FormatError::prefixTakenUpAgain;
   }
   return FormatError::none;
}

/** Reads what stands between the braces of a field. */
constexpr FormatError parseField(std::string_view inside, Field& field) {
   const size_t styleAt = findIn(inside, ':');
   const std::string_view front = inside.substr(0, styleAt);
   const size_t headingAt = findIn(front, '=');
   field.name = front.substr(0, headingAt);
   if (!field.name.empty() && field.name[field.name.size() - 1] == '!') {
      field.jsonOnly = true;
      field.name.remove_suffix(1);
   }
   field.heading =
         headingAt == front.npos ? lastComponent(field.name) : front.substr(headingAt + 1);
   if (styleAt != inside.npos && !parseStyle(inside.substr(styleAt + 1), field.style))
      return FormatError::badStyle;
   return FormatError::none;
}

/**
 * Parses a format. The literal text, doubled braces made single, goes to `text`, which has room for
 * as many bytes as the format; the fields go to `fields`, which has room for one more than there
 * are opening braces, and their number to `count`. Behind the last field, one without a name holds
 * the text behind it. After an error, `count` is the index of the field that it is about.
 */
constexpr FormatError parseFormat(std::string_view format, char* text, Field* fields,
                                  size_t& count) {
   size_t at = 0;
   size_t textEnd = 0;
   count = 0;
   while (at < format.size()) {
      const char c = format[at++];
      const bool doubled = at < format.size() && format[at] == c;
      if ((c != '{' && c != '}') || doubled) {
         text[textEnd++] = c;
         at += c == '{' || c == '}' ? 1 : 0;
         continue;
      }
      if (c == '}')
         return FormatError::braceNotOpened;
      const size_t end = findIn(format, '}', at);
      if (end == format.npos)
         return FormatError::braceLeftOpen;
      const std::string_view inside = format.substr(at, end - at);
      if (isIn(inside, '{'))
         return FormatError::braceInField;
      Field& field = fields[count];
      field.textEnd = textEnd;
      FormatError error = parseField(inside, field);
      if (error == FormatError::none)
         error = checkName(fields, count);
      if (error != FormatError::none)
         return error;
      fields[++count].textBegin = textEnd;
      at = end + 1;
   }
   fields[count].textEnd = textEnd;
   return FormatError::none;
}

constexpr size_t countOpeningBraces(std::string_view format) {
   size_t count = 0;
   for (const char c : format)
      count += c == '{' ? 1 : 0;
   return count;
}

/** A string literal that can be part of a type. */
template <size_t Size>
struct Literal {
   char data[Size] = {};

   consteval Literal(const char (&string)[Size]) {
      for (size_t i = 0; i < Size; ++i)
         data[i] = string[i];
   }
   constexpr std::string_view view() const { return {data, Size - 1}; }
};

/** A format, taken apart. */
template <size_t TextSize, size_t MostFields>
struct ParsedFormat {
   char text[TextSize + 1] = {};
   Field fields[MostFields + 1] = {};
   size_t count = 0;
   FormatError error = FormatError::none;

   constexpr explicit ParsedFormat(std::string_view format)
         : error(parseFormat(format, text, fields, count)) {}
   /** The literal text before a field, or behind the last. */
   constexpr std::string_view textBefore(size_t index) const {
      return {text + fields[index].textBegin, fields[index].textEnd - fields[index].textBegin};
   }
};

}  // namespace detail

/** A format whose text is part of its type, so that it is parsed and checked when the program is
 * compiled: `"..."_f`. */
template <detail::Literal text>
struct Format {
   static constexpr detail::ParsedFormat<text.view().size(),
                                         detail::countOpeningBraces(text.view())>
         kParsed{text.view()};
   static constexpr size_t kFields = kParsed.count;
   static constexpr auto kError = kParsed.error;

   using Error = detail::FormatError;
   static_assert(kError != Error::braceLeftOpen, "format: a field has no closing brace");
   static_assert(kError != Error::braceNotOpened,
                 "format: a closing brace stands alone; as text it is written }}");
   static_assert(kError != Error::braceInField,
                 "format: an opening brace stands within a field; as text it is written {{");
   static_assert(kError != Error::emptyComponent, "format: a name has an empty component");
   static_assert(kError != Error::nameNeedsEscaping,
                 "format: a name holds what JSON would have to escape");
   static_assert(kError != Error::nameTwice, "format: a name stands twice");
   static_assert(kError != Error::nameIsPrefix,
                 "format: a name is the prefix of another, both a value and an object");
   static_assert(kError != Error::prefixTakenUpAgain,
                 "format: a prefix is taken up again after another name; put its fields together");
   static_assert(kError != Error::badStyle,
                 "format: a style is not [[fill]align][sign][#][0][width][.precision][type]");
};

namespace literals {

template <detail::Literal text>
consteval Format<text> operator""_f() {
   return {};
}

}  // namespace literals

/** A name in JSON, from a string literal: checked when the program is compiled. */
class Name {
 public:
   template <size_t Size>
   consteval Name(const char (&literal)[Size]) : text_(literal, Size - 1) {
      if (text_.empty())
         aNameIsEmpty();
      if (detail::isIn(text_, '.'))
         aNameHasADot();
      if (!detail::isPlainName(text_))
         aNameHoldsWhatJsonWouldHaveToEscape();
   }
   constexpr std::string_view text() const { return text_; }

 private:
   // Not constexpr, so that a compiler names them when it refuses a name.
   static void aNameIsEmpty() {}
   static void aNameHasADot() {}
   static void aNameHoldsWhatJsonWouldHaveToEscape() {}

   std::string_view text_;
};

namespace detail {

/** Text without fields, from a string literal without _f: checked when the program is compiled. */
class PlainText {
 public:
   template <size_t Size>
   consteval PlainText(const char (&literal)[Size]) : text_(literal, Size - 1) {
      for (size_t i = 0; i < text_.size(); ++i) {
         if (text_[i] != '{' && text_[i] != '}')
            continue;
         if (i + 1 == text_.size() || text_[i + 1] != text_[i])
            aFormatWithFieldsIsWrittenWith_f();
         hasBraces_ = true;
         ++i;
      }
   }
   /** The literal, with braces doubled. */
   constexpr std::string_view text() const { return text_; }
   constexpr bool hasBraces() const { return hasBraces_; }

 private:
   static void aFormatWithFieldsIsWrittenWith_f() {}

   std::string_view text_;
   bool hasBraces_ = false;
};

}  // namespace detail

}  // namespace vorel
