#pragma once

// The system calls of util/thread.cpp, one function each. None throws; a call that fails leaves its last
// error set.

#include <cstdint>

#include "util/native_handle.h"

namespace TamLogUtil::Threading {

using ThreadFunction = unsigned long(__attribute__((ms_abi)) *)(void*);

// Returns the handle of a new thread that runs function(argument), or null.
NativeHandle StartThread(ThreadFunction function, void* argument);
// Returns the calling thread's id; never 0.
std::uint32_t PresentThreadId();

enum class ThreadWait : std::uint8_t { Ended, TimedOut, Failed };
ThreadWait WaitForEnd(NativeHandle thread, std::uint32_t milliseconds);

bool PauseThread(NativeHandle thread);
bool ResumeThread(NativeHandle thread);
// Terminates the thread wherever it is.
bool EndThread(NativeHandle thread, std::uint32_t exitCode);
// Returns the calling thread's last error.
std::uint32_t LastError();

}  // namespace TamLogUtil::Threading
