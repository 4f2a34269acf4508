#pragma once

// Runs an operation again and again with the first, second, third ... call that the server's own code makes
// into the system failing, until the operation gets through. Links against copies of the rooms in which every
// import is renamed (swept_rooms in tests/support/CMakeLists.txt), so calls of the tests, of gtest and of the
// run-time libraries are neither counted nor failed.
//
//   const Outcomes outcomes = Sweep({.prepare = [&] { ... },          // nothing fails
//                                    .operation = [&] { ... },        // the nth call fails, on any thread
//                                    .check = [&] { ... }});          // nothing fails; frees what was made
//   EXPECT_EQ(outcomes, (Outcomes{{"CreateFileA", {"Failed to open log file, CreateFile() failed (5)"}}}));
//
// After each round the sweep itself requires that as many handles, views, keys, memory blocks and threads are
// open as before it, and that nothing was closed that was not open. What each call returns when it fails is
// in call_sweep.cpp.
//
// With TAMLOG_CALL_SITES=FILE in the environment each call site that has been failed is appended to FILE:
// the executable's name, the return address in its preferred image, the call.

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace TestSupport {

// What came of it when a call failed: the text of the ExceptionBase that left the operation, one line a
// level, joined by " / ", each system text cut to its error code in parentheses; empty when none did. What
// the operation reported otherwise (Sweep::report) follows.
using Outcomes = std::map<std::string, std::set<std::string>>;

struct SweptOperation {
  std::function<void()> prepare = [] {};
  std::function<void()> operation;
  std::function<void()> check = [] {};
  // What the operation left behind to be seen, of the same form as a failure's text.
  std::function<std::string()> report = [] { return std::string(); };
  // SetEvent fails after it has set the event, unless it is a lock's own. Otherwise it fails without: the
  // event stays as it was. (Of the events that processes share nobody could make up for one that was not
  // set.)
  bool eventsAreSet = false;
  // Only every such call fails, for operations that take long; all do with TAMLOG_SWEEP_ALL in the
  // environment.
  int stride = 1;
  // The name of a call that fails every time, so that those come about that only a failure leads to.
  std::string failsAlways = {};
};

// Fails the test on leaks, on what no ExceptionBase is, and when there is no end.
Outcomes Sweep(const SweptOperation& swept);

// Those that `allowed` does not have. For operations on several threads, which need not make the same calls
// each time.
Outcomes Beyond(const Outcomes& outcomes, const Outcomes& allowed);

// For operations that end the process, and for calls that come at no fixed place.

// The nth call from now on fails; `name` empty: any call, otherwise those by that name.
void ArmCallFault(int n, const std::string& name = "", bool eventsAreSet = false);
void DisarmCallFault();
// The name of the call that failed since the last arming; empty when none did.
std::string FailedCall();

// The form in which outcomes are given: ` - Error code : 5 - Access denied.\r\n` becomes ` (5)`, and line
// breaks between levels " / ".
std::string PlainText(const std::string& composed);
// What `action` throws, in that form; empty when it does not throw.
std::string PlainFailureOf(const std::function<void()>& action);

// What the server's code has open now, by the calls that opened it; threads that have not ended as "thread".
std::multiset<std::string> OpenResources();
// Closed without having been open, since the start of the process.
std::vector<std::string> WrongCloses();
// Whether every thread that the server's code has started comes to its end within the time.
bool ThreadsEnd(std::uint32_t milliseconds);

}  // namespace TestSupport
