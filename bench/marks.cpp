#include "bench/marks.h"

#include "util/win32.h"

namespace Bench {

namespace {

// Makes a request that appears in the trace by its name. The event does not exist and is not needed.
void Mark(const char* name) {
  const HANDLE none = OpenEventA(SYNCHRONIZE, FALSE, name);
  if (none != nullptr) CloseHandle(none);
}

}  // namespace

double MarkRepetitions(int count, const std::function<void(int)>& prepare,
                       const std::function<void(int)>& operation) {
  for (const int repetitions : {count, count, 2 * count}) {
    prepare(repetitions);
    Mark("TamLogBenchBegin");
    operation(repetitions);
    Mark("TamLogBenchEnd");
  }
  return count;
}

}  // namespace Bench
