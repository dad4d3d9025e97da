#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Contest.h"
#include "Printers.h"
#include "Table.h"

namespace bench {

namespace {

int openNull() {
   const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
   if (fd < 0)
      throw std::runtime_error("cannot open /dev/null");
   return fd;
}

/** Peak memory in KiB of a process that prints one table. */
long peakMemory(const Rows& rows, size_t count, int fd) {
   const pid_t child = fork();
   if (child == 0) {
      printRows(rows, count, Load::kWithout, fd);
      _exit(0);
   }
   int status = 0;
   rusage usage;
   if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0)
      throw std::runtime_error("cannot measure memory");
   return usage.ru_maxrss;
}

/** One round of each competitor, with a dump of callgrind's counters after it, titled with rows and
 * key. */
void countInstructions(const std::vector<Contest>& contests, int fd) {
   for (const Contest& contest : contests) {
      for (const Competitor& competitor : contest.competitors) {
         if (!competitor.counted)
            continue;
         const std::string title =
               std::to_string(competitor.rows) + " " + contest.key(competitor.name);
         CALLGRIND_ZERO_STATS;
         competitor.run(fd);
         CALLGRIND_DUMP_STATS_AT(title.c_str());
      }
   }
}

/** Instructions per row, from lines of instructions, rows and a key. */
std::map<std::string, double> readInstructions(const char* path) {
   std::map<std::string, double> counts;
   std::ifstream in(path);
   double count = 0;
   double rows = 0;
   std::string key;
   while (in >> count >> rows >> std::ws && std::getline(in, key))
      counts[key] = count / rows;
   return counts;
}

void measure(const std::vector<Contest>& contests, int fd, Table& table) {
   for (const Contest& contest : contests) {
      for (const Competitor& competitor : contest.competitors) {
         const auto rounds = [&competitor, fd](benchmark::State& state) {
            for ([[maybe_unused]] auto _ : state)
               competitor.run(fd);
         };
         benchmark::RegisterBenchmark(contest.key(competitor.name).c_str(), rounds)
               ->Iterations(1)
               ->Repetitions(competitor.rounds);
      }
   }
   benchmark::RunSpecifiedBenchmarks(&table);
}

/**
 * With --count-instructions, to be run under callgrind, dumps the counts of a round of each
 * competitor. Otherwise measures and prints the table, with the counts of the file that the
 * variable BENCH_INSTRUCTIONS names, if there is one; takes Google Benchmark's options.
 */
int run(int argc, char** argv) {
   constexpr size_t kRows = 20'000;
   constexpr size_t kGrowth = 10'000'000;
   constexpr size_t kGrowthWhenCounting = 100'000;  // callgrind is slow
   constexpr size_t kFewRows = 10'000;              // which fill the write area
   constexpr long kTolerance = 64;                  // KiB
   const Rows rows = makeRows(kRows);
   const int fd = openNull();
   if (argc == 2 && std::string(argv[1]) == "--count-instructions") {
      countInstructions(makeContests(rows, kGrowthWhenCounting), fd);
      return 0;
   }

   std::vector<char*> args(argv, argv + argc);
   std::string interleave = "--benchmark_enable_random_interleaving=true";
   args.insert(args.begin() + 1, interleave.data());
   int count = static_cast<int>(args.size());
   args.push_back(nullptr);
   benchmark::Initialize(&count, args.data());
   if (benchmark::ReportUnrecognizedArguments(count, args.data()))
      return 1;

   // First, while this process is small.
   const long few = peakMemory(rows, kFewRows, fd);
   const long many = peakMemory(rows, kGrowth, fd);
   const std::vector<Contest> contests = makeContests(rows, kGrowth);
   Table table;
   measure(contests, fd, table);
   const char* counts = std::getenv("BENCH_INSTRUCTIONS");
   table.print(contests, readInstructions(counts == nullptr ? "" : counts));
   fmt::print(
         "\nPeak memory of a process that prints (a): {} KiB with {} rows, {} KiB with {}: {}.\n",
         few, kFewRows, many, kGrowth,
         many - few <= kTolerance ? "constant, met" : "it grows, missed");
   return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
   try {
      return bench::run(argc, argv);
   } catch (const std::exception& problem) {
      std::fprintf(stderr, "%s\n", problem.what());
      return 1;
   }
}
