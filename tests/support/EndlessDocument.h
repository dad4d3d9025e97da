// A document without end: printed by the library, and foretold without it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include <vorel/render/Renderer.h>

/** Prints until the buffer or the interrupt mark of the thread ends it with an exception. `begun`
 * counts the operations that check the mark themselves, each before it starts. */
inline void printEndlessly(vorel::Renderer& to, std::atomic<int64_t>& begun) {
   to.start();
   to.startList("rows");
   for (unsigned i = 0;; ++i) {
      const std::string name = "eth" + std::to_string(i);
      const vorel::Attr32Info nameInfo("name", name.c_str()), number("number", i);
      const vorel::Attr64Info load("load", i / 4.0);
      to.startListEntry();
      ++begun;
      to.addFrills("row %u: ", i);
      ++begun;
      if (to.format == vorel::outputFormatText)
         to.addAttributes("%s %u\n", 2, name.c_str(), i);
      else
         to.addAttributes("%s %u\n", 2, &nameInfo, &number);
      to.startSubmodel("counters");
      ++begun;
      to.addAttributesJson(1, &load);
      to.endSubmodel();
      to.endListEntry();
   }
}

/** Compares with that document what comes of it. */
class EndlessDocument {
 public:
   explicit EndlessDocument(vorel::OutputFormat_t format)
         : json_(format != vorel::outputFormatText) {}

   /** Whether `part` is how the document goes on. */
   bool goesOnWith(std::string_view part) {
      while (due_.size() < part.size())
         due_ += row(rows_++);
      const bool same = due_.compare(0, part.size(), part) == 0;
      due_.erase(0, part.size());
      return same;
   }

 private:
   std::string row(unsigned i) const {
      const std::string number = std::to_string(i);
      if (!json_)
         return "row " + number + ": eth" + number + " " + number + "\n";
      return (i == 0 ? "{\"rows\":[{\"name\":\"eth" : ",{\"name\":\"eth") + number +
             "\",\"number\":" + number + ",\"counters\":{\"load\":" + std::to_string(i / 4.0) +
             "}}";
   }

   const bool json_;
   unsigned rows_ = 0;
   std::string due_;
};
