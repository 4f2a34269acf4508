#pragma once

// The other end of bench/meter.py: a program that prepares what it measures, says "ready", and then takes one
// measurement for each line of standard input: the line names it, the answer is one line with one number. So
// two programs, of Windows and of Linux, measure in turns, and each stays warm meanwhile. One thread.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <string>

namespace Bench {

// Whatever is added here is not optimised away.
inline volatile std::uint64_t sink = 0;

template <class Work>
double Nanoseconds(Work&& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  const auto end = std::chrono::steady_clock::now();
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(end - begin).count());
}

using Measurements = std::map<std::string, std::function<double()>>;

// Until the end of the input. The result is for main: 2 after a line that names nothing.
inline int TakeTurns(const Measurements& measurements) {
  std::puts("ready");
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const auto found = measurements.find(line);
    if (found == measurements.end()) {
      std::fprintf(stderr, "there is no measurement '%s'\n", line.c_str());
      return 2;
    }
    std::printf("%.9g\n", found->second());
    std::fflush(stdout);
  }
  return 0;
}

}  // namespace Bench
