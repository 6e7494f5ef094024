// What one candidate costs the library itself in whole searches with repairs, early and late in a
// run, with a host that does nothing (whole_search.hpp).
//
//   scripts/count_search_instructions.sh    instructions a candidate, by callgrind
//   bench_search run WORK BATCH GENERATIONS MARK...    one run, for that script
//
// WORK is "passing", "failing", "near" (near misses without a plan) or "repaired" (a plan for
// each, and so twice as many candidates).
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "benchmarks/whole_search.hpp"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() < 4 || arguments[0] != "run") {
    std::cerr
        << "usage: bench_search run passing|failing|near|repaired BATCH GENERATIONS MARK...\n";
    return 2;
  }
  std::vector<std::int64_t> marks;
  for (std::size_t i = 4; i < arguments.size(); ++i)
    marks.push_back(std::stoll(arguments[i]));
  varnholt::genetic::benchmarks::Spine(arguments[1], std::stoll(arguments[2]),
                                       std::stoll(arguments[3]), marks)
      .run();
  return 0;
}
