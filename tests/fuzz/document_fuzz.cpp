// Random documents. Whatever the calls are, the calls on the buffer and the output are those that a
// model predicts. What is properly nested under valid names is JSON, in which an independent parser
// finds the values that were put in. Through the other buffers the output is the same, and that of
// an interrupted or failing one a prefix of it.
#include <cerrno>
#include <deque>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/buffers/VorelBuffer.h>
#include <vorel/render/RendererV2.h>
#include "Faults.h"
#include "Input.h"
#include "RendererModel.h"

using namespace vorel;
using Json = nlohmann::ordered_json;

namespace {

constexpr int kNowhere = 1000;     // a descriptor: the sink gets what is written
constexpr size_t kLongest = 1400;  // more than any piece

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
const Named kList{&Renderer::startList, "\":[", {kClosesLate, &Renderer::endList, {"]"}}};
const Named kObjects[] = {
      {&Renderer::startDict, "\":{", {kCloses, &Renderer::endDict, {"}"}}},
      {&Renderer::startSubmodel, "\":{", {kCloses, &Renderer::endSubmodel, {"}"}}},
      {&Renderer::startObj, "\":{", kEndObject, false}};
const Named kSimple{&Renderer::startSimpleObj, "\":", kEndSimple, false};

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
      steps.push_back(plain(call.effect, call.run, call.pieces));
      steps.back().silentInText = call.silentInText;
   }
   /** Returns the name. */
   std::string add(const Named& call) {
      const char* const name = text();
      steps.push_back(opens(call.run, name, "\"" + shown(name) + call.opening));
      steps.back().silentInText = call.silentInText;
      return shown(name);
   }

   /** As the C library's "%s" prints it. */
   static std::string shown(const char* text) { return text == nullptr ? "(null)" : text; }

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
   template <class Info = Attr32Info, class Value>
   Json value(const char* name, Value value, const std::string& text) {
      Json result;
      if constexpr (!std::is_pointer_v<Value>)
         result = value;
      else
         result = shown(value);
      const std::string key = shown(name).empty() ? "" : "\"" + shown(name) + "\":";
      steps.push_back(member<Info>(name, value, key + text));
      return result;
   }
   Json anyValue(const char* name) {
      const uint64_t bits = input_.word();
      const auto number = static_cast<int32_t>(bits);
      const auto count = static_cast<uint32_t>(bits);
      const double decimal = static_cast<double>(static_cast<int64_t>(bits)) / 64;  // six digits
      const float small = static_cast<float>(number % 100000) / 16;
      const char* string = nullptr;
      switch (input_.below(7)) {
         case 0:
            return value(name, number, std::to_string(number));
         case 1:
            return value(name, count, std::to_string(count));
         case 2:
            return value<Attr64Info>(name, bits, std::to_string(bits));
         case 3:
            return value(name, number < 0, number < 0 ? "true" : "false");
         case 4:
            return value<Attr64Info>(name, decimal, std::to_string(decimal));
         case 5:
            return value(name, small, std::to_string(small));
         default:
            string = text();
            return value(name, string, "\"" + shown(string) + "\"");
      }
   }

   template <class Info, class Key>
   std::string key(bool simple, Key key, const std::string& text) {
      void (Renderer::*const nested)(const Info&) = &Renderer::startDictEntry;
      void (Renderer::*const item)(const Info&) = &Renderer::startSimpleDictEntry;
      steps.push_back(
            entry<Info>(simple ? item : nested, key, "\"" + text + (simple ? "\":" : "\":{")));
      return text;
   }
   /** Opens an entry of a dictionary, for an object or for one item, and returns its key. */
   std::string anyKey(bool simple) {
      const uint64_t bits = input_.word();
      const auto number = static_cast<int32_t>(bits);
      const auto count = static_cast<uint32_t>(bits);
      const char* string = nullptr;
      switch (input_.below(4)) {
         case 0:
            return key<Attr32Info>(simple, number, std::to_string(number));
         case 1:
            return key<Attr32Info>(simple, count, std::to_string(count));
         case 2:
            return key<Attr64Info>(simple, bits, std::to_string(bits));
         default:
            string = text();
            return key<Attr32Info>(simple, string, shown(string));
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
      steps.push_back({kItems, run, {"\"s\":\"" + shown(key) + "\"", last}, inText});
   }
   static int addNothing(Renderer& to) {
      Attr32Info hidden("hidden", 1);
      hidden.suppressed = true;
      return to.addAttributesJson(1, &hidden) + to.addAttributesJson(0) + to.addAttributesJson(-1);
   }

   void anyCall() {
      static const Plain kPlain[] = {kStart,  kEnd,       kEntry,        kEndEntry,
                                     kObject, kEndObject, kEndDictEntry, kEndSimple};
      const size_t chosen = input_.byte();
      Json ignored;
      switch (input_.below(9)) {
         case 0:
            return add(kPlain[chosen % std::size(kPlain)]);
         case 1:
            return static_cast<void>(add(chosen % 2 == 0 ? kList : kSimple));
         case 2:
            return static_cast<void>(anyValue(chosen % 2 == 0 ? text() : ""));
         case 3:
            return static_cast<void>(anyKey(chosen % 2 == 0));
         case 4:
            return steps.push_back(chosen % 2 == 0 ? frill(shown(text()))
                                                   : wrappedFrill(shown(text())));
         case 5:
            return records(chosen % 2 == 0);
         case 6:
            return steps.push_back({kItems, addNothing, {}});
         case 7:
            return steps.push_back(plain(kFlushes, &Renderer::ioflush, {}));
         default:
            return object(ignored, 4);
      }
   }

   Input& input_;
   bool valid_;
   std::deque<std::string> texts_;
};

