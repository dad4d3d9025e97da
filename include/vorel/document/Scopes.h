#pragma once

#include <cstdint>
#include <utility>

#include <vorel/document/Checks.h>
#include <vorel/document/Format.h>
#include <vorel/document/Output.h>
#include <vorel/document/Print.h>
#include <vorel/interrupt/SigIntException.h>

namespace vorel {

class Object;
class List;
class Dict;

/**
 * What the handles of open scopes have in common. A handle is small and is passed by value; it
 * belongs to a document, and may be used as long as its scope is open: using an outer scope closes
 * the scopes within it. The use of a handle whose scope is closed stops the process with an
 * assertion report.
 *
 * All calls but those that only open scopes look at the thread's interrupt flag first. They throw
 * SigIntException when it is set, in either output, and when a write fails; std::bad_alloc, and
 * nothing of the call has been written then. One thread at a time uses a document and its handles.
 *
 * A `format` is a string literal with _f behind it, or one without if it has no fields.
 */
class Scope {
 public:
   /** Prints in text, and nothing in JSON. Fields have no names. */
   template <detail::Literal literal, class... T>
   void text(Format<literal> format, const T&... values) const {
      if constexpr (detail::checkElements<Format<literal>, T...>()) {
         detail::Output::checkInterrupt();
         if (output_->isJson())
            output_->close(id_);
         else
            detail::printText(format, std::index_sequence_for<T...>(), *output_, id_, values...);
      }
   }
   void text(detail::PlainText text) const {
      detail::Output::checkInterrupt();
      output_->printPlain(id_, text.text(), text.hasBraces());
   }

   // For what is no format: the compiler says so.
   template <class T, class... Values>
   requires detail::NoFormat<T, Values...>
   void text(const T&, const Values&...) const { detail::refuseFormat<T>(); }

   /** Closes the scopes within this one and gives the renderer, for calls of its own: what is
    * opened with it is to be closed with it. */
   Renderer& renderer() const {
      detail::Output::checkInterrupt();
      output_->close(id_);
      return output_->renderer();
   }

 protected:
   Scope(detail::Output* output, uint64_t id) : output_(output), id_(id) {}

   template <detail::Literal literal>
   void printHeading() const {
      detail::Output::checkInterrupt();
      using F = Format<literal>;
      output_->printHeading(id_, F::kParsed.text, F::kParsed.fields, F::kFields);
   }

   detail::Output* output_;
   uint64_t id_;
};

/** An open object, `{"name":value,...}` in JSON. */
class Object : public Scope {
 public:
   Object(detail::Output* output, uint64_t id) : Scope(output, id) {}

   /** Prints members: in JSON those of the fields with names, in text as the format says. */
   template <detail::Literal literal, class... T>
   void print(Format<literal> format, const T&... values) const {
      if constexpr (detail::checkFields<Format<literal>, T...>()) {
         detail::Output::checkInterrupt();
         detail::printMembers(format, std::index_sequence_for<T...>(), *output_, id_, values...);
      }
   }
   void print(detail::PlainText text) const { this->text(text); }
   template <class T, class... Values>
   requires detail::NoFormat<T, Values...>
   void print(const T&, const Values&...) const { detail::refuseFormat<T>(); }

   /** A member that text does not show. */
   template <class T>
   void data(Name name, const T& value) const {
      if constexpr (detail::checkValue<T>()) {
         detail::Output::checkInterrupt();
         if (!output_->isJson())
            return output_->closeInText(id_);
         const detail::Guard<T> guard(output_->pool());
         detail::writeMember(*output_, id_, name,
                             detail::plainOf(output_->pool(), detail::dataOf(value)));
      }
   }

   // Open a scope within this one.
   [[gnu::always_inline]] Object object(Name name) const;
   [[gnu::always_inline]] List list(Name name) const;
   [[gnu::always_inline]] Dict dict(Name name) const;

 private:
   template <class Handle>
   [[gnu::always_inline]] Handle open(Name name, const char (&brackets)[3]) const {
      return {output_, output_->isJson() ? detail::openMember(*output_, id_, name, brackets)
                                         : detail::openInText(*output_, id_)};
   }
};

/** An open list, `[value,...]` in JSON. */
class List : public Scope {
 public:
   List(detail::Output* output, uint64_t id) : Scope(output, id) {}

   /** Prints elements, one for each field; fields have no names. */
   template <detail::Literal literal, class... T>
   void print(Format<literal> format, const T&... values) const {
      if constexpr (detail::checkElements<Format<literal>, T...>()) {
         detail::Output::checkInterrupt();
         if (output_->isJson())
            detail::printElements(*output_, id_, values...);
         else
            detail::printText(format, std::index_sequence_for<T...>(), *output_, id_, values...);
      }
   }
   void print(detail::PlainText text) const { this->text(text); }
   template <class T, class... Values>
   requires detail::NoFormat<T, Values...>
   void print(const T&, const Values&...) const { detail::refuseFormat<T>(); }

