#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "Contest.h"

namespace bench {

/** Collects the times of all rounds, and prints them as one table. */
class Table : public benchmark::BenchmarkReporter {
 public:
   bool ReportContext(const Context& context) override;
   void ReportRuns(const std::vector<Run>& runs) override;

   /** Instructions per row, by the keys of competitors, as far as they were counted. */
   void print(const std::vector<Contest>& contests,
              const std::map<std::string, double>& instructions) const;

 private:
   struct Times {
      double best;    // seconds of processor time in the fastest round
      double median;  // and in the middle one
   };
   void printContest(const Contest& contest,
                     const std::map<std::string, double>& instructions) const;

   std::map<std::string, Times> times_;
};

}  // namespace bench
