#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>

#include <vorel/interrupt/SigIntException.h>
#include "Contest.h"
#include "Peers.h"
#include "Printers.h"

namespace bench {

namespace {

std::string capture(const std::function<void(int)>& print) {
   const int fd = memfd_create("document", 0);
   if (fd < 0)
      throw std::runtime_error("no memory file");
   print(fd);
   std::string bytes(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
   if (pread(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
      throw std::runtime_error("cannot read the memory file");
   close(fd);
   return bytes;
}

/** Compares what the competitors print, and adds the floor to them. */
void complete(Contest& contest) {
   const std::string expected = capture(contest.competitors.front().run);
   for (Competitor& competitor : contest.competitors) {
      const std::string bytes = capture(competitor.run);
      if (competitor.sameBytes && bytes != expected)
         throw std::runtime_error(contest.key(competitor.name) + " prints other bytes");
      competitor.bytes = bytes.size();
   }
   Competitor floor{"memcpy and write", contest.competitors.front().rows,
                    [expected](int fd) { copyBlocks(expected, fd); }};
   floor.bytes = expected.size();
   floor.counted = false;
   contest.competitors.push_back(floor);
}

/** Documents of up to `most` rows. Each round prints that many, whatever the document's size, so
 * that all rounds are equally long. */
Contest makeGrowth(const Rows& rows, size_t most, size_t bytesPerRow) {
   Contest contest{'f', "growth of (a)", {}};
   for (size_t size = 1'000; size <= most; size *= 10) {
      const auto run = [&rows, size, most](int fd) {
         for (size_t printed = 0; printed < most; printed += size)
            printRows(rows, size, Load::kWithout, fd);
      };
      Competitor competitor{std::to_string(size) + " rows", most, run};
      if (size > 10'000)
         competitor.peers = {{"10000 rows", 1.10}};
      competitor.rounds = 6;
      competitor.bytes = most * bytesPerRow;
      contest.competitors.push_back(competitor);
   }
   return contest;
}

}  // namespace

std::vector<Contest> makeContests(const Rows& rows, size_t growth) {
   constexpr int kSlowRounds = 20;
   const size_t count = rows.size();
   // A competitor that prints all rows, with some arguments behind them.
   const auto printing = [&rows](auto* print, auto... more) {
      return [&rows, print, more...](int fd) { print(rows, more..., fd); };
   };
   // The same with other rows.
   static const Rows japanese = inJapanese(rows);
   static const Rows escaped = withEscapes(rows);
   const auto printingOf = [](const Rows& others, auto* print, auto... more) {
      return [&others, print, more...](int fd) { print(others, more..., fd); };
   };
   const auto json = [&](Load load) {
      return [&rows, count, load](int fd) { printRows(rows, count, load, fd); };
   };
   constexpr Load kWithout = Load::kWithout;
   constexpr Load kWith = Load::kWith;
   const Peer nlohmann{"nlohmann::json"};

   std::vector<Contest> contests{
         {'a',
          "rows as JSON",
          {{"Vorel", count, json(kWithout), {{"RapidJSON", 0.40}, {"{fmt}", 0.75}, nlohmann}},
           {"layer",
            count,
            printing(layerRows, kWithout),
            {{"RapidJSON", 0.22}, {"{fmt}", 0.40}, {"Vorel", 0.50}}},
           {"RapidJSON", count, printing(rapidRows, kWithout)},
           {"{fmt}", count, printing(fmtRows, kWithout)},
           {"nlohmann::json", count, printing(nlohmannRows, kWithout), {}, 0, true, kSlowRounds}}},
         {'b',
          "with a double",
          {{"Vorel", count, json(kWith), {{"RapidJSON", 0.35}, {"{fmt}", 0.60}, nlohmann}},
           {"layer", count, printing(layerRows, kWith), {{"RapidJSON", 0.36}}, 0, false},
           {"RapidJSON", count, printing(rapidRows, kWith), {}, 0, false},
           {"{fmt}", count, printing(fmtRows, kWith)},
           {"nlohmann::json", count, printing(nlohmannRows, kWith), {}, 0, false, kSlowRounds}}},
         {'c',
          "structure only",
          {{"Vorel", count, printing(printStructure), {{"RapidJSON", 0.50}, nlohmann}},
           {"layer", count, printing(layerStructure), {{"RapidJSON", 0.40}}},
           {"RapidJSON", count, printing(rapidStructure)},
           {"nlohmann::json", count, printing(nlohmannStructure), {}, 0, true, kSlowRounds}}},
         {'d',
          "text rows",
          {{"addAttributes", count, printing(printTextAttributes), {{"vsnprintf", 0.50}}},
           {"addFrills", count, printing(printTextFrills), {{"vsnprintf", 0.50}}},
           {"addArgs", count, printing(printTextArgs), {{"vsnprintf", 0.60}}},
           {"layer", count, printing(layerText), {{"vsnprintf", 0.22}, {"addFrills", 0.45}}},
           {"vsnprintf", count, printing(vsnprintfText)},
           {"{fmt}", count, printing(fmtText)}}},
         {'e',
          "transactional (a)",
          {{"transactional", count, printing(printRowsTransactional), {{"blocking", 1.15}}},
           {"blocking", count, json(kWithout)},
           {"layer, transact.", count, printing(layerRowsTransactional), {{"layer", 1.15}}},
           {"layer", count, printing(layerRows, kWithout)}}},
         {'g',
          "(a) in Japanese",
          {{"layer", count, printingOf(japanese, layerRows, kWithout), {{"RapidJSON", 1.00}}},
           {"RapidJSON", count, printingOf(japanese, rapidCheckedRows, kWithout)}}},
         {'h',
          "(a) with escapes",
          {{"layer", count, printingOf(escaped, layerRows, kWithout), {{"RapidJSON", 0.60}}},
           {"RapidJSON", count, printingOf(escaped, rapidRows, kWithout)}}}};
   for (Contest& contest : contests)
      complete(contest);

   const size_t bytesPerRow = contests.front().competitors.front().bytes / count;
   contests.insert(contests.begin() + 5, makeGrowth(rows, growth, bytesPerRow));
   constexpr size_t kChecks = 200'000;
   // By its address, as the library's own calls go: without the stub that a program's calls of a
   // shared library pass through.
   static void (*volatile const kCheck)() = &vorel::raiseSigIntIfNeeded;
   const auto check = [](int) {
      void (*const raise)() = kCheck;
      for (size_t i = 0; i < kChecks; i += 4) {  // so that the loop itself counts for little
         raise();
         raise();
         raise();
         raise();
      }
   };
   contests.push_back({'i', "interrupt check", {{"per check", kChecks, check, {}, 2.0}}});
   return contests;
}

}  // namespace bench
