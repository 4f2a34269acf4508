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

// A duration as users type it. Days and weeks count by the calendar, so that they keep the time of day over a
// change to or from daylight saving time; the rest is elapsed time.
struct TimeSpan {
  std::chrono::days days{};
  std::chrono::milliseconds rest{};

  // Returns the whole duration, with 24 hours a day.
  std::chrono::milliseconds Elapsed() const { return days + rest; }
};

// Reads one or more numbers of up to seven digits, each with its unit: "250ms", "1h30m", "2 days 3 hours".
// Units are ms, s, m, h, d and w, their English words, and msec, sec, min and hr.
std::optional<TimeSpan> ReadDuration(std::string_view text);

// Returns the same as elapsed time.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);

}  // namespace TamLogCtl
