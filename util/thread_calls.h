#pragma once

// The calls of the system that util/thread.cpp makes, one function each. None throws; where a call may fail,
// the last error is left as the call set it.

#include <cstdint>

#include "util/native_handle.h"

namespace TamLogUtil::Threading {

using ThreadFunction = unsigned long(__attribute__((ms_abi)) *)(void*);

// The handle of a new thread that runs function(argument), or null.
NativeHandle StartThread(ThreadFunction function, void* argument);
// Of the calling thread; never 0.
std::uint32_t PresentThreadId();

enum class ThreadWait : std::uint8_t { Ended, TimedOut, Failed };
ThreadWait WaitForEnd(NativeHandle thread, std::uint32_t milliseconds);

bool PauseThread(NativeHandle thread);
bool ResumeThread(NativeHandle thread);
// Ends the thread wherever it is.
bool EndThread(NativeHandle thread, std::uint32_t exitCode);
// The last error of the calling thread.
std::uint32_t LastError();

}  // namespace TamLogUtil::Threading
