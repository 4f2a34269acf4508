#pragma once

// Failing system calls for the tests of the server. The test executables define the import pointers of a few
// functions (faults.cpp), which the linker prefers to the import library's. Calls without a setting are
// passed to the system.

#include <atomic>
#include <cstdint>

// Thrown by a call that is set to fail with an exception that is not one of the server's own.
struct ForeignException {};

namespace faults {

// Back to normal, counters to 0.
void Reset();

extern std::atomic<int> moveFileCalls;
extern std::atomic<bool> moveFileThrows;  // ForeignException

extern std::atomic<int> flushViewCalls;
extern std::atomic<bool> flushViewFails;  // error 1117

extern std::atomic<bool> executablePathFails;   // GetModuleFileName returns 0, error 5
extern std::atomic<bool> executablePathIsLong;  // a path of 1023 characters, its last backslash at 1019

extern std::atomic<bool> deviceControlThrows;  // ForeignException

extern std::atomic<bool> createThreadFails;  // error 8

// The number of registry keys opened or created with security attributes.
extern std::atomic<int> keysWithAccessList;

// Counts the locks (TamLogUtil::Mutex) that the calling thread takes from now on. The wait for number
// `number` (from 1), which must be free, fails with error 6 or, if requested, throws ForeignException. 0:
// none fails.
void WatchWaits(int number, bool throws = false);
int WaitsSeen();

}  // namespace faults
