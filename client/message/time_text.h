#pragma once

// Converts times between the words that messages carry and text. Times have no zone: they are printed as
// written.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

// Year, month, day, hour, minute, second, millisecond, spare: the order of a message's `timestamp`.
using TimeWords = std::array<std::int16_t, 8>;

// Reads and writes a message's time.
TimeWords WordsOf(const LogMessageBody& body);
void SetTime(LogMessageBody& body, const TimeWords& words);

// Returns whether the words are a date of the calendar, from year 1 to 9999, and a time of day. Messages can
// carry others (month 0, day 40).
bool IsRealTime(const TimeWords& words);

// Appends "YYYY-MM-DD HH:MM:SS.mmm" with `separator` between date and time. Of an impossible time it appends
// the seven words after an exclamation mark: "!2026,13,40,25,0,0,0".
void AppendTime(const TimeWords& words, char separator, std::string& out);

// Parses either form that AppendTime writes, with a space or a T as separator. Seconds, milliseconds or the
// whole time of day may be missing and are then 0. Returns nothing for anything else, impossible dates
// included.
std::optional<TimeWords> ParseTime(std::string_view text);

// Returns the time key of a message with this time, by which messages are ordered.
std::uint64_t KeyOf(const TimeWords& words);

}  // namespace TamLogClient
