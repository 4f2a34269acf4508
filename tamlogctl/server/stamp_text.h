#pragma once

// Time stamps at the beginning of lines that other programs wrote.

#include <cstdint>
#include <optional>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogCtl {

struct Stamp {
  TamLogClient::TimeWords words{};
  std::optional<int> offset;  // minutes ahead of UTC, where a zone is stated
};

// Takes a stamp from the front of `line`, and the blanks after it. Nothing, with `line` unchanged, when there
// is none.
//
// TakeIsoStamp: 2026-01-02 03:04:05, with - / or . in the date, T or a blank before the time, optional
// fractions after . or a comma, and an optional zone (Z, +01:00, +0100); all of it may stand in brackets,
// and a colon may follow.
std::optional<Stamp> TakeIsoStamp(std::string_view& line);
// TakeSyslogStamp: Jan  2 03:04:05. The year is chosen so that the time is not later than `newest` by more
// than a day.
std::optional<Stamp> TakeSyslogStamp(std::string_view& line, const TamLogClient::TimeWords& newest);

// TakeCalendarStamp: Fri Jan  2 03:04:05 2026, as `dmesg -T`, `date` and asctime write it; it may stand in
// brackets.
std::optional<Stamp> TakeCalendarStamp(std::string_view& line);

// Parses a whole text: one of ParseTime, followed by a zone or not.
std::optional<Stamp> ParseStamp(std::string_view text);

// Returns the local time of a moment, in milliseconds since 1970 in UTC.
TamLogClient::TimeWords LocalTimeAt(std::int64_t milliseconds);

}  // namespace TamLogCtl
