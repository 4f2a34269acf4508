#pragma once

// Times as words of a message and as text. Times carry no zone: they are printed as they were written.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

// Year, month, day, hour, minute, second, millisecond, spare: the order of a message's `timestamp`.
using TimeWords = std::array<std::int16_t, 8>;

TimeWords WordsOf(const LogMessageBody& body);
void SetTime(LogMessageBody& body, const TimeWords& words);

// A date of the calendar and a time of the day. Messages can carry others (month 0, day 40).
bool IsRealTime(const TimeWords& words);

// Appends "YYYY-MM-DD HH:MM:SS.mmm" (with `separator` between date and time), or for an impossible time its
// seven words as written, flagged by an exclamation mark: "!2026,13,40,25,0,0,0".
void AppendTime(const TimeWords& words, char separator, std::string& out);

// Reads either form that AppendTime writes, with a space or a T as separator; seconds, milliseconds or the
// whole time of day may be missing and are then 0. Nothing for anything else, impossible dates included.
std::optional<TimeWords> ParseTime(std::string_view text);

// Like ParseTime, but also "now", "today", "yesterday" and times relative to `now`: "-90s", "-15m", "-2h",
// "-3d".
std::optional<TimeWords> ParseTimeBound(std::string_view text, const TimeWords& now);

// The sort key of a message with this time.
std::uint64_t KeyOf(const TimeWords& words);

}  // namespace TamLogClient
