// Properly nested documents: an independent parser finds in them the values that were put in,
// whatever buffer they went through, and an interrupted one is a prefix of the whole.
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Input.h"
#include "Recording.h"
#include "buffers/NonBlockingCliTxnBuffer.h"

using namespace vorel;
using Json = nlohmann::ordered_json;

namespace {

/** A random document, which can be printed any number of times. */
class Document {
 public:
   explicit Document(Input& input) { object(input, json_, 0); }

   const Json& json() const { return json_; }
   size_t operations() const { return print_.size(); }
   /** Prints it; before the operation `interruptAt` the thread is marked. */
   void print(Renderer& to, size_t interruptAt) const {
      to.start();
      for (size_t i = 0; i < print_.size(); ++i) {
         if (i == interruptAt)
            setInterrupted();
         print_[i](to);
      }
      to.end();
   }

 private:
   using Operation = std::function<void(Renderer&)>;

   void add(Operation operation) { print_.push_back(std::move(operation)); }

   /** A value under a name, or a bare one. */
   template <class Info, class Value>
   Json value(const std::string& name, Value value, const Json& json) {
      add([name, value](Renderer& to) {
         if constexpr (std::is_same_v<Value, std::string>) {
            const Info info(name.c_str(), value.c_str());
            to.addAttributesJson(1, &info);
         } else {
            const Info info(name.c_str(), value);
            to.addAttributesJson(1, &info);
         }
      });
      return json;
   }

   Json anyValue(Input& input, const std::string& name) {
      const uint64_t bits = input.word();
      const auto number = static_cast<int32_t>(bits);
      const double decimal = static_cast<double>(static_cast<int64_t>(bits)) / 64;  // six digits
      switch (input.below(6)) {
         case 0:
            return value<Attr32Info>(name, number, number);
         case 1:
            return value<Attr32Info>(name, static_cast<uint32_t>(bits),
                                     static_cast<uint32_t>(bits));
         case 2:
            return value<Attr64Info>(name, bits, bits);
         case 3:
            return value<Attr32Info>(name, bits % 2 != 0, bits % 2 != 0);
         case 4:
            return value<Attr64Info>(name, decimal, decimal);
         default: {
            const std::string text = input.text(60, "abc 123{}[]:,");
            return value<Attr32Info>(name, text, text);
         }
      }
   }

   void list(Input& input, Json& json, int depth) {
      json = Json::array();
      for (size_t entries = input.below(4); entries != 0; --entries) {
         if (input.byte() % 2 != 0) {
            json.push_back(anyValue(input, ""));
            continue;
         }
         add([](Renderer& to) { to.startListEntry(); });
         object(input, json.emplace_back(), depth + 1);
         add([](Renderer& to) { to.endListEntry(); });
      }
   }

   void object(Input& input, Json& json, int depth) {
      constexpr int kDeepest = 6;
      json = Json::object();
      for (size_t members = input.below(5); members != 0; --members) {
         const std::string name = std::to_string(members) + input.text(30, "abcdefgh-_");
         switch (depth < kDeepest ? input.below(5) : 0) {
            case 1:
               add([name](Renderer& to) { to.startList(name.c_str()); });
               list(input, json[name], depth + 1);
               add([](Renderer& to) { to.endList(); });
               break;
            case 2:
               add([name](Renderer& to) { to.startDict(name.c_str()); });
               object(input, json[name], depth + 1);
               add([](Renderer& to) { to.endDict(); });
               break;
            case 3:
               add([members](Renderer& to) {
                  to.startDictEntry(Attr64Info("", uint64_t{members}));
               });
               object(input, json[std::to_string(members)], depth + 1);
               add([](Renderer& to) { to.endDictEntry(); });
               break;
            case 4:
               add([name](Renderer& to) { to.startSimpleDictEntry(Attr32Info("", name.c_str())); });
               json[name] = anyValue(input, "");
               add([](Renderer& to) { to.endSimpleDictEntry(); });
               break;
            default:
               json[name] = anyValue(input, name);
         }
      }
   }

   Json json_;
   std::vector<Operation> print_;
};

void require(bool holds, const char* what) {
   if (!holds)
      throw std::logic_error(what);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   const size_t area = input.next() % 2000;
   const size_t interruptAt = input.next();
   const Document document(input);

   RecordingBuffer buffer(area);
   Renderer whole(outputFormatJson, &buffer, input.byte() % 2 != 0);
   document.print(whole, SIZE_MAX);
   require(Json::parse(buffer.output()) == document.json(), "the values that were put in");

   NonBlockingCliTxnBuffer chunks(1 + area);
   Renderer chunked(outputFormatJson, &chunks, true);
   bool interrupted = false;
   try {
      document.print(chunked, interruptAt);
   } catch (const SigIntException&) {
      interrupted = true;
   }
   resetInterrupted();
   require(!interrupted || interruptAt < document.operations(), "no interruption unasked for");
   std::string printed;
   const char* piece = nullptr;
   while (const size_t length = chunks.nextExtract(&piece)) {
      printed.append(piece, length);
      chunks.extract(length);
   }
   const std::string all = buffer.output();
   require(interrupted ? all.starts_with(printed) : printed == all, "a prefix, or the whole");
   return 0;
}
