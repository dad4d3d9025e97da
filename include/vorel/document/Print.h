#pragma once

#include <type_traits>
#include <utility>

#include <vorel/document/Members.h>
#include <vorel/document/Output.h>
#include <vorel/document/Text.h>

// What the calls of the handles are made of: each writes one piece.
namespace vorel::detail {

/** Drops what a call has left in the pool. */
class PoolGuard {
 public:
   explicit PoolGuard(Scratch& pool) : pool_(pool), size_(pool.size()) {}
   PoolGuard(const PoolGuard&) = delete;
   PoolGuard& operator=(const PoolGuard&) = delete;
   ~PoolGuard() { pool_.cut(size_); }

 private:
   Scratch& pool_;
   const size_t size_;
};
struct NoGuard {
   explicit NoGuard(Scratch&) {}
};

/** Whether showing a value takes memory in the pool. */
template <class T>
constexpr bool usesPool() {
   constexpr Kind kind = kKind<T>;
   if constexpr (kind == Kind::optional)
      return usesPool<typename std::remove_cvref_t<T>::value_type>();
   else if constexpr (kind == Kind::taught || kind == Kind::as)
      return usesPool<Data<T>>() || usesPool<Text<T>>();
   else
      return kind == Kind::range || kind == Kind::map;
}
template <class... T>
using Guard = std::conditional_t<(usesPool<T>() || ...), PoolGuard, NoGuard>;

/** In place of a value that is not shown. */
struct Nothing {};
constexpr size_t mostJson(Nothing) {
   return 0;
}

// The data of a field in JSON, and the same made plain; nothing for a field without a name. Data
// may refer to temporaries, so it is made in the expression that uses it.
template <bool IsMember, class T>
constexpr decltype(auto) memberData(const T& value) {
   if constexpr (IsMember)
      return dataOf(value);
   else
      return Nothing();
}
template <class Data>
[[gnu::always_inline]] inline auto plainMember(Scratch& pool, const Data& data) {
   return plainOf(pool, data);
}
inline Nothing plainMember(Scratch&, Nothing) {
   return {};
}

template <class F, size_t Index>
inline constexpr bool kIsMember = !nameOf<F>(Index).empty();

/**
 * A piece of JSON in a scope, of at most `most` bytes beside the brackets that close the scopes
 * within. Whoever makes one puts its bytes at `out`, and sends it.
 */
class JsonPiece {
 public:
   char* out;
   bool comma;  ///< Whether the next item of the scope needs one.

   enum Kind { kItem, kOpening };  ///< Openings often come with closings.

   [[gnu::always_inline]] JsonPiece(Output& to, uint64_t id, size_t most, Kind kind = kItem)
         : to_(to), start_(to.room(most + to.closingsRoom())) {
      out = kind == kOpening ? to.putClosings(start_, id, scope_, comma)
                             : to.putRareClosings(start_, id, scope_, comma);
   }
   /** Puts the comma before an item. */
   [[gnu::always_inline]] void startItem() {
      *out = ',';
      out += comma ? 1 : 0;
      comma = true;
   }
   [[gnu::always_inline]] void put(char c) { *out++ = c; }
   [[gnu::always_inline]] void send() {
      to_.finish(start_, out);
      to_.stayIn(scope_, comma);
   }
   /** Sends a piece that ends with an opening bracket. Returns the id of the scope. */
   [[gnu::always_inline]] uint64_t sendOpening(char closing) {
      to_.finish(start_, out);
      to_.renderer().firstItem = true;
      return to_.openIn(scope_, closing);
   }

