#pragma once

// Ends a test that hangs: after 180 seconds in one test (TAMLOG_TEST_LIMIT in the environment sets another
// number, 0 for no limit) the test's name and, on Windows, the back traces of all threads go to the error
// stream, and the process ends with exit code 99. Works in every test executable without being named. The
// limit is far more than any test takes alone: beside other work a machine is several times slower.
//
// Addresses refer to the executable's preferred image: addr2line -Cfpe TEST.exe ADDRESS names them.

namespace TestSupport {

inline constexpr int kWatchdogExitCode = 99;

// Sets another limit for the test that runs at present, counted from now.
void SetWatchdogLimit(int seconds);

}  // namespace TestSupport
