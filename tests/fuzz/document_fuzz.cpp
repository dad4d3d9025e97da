// Random documents. Whatever the calls are, the calls on the buffer and the output are those that a
// model predicts. What is properly nested under valid names is JSON, in which an independent parser
// finds the values that were put in.
#include <deque>
#include <nlohmann/json.hpp>

#include <vorel/render/RendererV2.h>
#include "Input.h"
#include "RendererModel.h"

using namespace vorel;
using Json = nlohmann::ordered_json;

namespace {

/** A call without a name. */
struct Plain {
   Effect effect;
   void (Renderer::*run)();
   Calls pieces;
   bool silentInText = true;
};
/** An opening with a name, and the closing that goes with it. */
struct Named {
   void (Renderer::*run)(const char*);
   const char* opening;
   Plain closing;
   bool silentInText = true;
};
const Plain kStart{kKeeps, &Renderer::start, {"{"}};
const Plain kEnd{kKeeps, &Renderer::end, {"}", "\n"}};
const Plain kEntry{kOpens, &Renderer::startListEntry, {"{"}};
const Plain kEndEntry{kCloses, &Renderer::endListEntry, {"}"}};
const Plain kEndDictEntry{kCloses, &Renderer::endDictEntry, {"}"}};
const Plain kEndSimple{kCloses, &Renderer::endSimpleDictEntry, {}};
const Plain kObject{kOpens, &Renderer::startObj, {"{"}, false};
const Plain kEndObject{kCloses, &Renderer::endObj, {"}"}, false};
const Plain kFlush{kFlushes, &Renderer::ioflush, {}};
const Named kList{&Renderer::startList, ":[", {kClosesLate, &Renderer::endList, {"]"}}};
const Named kObjects[] = {
      {&Renderer::startDict, ":{", {kCloses, &Renderer::endDict, {"}"}}},
      {&Renderer::startSubmodel, ":{", {kCloses, &Renderer::endSubmodel, {"}"}}},
      {&Renderer::startObj, ":{", kEndObject, false}};
const Named kSimple{&Renderer::startSimpleObj, ":", kEndSimple, false};

/** What the C library's "%s" prints. */
std::string shown(const char* text) {
   return text == nullptr ? "(null)" : text;
}
/** A value as JSON has it. */
std::string textOf(const char* value) {
   return '"' + shown(value) + '"';
}
std::string textOf(bool value) {
   return value ? "true" : "false";
}
std::string textOf(auto number) {
   return std::to_string(number);
}

struct Document {
   std::vector<Step> steps;
   Json json;

   /** A valid document, or any calls with any bytes. */
   Document(Input& input, bool valid) : input_(input), valid_(valid) {
      if (valid) {
         add(kStart);
         object(json, 0);
         add(kEnd);
      }
      while (!valid && !input.empty())
         anyCall();
   }

 private:
   void add(const Plain& call) {
      const auto run = [run = call.run](Renderer& to) { return (to.*run)(), 0; };
      steps.push_back({call.effect, run, call.pieces, {}, call.silentInText});
   }
   /** Returns the name. */
   std::string add(const Named& call) {
      const char* const name = text();
      const auto run = [name, run = call.run](Renderer& to) { return (to.*run)(name), 0; };
      steps.push_back({kOpens, run, {textOf(name) + call.opening}, {}, call.silentInText});
      return shown(name);
   }

   /** Some text, which lives as long as the document: any bytes but NUL, now and then many or a
    * null pointer; or what needs no escape. */
   const char* text() {
      std::string text = input_.text(40, valid_ ? "abcdefgh 12{}[]:,\x7f" : nullptr);
      std::replace(text.begin(), text.end(), '\0', '%');
      const size_t kind = input_.below(16);
      if (kind == 1)
         text.append(600, 'l');
      if (kind == 2 && !valid_)
         return nullptr;
      return texts_.emplace_back(std::move(text)).c_str();
   }

