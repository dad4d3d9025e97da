#include "Counts.h"

#include "SafeText.h"

void showCounts(vorel::Renderer& out, const char* name, const char* heading, const Counts& counts) {
   out.addFrills("\n%-20s %6s\n", heading, "Count");
   out.startDict(name);
   for (const auto& [word, count] : counts) {
      const std::string key = jsonText(word);
      const vorel::Attr32Info keyInfo("", key.c_str());
      const vorel::Attr32Info countInfo("", count);
      out.startSimpleDictEntry(keyInfo);
      out.addFrills("%-20s %6u\n", terminalText(word).c_str(), count);
      out.addAttributesJson(1, &countInfo);
      out.endSimpleDictEntry();
   }
   out.endDict();
}
