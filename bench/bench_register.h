// The naming of benchmark entries, shared by the benchmark files.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

namespace moxbench {

// Registers the benchmark BM_<peer>_<entry><suffix>, which calls
// run(state, args...). Names are built by appending (operator+ on a literal
// trips a false -Wrestrict in some compilers).
template <class Run, class... Args>
benchmark::internal::Benchmark* addEntry(const char* peer, const std::string& entry,
                                         const std::string& suffix, Run run, Args... args) {
  std::string name = "BM_";
  name.append(peer).append("_").append(entry).append(suffix);
  return benchmark::RegisterBenchmark(name.c_str(), run, args...);
}

}  // namespace moxbench