   /** Adds a value under a name, or a bare one. */
   template <class Info, class Value>
   Json value(const char* name, Value value) {
      const auto run = [=](Renderer& to) {
         const Info info(name, value);
         return to.addAttributesJson(1, &info);
      };
      const std::string key = shown(name).empty() ? "" : textOf(name) + ":";
      steps.push_back({kItems, run, {key + textOf(value)}});
      if constexpr (std::is_pointer_v<Value>)
         return shown(value);
      else
         return value;
   }
   Json anyValue(const char* name) {
      const uint64_t bits = input_.word();
      const auto number = static_cast<int32_t>(bits);
      switch (input_.below(7)) {
         case 0:
            return value<Attr32Info>(name, number);
         case 1:
            return value<Attr32Info>(name, static_cast<uint32_t>(bits));
         case 2:
            return value<Attr64Info>(name, bits);
         case 3:
            return value<Attr32Info>(name, number < 0);
         case 4:  // which six digits show exactly
            return value<Attr64Info>(name, static_cast<double>(static_cast<int64_t>(bits)) / 64);
         case 5:
            return value<Attr32Info>(name, static_cast<float>(number % 100000) / 16);
         default:
            return bits % 2 == 0 ? value<Attr32Info>(name, text())
                                 : value<Attr64Info>(name, text());
      }
   }

   template <class Info, class Key>
   std::string key(bool simple, Key key) {
      const auto run = [=](Renderer& to) {
         const Info info("unused", key);
         return simple ? to.startSimpleDictEntry(info) : to.startDictEntry(info), 0;
      };
      std::string text = textOf(key);
      if constexpr (!std::is_pointer_v<Key>)
         text = textOf(text.c_str());
      steps.push_back({kOpens, run, {text + (simple ? ":" : ":{")}});
      return text.substr(1, text.size() - 2);
   }
   /** Opens an entry of a dictionary, for an object or for one item, and returns its key. */
   std::string anyKey(bool simple) {
      const uint64_t bits = input_.word();
      switch (input_.below(4)) {
         case 0:
            return key<Attr32Info>(simple, static_cast<int32_t>(bits));
         case 1:
            return key<Attr32Info>(simple, static_cast<uint32_t>(bits));
         case 2:
            return key<Attr64Info>(simple, bits);
         default:
            return key<Attr32Info>(simple, text());
      }
   }

   void list(Json& to, int depth) {
      to = Json::array();
      for (size_t entries = input_.below(4); entries != 0; --entries) {
         if (input_.byte() % 2 != 0) {
            to.push_back(anyValue(""));
            continue;
         }
         add(kEntry);
         object(to.emplace_back(), depth + 1);
         add(kEndEntry);
      }
   }

   void object(Json& to, int depth) {
      constexpr int kDeepest = 6;
      to = Json::object();
      for (size_t members = input_.below(6); members != 0; --members)
         anyMember(to, depth < kDeepest ? input_.below(8) : 0, depth);
   }

   void anyMember(Json& to, size_t kind, int depth) {
      if (kind == 1) {
         list(to[add(kList)], depth + 1);
         add(kList.closing);
      } else if (kind == 2) {
         object(to[anyKey(false)], depth + 1);
         add(kEndDictEntry);
      } else if (kind == 3) {
         Json& value = to[anyKey(true)];
         value = anyValue("");
         add(kEndSimple);
      } else if (kind == 4) {
         Json& value = to[add(kSimple)];
         add(kObject);
         object(value, depth + 1);
         add(kEndObject);
      } else if (kind == 5) {
         const Named& call = kObjects[input_.below(std::size(kObjects))];
         object(to[add(call)], depth + 1);
         add(call.closing);
      } else {
         const char* const name = text();
         if (!shown(name).empty())  // which would be a bare value
            to[shown(name)] = anyValue(name);
      }
   }

