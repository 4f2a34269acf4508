#pragma once

// A clock that the test sets: the counterpart of util/clock.cpp, for executables that link set_clock.cpp in
// its place. It stands still except while a thread sleeps: a sleep takes no time and moves it on by all of
// its length.

#include <cstdint>

namespace TestSupport {

void SetClock(std::uint64_t reading);

}  // namespace TestSupport
