#include <cstdio>
#include <filesystem>
#include <string_view>

#include "bench/benchmarks.h"

// mddct_bench FOLDER [NAME...]: prints the rows of the table of results, all or those of these names. FOLDER is for
// files.
int main(int count, char** arguments) {
  struct Benchmark {
    std::string_view name;
    void (*run)(const std::filesystem::path&);
  };
  constexpr Benchmark kAll[] = {{"log", bench::benchLog},
                                {"masking", bench::benchMasking},
                                {"bag", bench::benchBags},
                                {"digest", bench::benchDigests}};
  if (count < 2) {
    std::fputs("usage: mddct_bench FOLDER [NAME...]\n", stderr);
    return 2;
  }
  for (const Benchmark& benchmark : kAll) {
    bool wanted = count == 2;
    for (int i = 2; i < count; ++i) {
      wanted = wanted || benchmark.name == arguments[i];
    }
    if (wanted) {
      benchmark.run(arguments[1]);
    }
  }
  return 0;
}
