#pragma once

#include <cstdint>

namespace vorel {

/** What a renderer makes of the calls it gets. stringToOutputFormat reads one from a word. */
enum OutputFormat_t : uint32_t {
   outputFormatUnknown = 0,  ///< No recognised format.
   outputFormatText = 1,     ///< Text for people: frills and attribute lines only.
   outputFormatJson = 2,     ///< One compact JSON document: structure and attributes only.
};

}  // namespace vorel
