// A small model of the contract between a renderer and its write area: it predicts the calls that
// each operation makes on the buffer, its output, its result and its effect on the comma.
#pragma once

#include <algorithm>
#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "RecordingBuffer.h"

/** What an operation does to the comma, a closing one before it writes, or late; or that it
 * flushes. */
enum Effect { kKeeps, kOpens, kCloses, kClosesLate, kItems, kFlushes };

/** An operation, the pieces it writes in JSON (commas apart), and what it writes in text. */
struct Step {
   Effect effect;
   std::function<int(vorel::Renderer&)> run;
   Calls pieces;
   std::optional<std::string> text = {};
   bool silentInText = true;  // or writes its JSON there too
};

inline Step plain(Effect effect, void (vorel::Renderer::*run)(), Calls pieces) {
   return {effect, [=](vorel::Renderer& to) { return (to.*run)(), 0; }, std::move(pieces)};
}
inline Step opens(void (vorel::Renderer::*run)(const char*), const char* name,
                  const std::string& piece) {
   return {kOpens, [=](vorel::Renderer& to) { return (to.*run)(name), 0; }, {piece}};
}
template <class Info, class Value>
Step entry(void (vorel::Renderer::*run)(const Info&), Value key, const std::string& piece) {
   return {kOpens, [=](vorel::Renderer& to) { return (to.*run)(Info("unused", key)), 0; }, {piece}};
}
template <class Info = vorel::Attr32Info, class Value>
Step member(const char* name, Value value, const std::string& piece) {
   const auto run = [=](vorel::Renderer& to) {
      const Info info(name, value);
      return to.addAttributesJson(1, &info);
   };
   return {kItems, run, {piece}};
}
inline Step frill(const std::string& text) {
   return {kKeeps,
           [=](vorel::Renderer& to) { return to.addFrills("%s|", text.c_str()); },
           {},
           text + "|"};
}
inline Step wrappedFrill(const std::string& text) {
   const auto run = [=](vorel::Renderer& to) {
      const int result = addVaFrills(to, "%s|", text.c_str());
      return result == -1 ? addVaFrills(to, "%s|", text.c_str()) : result;
   };
   return {kKeeps, run, {}, text + "|"};
}
inline Step inText(Step step) {
   step.silentInText = false;
   return step;
}

/** What the steps must do to a buffer whose areas have `size` bytes, and to the renderer. */
struct Model {
   vorel::OutputFormat_t format;
   bool buffered;
   size_t size;
   size_t failingCall = 0;
   size_t free = size;
   bool firstItem = true;
   Calls calls = {};
   std::string output = {};

   /** Returns the step's result. */
   int run(const Step& step) {
      if (step.effect == kFlushes) {
         call("flush");
         free = size;
         return 0;
      }
      if (format == vorel::outputFormatText && step.silentInText)
         return step.text ? formatted(*step.text) : 0;
      int result = 0;
      if (step.effect == kCloses)
         firstItem = false;
      for (const std::string& text : step.pieces) {
         if (step.effect == kOpens || step.effect == kItems) {
            if (!firstItem)
               copied(",");
            firstItem = step.effect == kOpens;
         }
         // Brackets and the bare words are copied; everything else is formatted with its NUL.
         if (text.find_first_not_of("{}[]\n") == std::string::npos || text == "true" ||
             text == "false")
            copied(text);
         else
            result = formatted(text);
      }
      if (step.effect == kClosesLate)
         firstItem = false;
      return step.effect == kItems ? result : 0;
   }

 private:
   void call(const std::string& expected) {
      calls.push_back(expected);
      if (calls.size() == failingCall)
         throw vorel::SigIntException();
   }
   void room(size_t count) {
      if (free >= count)
         return;
      call("allocate " + std::to_string(count));
      free = std::max(count, size);
   }
   void copied(const std::string& text) {
      if (buffered) {
         room(text.size());
         free -= text.size();
      } else {
         call("write " + text);
      }
      output += text;
   }
   int formatted(const std::string& text) {
      const int length = static_cast<int>(text.size());
      if (!buffered) {
         copied(text);
         return length;
      }
      room(1);
      if (text.size() >= free)
         room(text.size() + 1);
      free -= text.size();
      output += text;
      return length;
   }
};

/** Whether a format takes the step: any but text and JSON stops at frills and addAttributes. */
inline bool takes(vorel::OutputFormat_t format, const Step& step) {
   return format != vorel::outputFormatUnknown || !step.text;
}

/** Does the steps beside the model, up to the first call that fails. Returns the first difference,
 * empty if there is none. */
inline std::string compare(const std::vector<Step>& steps, Model model) {
   const auto resultOf = [](auto run) {
      try {
         return run();
      } catch (const vorel::SigIntException&) {
         return INT_MIN;
      }
   };
   RecordingBuffer buffer(model.size);
   buffer.failingCall = model.failingCall;
   vorel::Renderer renderer(model.format, &buffer, model.buffered);
   for (const Step& step : steps) {
      if (!takes(model.format, step))
         continue;
      const int expected = resultOf([&] { return model.run(step); });
      const int result = resultOf([&] { return step.run(renderer); });
      const char* const difference = result != expected                      ? "result"
                                     : buffer.calls != model.calls           ? "calls"
                                     : renderer.firstItem != model.firstItem ? "comma"
                                     : buffer.output() != model.output       ? "output"
                                                                             : nullptr;
      if (difference != nullptr)
         return difference + (" of step " + std::to_string(&step - steps.data())) + ", format " +
                std::to_string(model.format) + ", area " + std::to_string(model.size) +
                ", failing call " + std::to_string(model.failingCall) + ": " + buffer.output() +
                "\nexpected: " + model.output;
      if (result == INT_MIN)
         break;
   }
   return "";
}
