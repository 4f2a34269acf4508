#pragma once

// Parses the times of --since and --until: as printed, by the calendar, with a zone, or relative to now.
//
// Messages carry no zone; usually they were written in the local time of the server's machine. A time with Z
// or an offset is therefore converted to the local time of the machine that reads.

#include <functional>
#include <optional>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogCtl {

struct BoundClock {
  TamLogClient::TimeWords now{};  // the local time

  // Returns the minutes by which local time is ahead of UTC at a moment given in UTC.
  std::function<int(const TamLogClient::TimeWords& utc)> localOffset;
};

// Accepts
//   the output of the program: 2026-01-02 03:04:05.678, and the raw words of an impossible time
//   (!2026,13,...) YYYY-MM-DD, YYYY-MM-DD HH:MM, YYYY-MM-DD HH:MM:SS, with a space or a T before the time of
//   day HH:MM, HH:MM:SS, HH:MM:SS.mmm: of today RFC 3339: 2026-01-02T03:04:05.678901Z, also with +02:00,
//   -05:30 or +0200 instead of Z; digits after the milliseconds are dropped now; today, yesterday and
//   tomorrow at midnight -90s, -15m, -2h, -3d, -1w, -250ms: that long before now
// Returns nothing for anything else, impossible dates included.
std::optional<TamLogClient::TimeWords> ParseBound(std::string_view text, const BoundClock& clock);

}  // namespace TamLogCtl
