// A small model of the contract between a renderer and its write area: it predicts the calls that
// each operation makes on the buffer, its output, its result and its effect on the comma.
#pragma once

#include <algorithm>
#include <climits>
#include <functional>
#include <optional>
#include <string>
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

   /** Any format but text and JSON stops the process at frills and attributes. */
   bool isFor(vorel::OutputFormat_t format) const {
      return format != vorel::outputFormatUnknown || !text;
   }
};

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
         if (text.find_first_not_of("{}[]\n") == text.npos || text == "true" || text == "false")
            copied(text);
         else
            result = formatted(text);
      }
      if (step.effect == kClosesLate)
         firstItem = false;
      return step.effect == kItems ? result : 0;
   }

   /** Text that the buffer gets without a NUL. */
   void copied(const std::string& text) {
      if (buffered) {
         room(text.size());
         free -= text.size();
      } else {
         call("write " + text);
      }
      output += text;
   }

   /** Text that is formatted with a NUL behind it. */
   int formatted(const std::string& text) {
      if (buffered)
         room(1);
      if (buffered && text.size() >= free)
         room(text.size() + 1);
      copied(text);
      return static_cast<int>(text.size());
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
};

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
      if (!step.isFor(model.format))
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
