#pragma once

// The times that people give to say from when until when: as printed, by the calendar, by a zone, or relative
// to now.
//
// Messages carry no zone; usually they were written in the local time of the server's machine. A bound with Z
// or an offset therefore means that moment in the local time of the machine that reads.

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogCtl {

struct BoundClock {
  TamLogClient::TimeWords now{};  // the local time

  // The minutes by which local time is ahead of UTC at a moment given in UTC.
  std::function<int(const TamLogClient::TimeWords& utc)> localOffset;
};

// Accepts
//   what the program prints: 2026-01-02 03:04:05.678, and the raw words of an impossible time (!2026,13,...)
//   YYYY-MM-DD, YYYY-MM-DD HH:MM, YYYY-MM-DD HH:MM:SS, each with a space or a T in between
//   HH:MM, HH:MM:SS, HH:MM:SS.mmm: today
//   RFC 3339: 2026-01-02T03:04:05.678901Z, with +02:00, -05:30 or +0200 instead of Z; digits behind the
//   milliseconds are cut off
//   now, today, yesterday, tomorrow: the last three at midnight
//   -90s, -15m, -2h, -3d, -1w: so long before now
// Nothing for anything else, impossible dates included.
std::optional<TamLogClient::TimeWords> ParseBound(std::string_view text, const BoundClock& clock);

}  // namespace TamLogCtl
