#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/** What all documents are made of: the state of a network interface. */
struct Row {
   std::string name;  ///< Like "Ethernet12/3".
   uint32_t mtu;
   bool up;
   uint64_t rxBytes;  ///< Counters of all magnitudes up to 10^14.
   uint64_t txBytes;
   std::string description;  ///< 20 to 40 characters, none that needs escaping.
   double load;              ///< Percent, with all the digits of a quotient.
};
using Rows = std::vector<Row>;

/** The same rows each time. */
Rows makeRows(size_t count);
/** These rows with all names and descriptions in Japanese: three bytes a character. */
Rows inJapanese(Rows rows);
/** These rows with a quote or a control character in one of ten strings. */
Rows withEscapes(Rows rows);

}  // namespace bench