   /** An element that text does not show. */
   template <class T>
   void data(const T& value) const {
      if constexpr (detail::checkValue<T>()) {
         detail::Output::checkInterrupt();
         if (!output_->isJson())
            return output_->closeInText(id_);
         detail::printElements(*output_, id_, value);
      }
   }

   /** Prints an object, with the members of the fields with names; in text a line, whose newline is
    * the format's. */
   template <detail::Literal literal, class... T>
   void row(Format<literal> format, const T&... values) const {
      if constexpr (detail::checkFields<Format<literal>, T...>()) {
         detail::Output::checkInterrupt();
         detail::printRow(format, std::index_sequence_for<T...>(), *output_, id_, values...);
      }
   }
   void row(detail::PlainText text) const {
      detail::Output::checkInterrupt();
      if (output_->isJson())
         detail::writeRow<Format<"">>(*output_, id_);
      else
         output_->printPlain(id_, text.text(), text.hasBraces());
   }
   template <class T, class... Values>
   requires detail::NoFormat<T, Values...>
   void row(const T&, const Values&...) const { detail::refuseFormat<T>(); }
   /** Prints, in text, the headings of a row's columns. */
   template <detail::Literal literal>
   void heading(Format<literal>) const {
      printHeading<literal>();
   }

   // Open a scope within this one.
   Object object() const;
   List list() const;
   Dict dict() const;

 private:
   template <class Handle>
   [[gnu::always_inline]] Handle open(const char (&brackets)[3]) const {
      return {output_, output_->isJson() ? detail::openElement(*output_, id_, brackets)
                                         : detail::openInText(*output_, id_)};
   }
};

/** An open dictionary, `{"key":value,...}` in JSON. A key is a string or an integer. */
class Dict : public Scope {
 public:
   Dict(detail::Output* output, uint64_t id) : Scope(output, id) {}

   /** Prints an entry. The format has two fields, without names. */
   template <detail::Literal literal, class Key, class T>
   void print(Format<literal> format, const Key& key, const T& value) const {
      if constexpr (detail::checkElements<Format<literal>, Key, T>()) {
         detail::checkKey<Key>();
         detail::Output::checkInterrupt();
         if (output_->isJson())
            detail::printEntry(*output_, id_, key, value);
         else
            detail::printText(format, std::index_sequence<0, 1>(), *output_, id_, key, value);
      }
   }
   void print(detail::PlainText text) const { this->text(text); }
   template <class T, class... Values>
   requires detail::NoFormat<T, Values...>
   void print(const T&, const Values&...) const { detail::refuseFormat<T>(); }

   /** An entry that text does not show. */
   template <class Key, class T>
   void data(const Key& key, const T& value) const {
      if constexpr (detail::checkKey<Key>() && detail::checkValue<T>()) {
         detail::Output::checkInterrupt();
         if (!output_->isJson())
            return output_->closeInText(id_);
         detail::printEntry(*output_, id_, key, value);
      }
   }

   /** Prints an entry that is an object. The first field, without a name, is the key, the others
    * are as in a list's row. */
   template <detail::Literal literal, class Key, class... T>
   void row(Format<literal> format, const Key& key, const T&... values) const {
      if constexpr (detail::checkKeyedRow<Format<literal>, Key, T...>()) {
         detail::Output::checkInterrupt();
         detail::printKeyedRow(format, std::index_sequence_for<T...>(), *output_, id_, key,
                               values...);
      }
   }
   template <class T, class... Values>
   void row(const T&, const Values&...) const {
      detail::refuseFormat<T>();
   }
   /** Prints, in text, the headings of a row's columns. */
   template <detail::Literal literal>
   void heading(Format<literal>) const {
      printHeading<literal>();
   }

   // Open a scope within this one.
   template <class Key>
   Object object(const Key& key) const {
      return open<Object>(key, "{}");
   }
   template <class Key>
   List list(const Key& key) const;
   template <class Key>
   Dict dict(const Key& key) const {
      return open<Dict>(key, "{}");
   }

 private:
   template <class Handle, class Key>
   [[gnu::always_inline]] Handle open(const Key& key, const char (&brackets)[3]) const {
      if constexpr (detail::checkKey<Key>()) {
         if (!output_->isJson())
            return {output_, detail::openInText(*output_, id_)};
         return {output_, detail::openEntry(*output_, id_,
                                            detail::plainOf(output_->pool(), detail::dataOf(key)),
                                            brackets)};
      }
   }
};

[[gnu::always_inline]] inline Object Object::object(Name name) const {
   return open<Object>(name, "{}");
}
[[gnu::always_inline]] inline List Object::list(Name name) const {
   return open<List>(name, "[]");
}
[[gnu::always_inline]] inline Dict Object::dict(Name name) const {
   return open<Dict>(name, "{}");
}

[[gnu::always_inline]] inline Object List::object() const {
   return open<Object>("{}");
}
[[gnu::always_inline]] inline List List::list() const {
   return open<List>("[]");
}
[[gnu::always_inline]] inline Dict List::dict() const {
   return open<Dict>("{}");
}

template <class Key>
List Dict::list(const Key& key) const {
   return open<List>(key, "[]");
}

}  // namespace vorel
