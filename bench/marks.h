#pragma once

// For counting the calls that an operation makes into Wine's server: bench/requests.py has the server print
// every request and looks at what lies between the marks. Windows only.

#include <functional>

namespace Bench {

// Puts marks around `count` repetitions (to have everything warm), `count` once more, and twice as many: what
// one repetition costs is the difference between the last two, whatever the beginning and the end of a series
// cost. Returns `count`.
double MarkRepetitions(int count, const std::function<void(int)>& prepare,
                       const std::function<void(int)>& operation);

}  // namespace Bench
