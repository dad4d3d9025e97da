#include "plain/PlainC.h"

#include <string_view>

vorel_OutputFormat stringToOutputFormat(const char* name) {
   const std::string_view word = name == nullptr ? "" : name;
   if (word == "text")
      return vorel::outputFormatText;
   if (word == "json")
      return vorel::outputFormatJson;
   return vorel::outputFormatUnknown;
}
