#pragma once

// Failing system calls for the tests of the server. The test executables define the import pointers of a few
// functions (faults.cpp), which the linker then takes instead of the import library's; every call that is not
// told otherwise goes to the system.

#include <atomic>
#include <cstdint>

// Thrown by a call that is told to fail with something that is none of the server's own exceptions.
struct ForeignException {};

namespace faults {

// Back to normal, counters to 0.
void Reset();

extern std::atomic<int> moveFileCalls;
extern std::atomic<bool> moveFileThrows;  // ForeignException

extern std::atomic<int> flushViewCalls;
extern std::atomic<bool> flushViewFails;  // error 1117

extern std::atomic<bool> executablePathFails;   // GetModuleFileName gives 0, error 5
extern std::atomic<bool> executablePathIsLong;  // a path of 1023 characters, its last backslash at 1019

extern std::atomic<bool> deviceControlThrows;  // ForeignException

extern std::atomic<bool> createThreadFails;  // error 8

// Keys of the registry that were opened or made with security attributes.
extern std::atomic<int> keysWithAccessList;

// Locks (TamLogUtil::Mutex) that the calling thread takes: counted from now on; the wait for number `number`
// (from 1), which has to be free, fails with error 6 or, when told so, throws ForeignException. 0: none
// fails.
void WatchWaits(int number, bool throws = false);
int WaitsSeen();

}  // namespace faults
