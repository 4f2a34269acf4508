#pragma once

// Runs an operation repeatedly with the first, second, third ... system call of the server's own code
// failing, until the operation completes without a failure. Links against copies of the rooms in which every
// import is renamed (swept_rooms in tests/support/CMakeLists.txt), so calls of the tests, of gtest and of the
// run-time libraries are neither counted nor made to fail.
//
//   const Outcomes outcomes = Sweep({.prepare = [&] { ... },          // nothing fails
//                                    .operation = [&] { ... },        // the nth call fails, on any thread
//                                    .check = [&] { ... }});          // nothing fails; frees the results
//   EXPECT_EQ(outcomes, (Outcomes{{"CreateFileA", {"Failed to open log file, CreateFile() failed (5)"}}}));
//
// After each round the sweep itself requires that as many handles, views, keys, memory blocks and threads are
// open as before it, and that nothing was closed that was not open. swept_calls.cpp lists the failure that
// each call returns.
//
// With TAMLOG_CALL_SITES=FILE in the environment the sweep appends each call site that has failed to FILE:
// the executable's name, the return address in its preferred image, the call.

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace TestSupport {

// The outcome of each failed call: the text of the ExceptionBase that left the operation, its levels joined
// by " / ", each system text cut to its error code in parentheses; empty when there was none. The operation's
// own report (SweptOperation::report) follows.
using Outcomes = std::map<std::string, std::set<std::string>>;

struct SweptOperation {
  std::function<void()> prepare = [] {};
  std::function<void()> operation;
  std::function<void()> check = [] {};
  // Reports the visible results of the operation, in the same form as a failure's text.
  std::function<std::string()> report = [] { return std::string(); };
  // With true, SetEvent sets the event and then fails, unless the event is a lock's own. With false, it fails
  // and leaves the event as it was. (Nothing could make up for an event shared by processes that was not
  // set.)
  bool eventsAreSet = false;
  // Only every `stride`-th call fails, for operations that take long; with TAMLOG_SWEEP_ALL in the
  // environment all do.
  int stride = 1;
  // The name of a call that fails every time, to reach the calls that only a failure leads to.
  std::string failsAlways = {};
};

// Fails the test on leaks, on exceptions outside the ExceptionBase family, and when the sweep does not end.
Outcomes Sweep(const SweptOperation& swept);

// Returns the outcomes that `allowed` does not contain. For operations on several threads, whose calls may
// differ each time.
Outcomes Beyond(const Outcomes& outcomes, const Outcomes& allowed);

// The functions below are for operations that end the process, and for calls without a fixed place in the
// order.

// Makes the nth call from now on fail; with an empty `name` any call counts, otherwise those by that name.
void ArmCallFault(int n, const std::string& name = "", bool eventsAreSet = false);
void DisarmCallFault();
// Returns the name of the call that failed since the last arming; empty when none did.
std::string FailedCall();

// Converts a composed text into the form of outcomes: ` - Error code : 5 - Access denied.\r\n` becomes `
// (5)`, and line breaks between levels " / ".
std::string PlainText(const std::string& composed);
// Returns the text of the exception that `action` throws, in that form; empty when it does not throw.
std::string PlainFailureOf(const std::function<void()>& action);

// Returns the resources that the server's code has open now, by the calls that opened them; threads that have
// not ended appear as "thread".
std::multiset<std::string> OpenResources();
// Returns the resources that were closed without having been open, since the start of the process.
std::vector<std::string> WrongCloses();
// Returns whether every thread that the server's code has started ends within the time.
bool ThreadsEnd(std::uint32_t milliseconds);

}  // namespace TestSupport
