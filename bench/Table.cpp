#include "Table.h"

#include <fmt/format.h>

#include <algorithm>

namespace bench {

bool Table::ReportContext(const Context& context) {
   fmt::print("{} processors", context.cpu_info.num_cpus);
   if (!context.cpu_info.load_avg.empty())
      fmt::print(", load {:.1f} before the run", context.cpu_info.load_avg.front());
   fmt::print("\n");
   return true;
}

void Table::ReportRuns(const std::vector<Run>& runs) {
   std::vector<double> seconds;
   for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration && !run.error_occurred)
         seconds.push_back(run.cpu_accumulated_time / static_cast<double>(run.iterations));
   if (seconds.empty())
      return;
   std::sort(seconds.begin(), seconds.end());
   times_[runs.front().run_name.function_name] = {seconds.front(), seconds[seconds.size() / 2]};
}

void Table::print(const std::vector<Contest>& contests,
                  const std::map<std::string, double>& instructions) const {
   fmt::print("\n{:<22} {:<17} {:>9} {:>7} {:>8} {:>10}   {}\n", "document", "competitor", "ns/row",
              "MB/s", "spread", "instr/row", "ratio (of medians)");
   for (const Contest& contest : contests)
      printContest(contest, instructions);
   fmt::print(
         "\nTimes are processor time in the best round, and so are the ratios; in brackets that "
         "of\n"
         "the median rounds. Spread is how far the median lies above the best. The rounds of all\n"
         "competitors take turns, in random order. Instructions are exact counts, whatever else "
         "the\n"
         "machine does.\n"
         "All competitors of a document printed the same bytes, compared beforehand, but for\n"
         "RapidJSON, nlohmann::json and the layer in (b), which give doubles other digits.\n"
         "RapidJSON, nlohmann::json and the layer escape and check strings; {{fmt}} and the\n"
         "renderer's own calls, \"Vorel\", do not. \"memcpy and write\" is the floor.\n");
}

void Table::printContest(const Contest& contest,
                         const std::map<std::string, double>& instructions) const {
   constexpr int kFiguresWidth = 22 + 17 + 9 + 7 + 8 + 10 + 5;
   std::string title = fmt::format("({}) {}", contest.letter, contest.document);
   for (const Competitor& competitor : contest.competitors) {
      const auto found = times_.find(contest.key(competitor.name));
      if (found == times_.end())
         continue;
      const Times& times = found->second;
      const auto rows = static_cast<double>(competitor.rows);
      const double perRow = times.best * 1e9 / rows;
      const double rate = static_cast<double>(competitor.bytes) / times.best / 1e6;
      const auto counted = instructions.find(contest.key(competitor.name));
      fmt::print("{:<22} {:<17} {:>9.1f} {:>7} {:>8} {:>10}", title, competitor.name, perRow,
                 rate == 0 ? "-" : fmt::format("{:.0f}", rate),
                 fmt::format("+{:.0f} %", (times.median / times.best - 1) * 100),
                 counted == instructions.end() ? "-" : fmt::format("{:.1f}", counted->second));
      title.clear();

      int indent = 0;
      const auto printRatio = [&](double figure, const std::string& what, double atMost) {
         fmt::print("{:<{}}   {:.2f} {:<24}", "", indent, figure, what);
         if (atMost != 0)
            fmt::print(" at most {:.2f}: {}", atMost, figure <= atMost ? "met" : "missed");
         fmt::print("\n");
         indent = kFiguresWidth;
      };
      if (competitor.nanosecondsAtMost != 0)
         printRatio(perRow, "ns", competitor.nanosecondsAtMost);
      for (const Peer& peer : competitor.peers)
         if (const auto other = times_.find(contest.key(peer.name)); other != times_.end())
            printRatio(
                  times.best / other->second.best,
                  fmt::format("({:.2f}) of {}", times.median / other->second.median, peer.name),
                  peer.atMost);
      if (indent == 0)
         fmt::print("\n");
   }
}

}  // namespace bench