   /** Adds several records by one call, the second of them suppressed; text in text format. */
   void records(bool counted) {
      const char* const key = text();
      const std::string last = R"("flag":true)", inText = shown(key) + "|";
      const auto run = [=](Renderer& to) {
         Attr32Info hidden("hidden", 1), flag("flag", true);
         hidden.suppressed = true;
         flag.value.asBool = 256;
         const Attr32Info string("s", key);
         const bool isText = to.format == outputFormatText;
         if (counted)
            return isText ? to.addAttributes("%s|", 1, key)
                          : to.addAttributes("", 3, &string, &hidden, &flag);
         isText ? to.addArgs("%s|", key) : to.addArgs("%d%d%d", &string, &hidden, &flag);
         return static_cast<int>(isText ? inText.size() : last.size());
      };
      steps.push_back({kItems, run, {"\"s\":" + textOf(key), last}, inText});
   }
   static int addNothing(Renderer& to) {
      Attr32Info hidden("hidden", 1);
      hidden.suppressed = true;
      return to.addAttributesJson(1, &hidden) + to.addAttributesJson(0) + to.addAttributesJson(-1);
   }
   void frills(bool wrapped) {
      const std::string fill = shown(text());
      const auto run = [=](Renderer& to) {
         if (!wrapped)
            return to.addFrills("%s|", fill.c_str());
         const int result = addVaFrills(to, "%s|", fill.c_str());
         return result == -1 ? addVaFrills(to, "%s|", fill.c_str()) : result;
      };
      steps.push_back({kKeeps, run, {}, fill + "|"});
   }

   void anyCall() {
      static const Plain kPlain[] = {kStart,  kEnd,       kEntry,        kEndEntry,
                                     kObject, kEndObject, kEndDictEntry, kEndSimple};
      const size_t chosen = input_.byte();
      const bool even = chosen % 2 == 0;
      Json ignored;
      switch (input_.below(9)) {
         case 0:
            return add(kPlain[chosen % std::size(kPlain)]);
         case 1:
            return static_cast<void>(add(even ? kList : kSimple));
         case 2:
            return static_cast<void>(anyValue(even ? text() : ""));
         case 3:
            return static_cast<void>(anyKey(even));
         case 4:
            return frills(!even);
         case 5:
            return records(even);
         case 6:
            return steps.push_back({kItems, addNothing, {}});
         case 7:
            return add(kFlush);
         default:
            return object(ignored, 4);
      }
   }

   Input& input_;
   bool valid_;
   std::deque<std::string> texts_;
};

/** The output of the first `count` steps, as the model has it. */
std::string outputOf(const Document& document, OutputFormat_t format, size_t count) {
   Model model{format, false, 0};
   for (size_t i = 0; i < count; ++i)
      if (document.steps[i].isFor(format))
         model.run(document.steps[i]);
   return model.output;
}

/** Copies a text in runs, with a backslash before each quote that has none of its own. */
void quote(Model& to, const std::string& text) {
   std::string run;
   bool escaped = false;
   for (const char c : text) {
      if (c == '"' && !escaped) {
         to.copied(std::exchange(run, ""));
         to.copied("\\\"");
      } else {
         run += c;
      }
      escaped = c == '\\' && !escaped;
   }
   to.copied(run);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   const bool valid = input.byte() % 2 == 0;
   constexpr OutputFormat_t kFormats[] = {outputFormatUnknown, outputFormatText, outputFormatJson,
                                          outputFormatJson};
   const OutputFormat_t format = kFormats[input.below(4)];
   const bool buffered = input.byte() % 2 == 0;
   const size_t area = input.byte() % 2 == 0 ? input.below(100) : input.next() % 2000;
   const size_t failingCall = input.next() % 300;
   const std::string text = input.text(20, "a\"\\");
   const size_t steps = input.next(), spare = input.below(4);
   const Document document(input, valid);

   // An area that ends where the output of some of the steps does has a piece that hardly fits.
   const size_t count = document.steps.size();
   const size_t exact = outputOf(document, format, steps % (count + 1)).size() + spare;
   for (const Model& model : {Model{format, buffered, area}, Model{format, true, exact},
                              Model{format, buffered, area, failingCall}}) {
      const std::string difference = compare(document.steps, model);
      require(difference.empty(), difference);
   }
   require(!valid || format == outputFormatText ||
                 Json::parse(outputOf(document, format, count)) == document.json,
           "the values that were put in");

   RecordingBuffer escaped(area % 4);
   RendererV2(format, &escaped, buffered).writeQuotedString(text.c_str());
   Model quoted{format, true, area % 4};
   quote(quoted, text);
   require(escaped.output() == quoted.output && escaped.calls == quoted.calls, "escaped quotes");
   return 0;
}
