// Runs a fuzz target where libFuzzer is not at hand, on each file of a folder and then on random
// inputs: TARGET FOLDER COUNT [FIRST-SEED]. An input that stops the process is named.
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static std::string current;

static void stop(int signal) {
   [[maybe_unused]] const auto written = write(STDERR_FILENO, current.data(), current.size());
   _exit(signal);
}

static void run(const std::string& name, const std::string& bytes) {
   constexpr unsigned kMostSeconds = 60;
   current = "The input was " + name + "\n";
   alarm(kMostSeconds);
   LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int main(int argc, char** argv) {
   if (argc < 3)
      return 2;
   for (const int signal : {SIGABRT, SIGSEGV, SIGALRM})
      std::signal(signal, stop);
   const std::set<std::filesystem::path> files(std::filesystem::directory_iterator(argv[1]), {});
   if (files.empty())
      return 2;
   for (const auto& file : files) {
      std::ifstream stream(file, std::ios::binary);
      run(file, {std::istreambuf_iterator<char>(stream), {}});
   }
   const uint64_t count = std::stoull(argv[2]), first = argc > 3 ? std::stoull(argv[3]) : 1;
   for (uint64_t seed = first; seed != first + count; ++seed) {
      std::mt19937_64 random(seed);
      std::string bytes(random() % 601, '\0');
      for (char& byte : bytes)
         byte = static_cast<char>(random());
      run("seed " + std::to_string(seed), bytes);
   }
   std::cout << files.size() + count << " inputs\n";
}
