#pragma once

// Parses the times that users type: as printed, by the calendar, with a zone, or relative to now.
//
// Messages carry no zone; usually they were written in the local time of the server's machine. A time with Z
// or an offset, and a count of seconds since 1970, is therefore converted to the local time of the machine
// that reads, or to the zone that the user has stated for the log.

#include <functional>
#include <optional>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogCtl {

struct BoundClock {
  // The local time from which relative times count.
  TamLogClient::TimeWords now{};

  // Returns the minutes by which local time is ahead of UTC at a moment given in UTC.
  std::function<int(const TamLogClient::TimeWords& utc)> localOffset;

  // `now` in UTC, where it is known. Without it, an hour that the clock shows twice has one of its two
  // meanings.
  std::optional<TamLogClient::TimeWords> utc{};

  // Where the clock was set back within a duration, return the earliest time that it showed since, so that a
  // lower bound leaves out no message of that duration.
  bool earliest = false;
};

// What ParseBound accepts, for the report on a value that it rejects.
inline constexpr const char* kExpectedTime =
    "expected YYYY-MM-DD [HH:MM[:SS[.mmm]]], HH:MM, now, today, yesterday [HH:MM], -1h30m (ms, s, m, h, d, "
    "w), "
    "'1 hour ago', YYYY-MM-DDTHH:MM:SSZ, or @SECONDS since 1970";

// Returns the clock of this moment for a local time that `localOffset` defines.
BoundClock ClockOfNow(std::function<int(const TamLogClient::TimeWords& utc)> localOffset);

// Accepts
//   - the output of the program: 2026-01-02 03:04:05.678, and the raw words of an impossible time
//   (!2026,13,...);
//   - YYYY-MM-DD, YYYY-MM-DD HH:MM, YYYY-MM-DD HH:MM:SS, with a space or a T before the time of day;
//   - HH:MM, HH:MM:SS, HH:MM:SS.mmm: of today;
//   - today, yesterday and tomorrow: at midnight, or with a time of day: yesterday 10:00;
//   - now, and durations (ReadDuration) before or after it: -15m, -1h30m, 1 hour ago, +2h;
//   - RFC 3339: 2026-01-02T03:04:05.678901Z, also with +02:00, -05:30 or +0200 instead of Z;
//   - @1767322800.5: seconds since 1970 in UTC.
// Digits of a second after the milliseconds are dropped. Words may be written in capital letters. Returns
// nothing for anything else, impossible dates included.
std::optional<TamLogClient::TimeWords> ParseBound(std::string_view text, const BoundClock& clock);

}  // namespace TamLogCtl
