#pragma once

// The zone in which times were written. Messages carry none; a user who knows it can state it. A stated zone
// never changes the time of day that is shown: it adds the offset from UTC, so that the instant is known.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogClient {

// Returns the minutes by which local time is ahead of UTC at a local time, which is a real one (IsRealTime).
using LocalOffset = std::function<int(const TimeWords& local)>;

// Belongs to one thread: it remembers the offset of the last local time.
class TimeZone {
 public:
  // States no zone.
  TimeZone() = default;

  // Returns the zone with a name that users type: written (none is stated), utc, +hh:mm or -hh:mm (up to
  // 23:59), or local, which calls `local` for each new minute. Nothing for other names.
  static std::optional<TimeZone> FromName(std::string_view name, LocalOffset local);

  // Returns the minutes ahead of UTC; nothing when no zone is stated or the time is not real.
  std::optional<int> OffsetAt(const TimeWords& written);

  // Appends "Z" when the zone is utc, else `offset`, in minutes, as "+hh:mm" or "-hh:mm".
  void AppendOffset(int offset, std::string& out) const;

 private:
  enum class Kind : std::uint8_t { Written, Utc, Fixed, Local };

  explicit TimeZone(Kind chosen, int offset = 0) : kind(chosen), minutes(offset) {}

  Kind kind = Kind::Written;
  int minutes = 0;
  LocalOffset localOffset;
  TimeWords lastMinute{};  // seconds and below are 0
};

// Returns the milliseconds since 1970 of a time that was written `offsetMinutes` ahead of UTC. Impossible
// times roll over: month 13 is January of the next year, day 0 the day before the first.
std::int64_t MillisecondsSince1970(const TimeWords& written, int offsetMinutes);

}  // namespace TamLogClient
