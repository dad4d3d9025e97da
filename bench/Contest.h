#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Rows.h"

namespace bench {

/** Whom a competitor is compared with, and what is aimed at. */
struct Peer {
   std::string name;   ///< Of a competitor in the same contest.
   double atMost = 0;  ///< Target for the ratio; 0: none.
};

struct Competitor {
   std::string name;
   size_t rows;                      ///< In one round.
   std::function<void(int fd)> run;  ///< One round.
   std::vector<Peer> peers = {};
   double nanosecondsAtMost = 0;  ///< Target per row; 0: none.
   bool sameBytes = true;         ///< As the contest's first competitor.
   int rounds = 200;
   bool counted = true;  ///< Instructions tell something; not where one copies a whole block.
   size_t bytes = 0;     ///< In one round.
};

/** One document, and who prints it. */
struct Contest {
   char letter;
   std::string document;
   std::vector<Competitor> competitors;

   /** A competitor's name, made different from those in other contests. */
   std::string key(const std::string& name) const { return std::string{letter} + "/" + name; }
};

/** All contests. Makes sure that competitors print the same bytes; throws when they do not.
 * `growth` is the size of the largest document, in rows. */
std::vector<Contest> makeContests(const Rows& rows, size_t growth);

}  // namespace bench
