#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include <vorel/document/Format.h>
#include <vorel/document/Json.h>

// The members of an object, as a format names them. Names are joined with their punctuation when
// the program is compiled, and copied with a constant size.
namespace vorel::detail {

constexpr size_t kNoField = SIZE_MAX;

/** The index of the last field with a name before `index`. */
template <class F>
constexpr size_t previousNamed(size_t index) {
   while (index-- != 0)
      if (!F::kParsed.fields[index].name.empty())
         return index;
   return kNoField;
}

template <class F>
constexpr std::string_view nameOf(size_t index) {
   return index == kNoField ? std::string_view() : F::kParsed.fields[index].name;
}

/** How many objects a name lies in. */
constexpr size_t depthOf(std::string_view name) {
   return countComponents(name) - 1;
}

/** The components of all names of a format with their punctuation, `"name":` or `"name":{`, one
 * behind the other. */
template <size_t Size, size_t Count>
struct Keys {
   char text[Size + 1] = {};
   size_t ends[Count + 1] = {};

   constexpr Keys(const Field* fields, size_t count) {
      size_t at = 0;
      size_t index = 0;
      const auto put = [&](std::string_view part) {
         for (const char c : part)
            text[at++] = c;
      };
      for (size_t i = 0; i < count; ++i) {
         const std::string_view name = fields[i].name;
         for (size_t begin = 0; begin < name.size();) {
            const size_t dot = std::min(findIn(name, '.', begin), name.size());
            put("\"");
            put(name.substr(begin, dot - begin));
            put(dot == name.size() ? "\":" : "\":{");
            ends[index++] = at;
            begin = dot + 1;
         }
      }
   }
   constexpr std::string_view at(size_t index) const {
      const size_t begin = index == 0 ? 0 : ends[index - 1];
      return {text + begin, ends[index] - begin};
   }
};

/** How many components the names before field `index` have. */
template <class F>
constexpr size_t componentsBefore(size_t index) {
   size_t count = 0;
   for (size_t i = 0; i < index; ++i)
      count += nameOf<F>(i).empty() ? 0 : countComponents(nameOf<F>(i));
   return count;
}

/** The most that all names take, with their punctuation. */
template <class F>
constexpr size_t namesRoom() {
   size_t most = 0;
   for (size_t i = 0; i < F::kFields; ++i)
      most += nameOf<F>(i).size() + 6 * countComponents(nameOf<F>(i));
   return most;
}

template <class F>
inline constexpr Keys<namesRoom<F>(), componentsBefore<F>(F::kFields)> kKeys(F::kParsed.fields,
                                                                             F::kFields);

/**
 * Puts the members of a format, one after the other. With `Optional`, members can be left out, and
 * with all of its members an object is.
 */
template <class F, bool Optional>
class MemberWriter {
 public:
   [[gnu::always_inline]] MemberWriter(char* out, bool comma) : out_(out), comma_(comma) {}

   /** Puts the member of field `Index`; nothing for a field without a name. */
   template <size_t Index, class Plain>
   [[gnu::always_inline]] void add(const Plain& value) {
      constexpr std::string_view kName = nameOf<F>(Index);
      if constexpr (!kName.empty()) {
         constexpr std::string_view kPrevious = nameOf<F>(previousNamed<F>(Index));
         constexpr size_t kFirst = componentsBefore<F>(Index);
         constexpr size_t kDepth = depthOf(kName);
         if constexpr (depthOf(kPrevious) != 0 || kDepth != 0) {
            constexpr size_t kShared = kPrevious.empty() ? 0 : sharedPrefix(kPrevious, kName);
            closeObjects(depthOf(kPrevious), kShared);
            for (size_t level = kShared; level < kDepth; ++level)
               openObject(level, kKeys<F>.at(kFirst + level));
         }
         constexpr std::string_view kKey = kKeys<F>.at(kFirst + kDepth);
         putMember(kKey, value);
      }
   }
   /** Puts the brackets that are still owed. Returns the end. */
   [[gnu::always_inline]] char* end() {
      closeObjects(depthOf(nameOf<F>(previousNamed<F>(F::kFields))), 0);
      return out_;
   }
   bool comma() const { return comma_; }

 private:
   struct Object {
      char* before;  // where the object began, with its comma
      bool comma;    // whether it had one
      char* inside;
   };

   [[gnu::always_inline]] void putComma() {
      *out_ = ',';
      out_ += comma_ ? 1 : 0;
   }
   [[gnu::always_inline]] void openObject(size_t level, std::string_view opening) {
      objects_[level].before = out_;
      objects_[level].comma = comma_;
      putComma();
      out_ = putBytes(out_, opening);
      objects_[level].inside = out_;
      comma_ = false;
   }
   [[gnu::always_inline]] void closeObjects(size_t depth, size_t down) {
      for (size_t level = depth; level-- != down;) {
         if (Optional && out_ == objects_[level].inside) {
            out_ = objects_[level].before;
            comma_ = objects_[level].comma;
         } else {
            *out_++ = '}';
            comma_ = true;
         }
      }
   }
   template <class Plain>
   [[gnu::always_inline]] void putMember(std::string_view key, const Plain& value) {
      putComma();
      out_ = putJson(putBytes(out_, key), value);
      comma_ = true;
   }
   template <class Plain>
   [[gnu::always_inline]] void putMember(std::string_view key, const Maybe<Plain>& value) {
      if (value.present)
         putMember(key, value.value);
   }

   static constexpr size_t kDeepest = [] {
      size_t deepest = 1;
      for (size_t i = 0; i < F::kFields; ++i)
         deepest = std::max(deepest, countComponents(nameOf<F>(i)));
      return deepest;
   }();

   char* out_;
   bool comma_;
   Object objects_[kDeepest];
};

template <class Plain>
inline constexpr bool kCanBeLeftOut = false;
template <class Plain>
inline constexpr bool kCanBeLeftOut<Maybe<Plain>> = true;

/** Puts all members; `comma` says whether the first needs one, and then whether the next does. */
template <class F, size_t... Index, class... Plain>
[[gnu::always_inline]] inline char* putMembers(std::index_sequence<Index...>, char* out,
                                               bool& comma, const Plain&... values) {
   MemberWriter<F, (kCanBeLeftOut<Plain> || ...)> writer(out, comma);
   (writer.template add<Index>(values), ...);
   out = writer.end();
   comma = writer.comma();
   return out;
}

}  // namespace vorel::detail
