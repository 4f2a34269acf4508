#pragma once

// Marks for counting the requests that an operation makes to Wine's server: bench/wine_requests.py has the
// server print every request and counts those between the marks. Windows only.

#include <functional>

namespace Bench {

// Puts marks around `count` repetitions (as a warm-up), `count` once more, and twice as many: the cost of one
// repetition is the difference between the last two, which excludes the cost of the beginning and the end of
// a series. Returns `count`.
double MarkRepetitions(int count, const std::function<void(int)>& prepare,
                       const std::function<void(int)>& operation);

}  // namespace Bench
