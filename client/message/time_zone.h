#pragma once

// The zone in which times were written. Messages carry none; whoever knows it can state it. Stating a zone
// never changes the time of day that is shown: it adds the offset from UTC, and makes the moment known.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/message/time_text.h"

namespace TamLogClient {

// The minutes by which local time is ahead of UTC at a local time, which is a real one (IsRealTime).
using LocalOffset = std::function<int(const TimeWords& local)>;

// Belongs to one thread: it remembers the offset of the last local time.
class TimeZone {
 public:
  // Nothing is stated.
  TimeZone() = default;

  // The names that users type: written (nothing is stated), utc, +hh:mm or -hh:mm (up to 23:59), local.
  static std::optional<TimeZone> FromName(std::string_view name, LocalOffset local);

  bool IsStated() const { return kind != Kind::Written; }

  // Minutes ahead of UTC; nothing when no zone is stated or the time is not real.
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

// Milliseconds since 1970 of a time that was written `offsetMinutes` ahead of UTC. Impossible times roll
// over: month 13 is January of the next year, day 0 the day before the first.
std::int64_t MillisecondsSince1970(const TimeWords& written, int offsetMinutes);

}  // namespace TamLogClient