 private:
   Output& to_;
   char* const start_;
   Output::OpenScope* scope_;
};

/** Room for a comma, brackets, and scratch behind the end. */
constexpr size_t kPunctuationRoom = 24;

/** The most that an object's members take, with what stands around them. */
template <class F, class... Plain>
[[gnu::always_inline]] inline size_t mostMembers(const Plain&... values) {
   return namesRoom<F>() + kPunctuationRoom + (mostJson(values) + ... + 0);
}

/** Writes members into an object. */
template <class F, class... Plain>
[[gnu::always_inline]] inline void writeMembers(Output& to, uint64_t id, const Plain&... values) {
   JsonPiece piece(to, id, mostMembers<F>(values...));
   piece.out =
         putMembers<F>(std::index_sequence_for<Plain...>(), piece.out, piece.comma, values...);
   piece.send();
}

/** Puts an object with its members. */
template <class F, class... Plain>
[[gnu::always_inline]] inline void putObject(JsonPiece& piece, const Plain&... values) {
   piece.put('{');
   bool comma = false;
   piece.out = putMembers<F>(std::index_sequence_for<Plain...>(), piece.out, comma, values...);
   piece.put('}');
}

/** Writes an object, an element of a list. */
template <class F, class... Plain>
[[gnu::always_inline]] inline void writeRow(Output& to, uint64_t id, const Plain&... values) {
   JsonPiece piece(to, id, mostMembers<F>(values...));
   piece.startItem();
   putObject<F>(piece, values...);
   piece.send();
}

/** Writes an object, an entry of a dictionary. */
template <class F, class Key, class... Plain>
[[gnu::always_inline]] inline void writeKeyedRow(Output& to, uint64_t id, const Key& key,
                                                 const Plain&... values) {
   JsonPiece piece(to, id, mostKey(key) + mostMembers<F>(values...));
   piece.startItem();
   piece.out = putKey(piece.out, key);
   piece.put(':');
   putObject<F>(piece, Nothing(), values...);  // the key is the first field, which has no name
   piece.send();
}

/** Writes bare values, elements of a list. */
template <class... Plain>
[[gnu::always_inline]] inline void writeElements(Output& to, uint64_t id, const Plain&... values) {
   JsonPiece piece(to, id, kPunctuationRoom + sizeof...(values) + (mostJson(values) + ... + 0));
   ((piece.startItem(), piece.out = putJson(piece.out, values)), ...);
   piece.send();
}

/** Writes a bare value under a key, an entry of a dictionary. */
template <class Key, class Plain>
[[gnu::always_inline]] inline void writeEntry(Output& to, uint64_t id, const Key& key,
                                              const Plain& value) {
   JsonPiece piece(to, id, kPunctuationRoom + mostKey(key) + mostJson(value));
   piece.startItem();
   piece.out = putKey(piece.out, key);
   piece.put(':');
   piece.out = putJson(piece.out, value);
   piece.send();
}

[[gnu::always_inline]] inline void putName(JsonPiece& piece, Name name) {
   piece.put('"');
   piece.out = putLiteral(putBytes(piece.out, name.text()), "\":");
}

/** Writes a member under a name. */
template <class Plain>
[[gnu::always_inline]] inline void writeMember(Output& to, uint64_t id, Name name,
                                               const Plain& value) {
   JsonPiece piece(to, id, kPunctuationRoom + name.text().size() + mostJson(value));
   piece.startItem();
   putName(piece, name);
   piece.out = putJson(piece.out, value);
   piece.send();
}

// Open a scope, and return its id.

[[gnu::always_inline]] inline uint64_t openElement(Output& to, uint64_t id,
                                                   const char (&brackets)[3]) {
   to.makeScope();
   JsonPiece piece(to, id, kPunctuationRoom, JsonPiece::kOpening);
   piece.startItem();
   piece.put(brackets[0]);
   return piece.sendOpening(brackets[1]);
}
[[gnu::always_inline]] inline uint64_t openMember(Output& to, uint64_t id, Name name,
                                                  const char (&brackets)[3]) {
   to.makeScope();
   JsonPiece piece(to, id, kPunctuationRoom + name.text().size(), JsonPiece::kOpening);
   piece.startItem();
   putName(piece, name);
   piece.put(brackets[0]);
   return piece.sendOpening(brackets[1]);
}
template <class Key>
[[gnu::always_inline]] inline uint64_t openEntry(Output& to, uint64_t id, const Key& key,
                                                 const char (&brackets)[3]) {
   to.makeScope();
   JsonPiece piece(to, id, kPunctuationRoom + mostKey(key), JsonPiece::kOpening);
   piece.startItem();
   piece.out = putKey(piece.out, key);
   piece.put(':');
   piece.put(brackets[0]);
   return piece.sendOpening(brackets[1]);
}

inline uint64_t openInText(Output& to, uint64_t id) {
   to.closeInText(id);
   to.makeScope();
   return to.openIn(to.innermost(), '\0');
}

// Text.

// The same for a field in text; nothing for one that only JSON shows.
template <bool IsShown, class T>
constexpr decltype(auto) fieldText(const T& value) {
   if constexpr (IsShown)
      return textOf(value);
   else
      return Nothing();
}
template <class Text>
[[gnu::always_inline]] inline auto plainField(Scratch& pool, const Text& text) {
   return plainTextOf(pool, text);
}
inline Nothing plainField(Scratch&, Nothing) {
   return {};
}
template <Style style>
constexpr size_t mostText(Nothing) {
   return 0;
}
template <Style style>
char* putText(char* out, Nothing) {
   return out;
}

template <class F, size_t... Index, class... Plain>
[[gnu::always_inline]] inline void writeText(std::index_sequence<Index...>, Output& to,
                                             const Plain&... values) {
   const size_t most = F::kParsed.fields[F::kFields].textEnd + kPunctuationRoom +
                       (mostText<F::kParsed.fields[Index].style>(values) + ... + 0);
   char* const start = to.room(most);
   char* out = start;
   ((out = putText<F::kParsed.fields[Index].style>(putBytes(out, F::kParsed.textBefore(Index)),
                                                   values)),
    ...);
   to.finish(start, putBytes(out, F::kParsed.textBefore(F::kFields)));
}

// What the handles call. Data and text of a value may refer to temporaries, so they are made in the
// expression that writes them.

/** Prints values in text, as a format says. */
template <class F, size_t... Index, class... T>
[[gnu::always_inline]] inline void printText(F, std::index_sequence<Index...> indices, Output& to,
                                             uint64_t id, const T&... values) {
   to.closeInText(id);
   const Guard<T...> guard(to.pool());
   writeText<F>(indices, to,
                plainField(to.pool(), fieldText<!F::kParsed.fields[Index].jsonOnly>(values))...);
}

template <class F, size_t... Index, class... T>
[[gnu::always_inline]] inline void printMembers(F format, std::index_sequence<Index...> indices,
                                                Output& to, uint64_t id, const T&... values) {
   if (!to.isJson())
      return printText(format, indices, to, id, values...);
   const Guard<T...> guard(to.pool());
   writeMembers<F>(to, id, plainMember(to.pool(), memberData<kIsMember<F, Index>>(values))...);
}

template <class F, size_t... Index, class... T>
[[gnu::always_inline]] inline void printRow(F format, std::index_sequence<Index...> indices,
                                            Output& to, uint64_t id, const T&... values) {
   if (!to.isJson())
      return printText(format, indices, to, id, values...);
   const Guard<T...> guard(to.pool());
   writeRow<F>(to, id, plainMember(to.pool(), memberData<kIsMember<F, Index>>(values))...);
}

template <class F, size_t... Index, class Key, class... T>
[[gnu::always_inline]] inline void printKeyedRow(F format, std::index_sequence<Index...>,
                                                 Output& to, uint64_t id, const Key& key,
                                                 const T&... values) {
   if (!to.isJson())
      return printText(format, std::index_sequence<0, Index + 1 ...>(), to, id, key, values...);
   const Guard<T...> guard(to.pool());
   writeKeyedRow<F>(to, id, plainOf(to.pool(), dataOf(key)),
                    plainMember(to.pool(), memberData<kIsMember<F, Index + 1>>(values))...);
}

/** Writes values that text does not show. */
template <class... T>
[[gnu::always_inline]] inline void printElements(Output& to, uint64_t id, const T&... values) {
   const Guard<T...> guard(to.pool());
   writeElements(to, id, plainOf(to.pool(), dataOf(values))...);
}

/** Writes an entry that text does not show. */
template <class Key, class T>
[[gnu::always_inline]] inline void printEntry(Output& to, uint64_t id, const Key& key,
                                              const T& value) {
   const Guard<T> guard(to.pool());
   writeEntry(to, id, plainOf(to.pool(), dataOf(key)), plainOf(to.pool(), dataOf(value)));
}

}  // namespace vorel::detail
