#pragma once

// The counterpart of bench/meter.py: a program prepares its measurements, prints "ready", and then performs
// one measurement for each line of standard input: the line names it, the answer is one line with one number.
// So two programs, of Windows and of Linux, measure in turns, and each stays warm meanwhile. Single-threaded.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

namespace Bench {

// Values added here are not optimised away.
inline volatile std::uint64_t sink = 0;

template <class Work>
double Nanoseconds(Work&& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  const auto end = std::chrono::steady_clock::now();
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(end - begin).count());
}

using Measurements = std::map<std::string, std::function<double()>>;

// Ends the program with exit code 2; the program that started it shows the text.
[[noreturn]] inline void Fail(const std::string& what) {
  std::cerr << what << std::endl;
  std::exit(2);
}

// Returns the number in an optional argument: 0 when it is missing or not a number.
inline std::uint32_t NumberIn(int argc, char** argv, int index) {
  return index < argc ? static_cast<std::uint32_t>(std::strtoul(argv[index], nullptr, 10)) : 0;
}

// Performs measurements until the end of the input. Returns the result for main.
inline int TakeTurns(const Measurements& measurements) {
  std::cout << "ready" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const auto found = measurements.find(line);
    if (found == measurements.end()) Fail("there is no measurement '" + line + "'");
    std::cout << found->second() << std::endl;
  }
  return 0;
}

}  // namespace Bench