void require(bool holds, const std::string& what) {
   if (!holds)
      throw std::logic_error(what);
}

void requireNone(const std::string& difference) {
   require(difference.empty(), difference);
}

/** Where the output of the first `count` steps ends: an area of about this size has a piece that
 * hardly fits. */
size_t lengthOf(const Document& document, OutputFormat_t format, size_t count) {
   Model model{format, false, 0};
   for (size_t i = 0; i < count; ++i)
      if (takes(format, document.steps[i]))
         model.run(document.steps[i]);
   return model.output.size();
}

/** A text with a backslash before each quote that has none of its own. */
std::string quoted(const std::string& text) {
   std::string result;
   bool escaped = false;
   for (const char c : text) {
      if (c == '"' && !escaped)
         result += '\\';
      result += c;
      escaped = c == '\\' && !escaped;
   }
   return result;
}

/** Prints up to an exception; before the step `interruptAt` the thread is marked. Returns whether
 * it came to the end. */
bool print(const Document& document, OutputFormat_t format, PrintBuffer& buffer, bool buffered,
           size_t interruptAt) {
   Renderer to(format, &buffer, buffered);
   const bool canFlush = dynamic_cast<NonBlockingCliTxnBuffer*>(&buffer) == nullptr;
   try {
      for (size_t i = 0; i < document.steps.size(); ++i) {
         if (i == interruptAt)
            setInterrupted();
         if (takes(format, document.steps[i]) && (document.steps[i].effect != kFlushes || canFlush))
            document.steps[i].run(to);
      }
   } catch (const SigIntException&) {
      return false;
   }
   return !isInterrupted();
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
   const size_t interruptAt = input.next() % 400;
   const Fault fault{Fault::kWrite, static_cast<int>(input.below(buffered ? 3 : 30)),
                     input.byte() % 2 == 0 ? EAGAIN : 0, 1 + input.below(60)};
   const std::string text = input.text(20, "a\"\\");
   const size_t steps = input.next(), spare = input.below(4);
   const Document document(input, valid);
   const size_t exact = lengthOf(document, format, steps % (document.steps.size() + 1));

   requireNone(compare(document.steps, {format, buffered, area}));
   requireNone(compare(document.steps, {format, true, exact + spare}));
   requireNone(compare(document.steps, {format, buffered, area, failingCall}));

   RecordingBuffer whole(area);
   print(document, format, whole, buffered, SIZE_MAX);
   const std::string all = whole.output();
   require(!valid || format == outputFormatText || Json::parse(all) == document.json,
           "the values that were put in");

   RecordingBuffer escaped(area % 4);
   RendererV2(format, &escaped, buffered).writeQuotedString(text.c_str());
   require(escaped.output() == quoted(text), "escaped quotes");

   std::string printed;
   const auto requirePrefix = [&](bool ended, const char* which) {
      resetInterrupted();
      require(ended ? printed == all : all.starts_with(printed), which);
      printed.clear();
   };
   bool ended = false;
   {
      const Faults faults({fault}, [&](std::string_view bytes) { printed += bytes; });
      VorelBuffer buffer(kNowhere, buffered ? kLongest + area : 0, VorelBuffer::kResetInterrupt1);
      ended = print(document, format, buffer, buffered, interruptAt);
   }
   requirePrefix(ended && !isInterrupted(), "blocking buffer");

   NonBlockingCliTxnBuffer chunks(1 + area);
   ended = print(document, format, chunks, true, interruptAt);
   const char* piece = nullptr;
   while (const size_t length = chunks.nextExtract(&piece)) {
      printed.append(piece, length);
      chunks.extract(length);
   }
   requirePrefix(ended, "transactional buffer");
   return 0;
}
