#pragma once

// Arithmetic with the times of messages, and durations as users type them.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogCtl {

// Returns the time that is `since` milliseconds after the beginning of 1970, or before it; the reverse of
// TamLogClient::MillisecondsSince1970 with offset 0. The year has to be within 1 to 9999.
TamLogClient::TimeWords WordsSince1970(std::int64_t since);

// Returns `words` moved by `by`. Nothing unless both the time and the result are real (IsRealTime).
std::optional<TamLogClient::TimeWords> MovedBy(const TamLogClient::TimeWords& words,
                                               std::chrono::milliseconds by);

// Returns the seconds from one real time to a later one.
double SecondsBetween(const TamLogClient::TimeWords& earlier, const TamLogClient::TimeWords& later);

// Reads a number of up to seven digits and its unit: "250ms", "90s", "15m", "2h", "3d" or "1w".
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

}  // namespace TamLogCtl
