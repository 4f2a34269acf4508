#pragma once

// Counts messages by source, type and minute. One thread at a time may use an object.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/message/log_message_view.h"
#include "client/message/time_text.h"

namespace TamLogCtl {

class MessageStats {
 public:
  // By type; the last element counts unknown types.
  using TypeCounts = std::array<std::uint64_t, kMessageTypes + 1>;

  struct Source {
    std::string name;  // the bytes as they were sent
    std::uint64_t count = 0;
    TypeCounts types{};
    std::optional<TamLogClient::TimeWords> oldest;  // of its messages with real times
    std::optional<TamLogClient::TimeWords> newest;
  };

  struct Period {
    TamLogClient::TimeWords begin{};
    std::uint64_t count = 0;
  };

  // A stretch of time from one message to the next.
  struct Gap {
    TamLogClient::TimeWords from{};
    TamLogClient::TimeWords to{};
    double Seconds() const;
  };

  void Add(const TamLogClient::LogMessageView& message);

  std::uint64_t Count() const { return count; }
  const TypeCounts& Types() const { return types; }

  // Messages whose time is not real (IsRealTime): they belong to no minute and are neither oldest nor newest.
  std::uint64_t Timeless() const { return timeless; }

  // Returns the sources with most messages first, equal counts by name.
  std::vector<Source> Sources() const;

  // Returns the periods of `length` minutes that contain messages, oldest first. `length` has to divide a
  // day.
  std::vector<Period> Periods(std::uint32_t length) const;

  // Returns the `most` longest gaps of at least a minute, the longest first.
  std::vector<Gap> Gaps(std::size_t most) const;

  // Returns the minute with most messages, the first of equal ones; nothing without messages.
  std::optional<Period> BusiestMinute() const;

  // Returns the number of minutes that contain messages.
  std::size_t ActiveMinutes() const { return minutes.size(); }

  std::optional<TamLogClient::TimeWords> Oldest() const { return times.Oldest(); }
  std::optional<TamLogClient::TimeWords> Newest() const { return times.Newest(); }

  // Returns the time from the oldest message to the newest; nothing without messages.
  std::optional<double> SpanSeconds() const;

  // Returns the messages per minute over that span; nothing if it is shorter than a second.
  std::optional<double> PerMinute() const;

 private:
  // The number of some messages with real times, and the first and the last of these in milliseconds since
  // 1970.
  struct Times {
    void Add(std::int64_t time);
    std::optional<TamLogClient::TimeWords> Oldest() const;
    std::optional<TamLogClient::TimeWords> Newest() const;

    std::uint64_t count = 0;
    std::int64_t first = std::numeric_limits<std::int64_t>::max();
    std::int64_t last = std::numeric_limits<std::int64_t>::min();
  };

  struct SourceCounts {
    std::uint64_t count = 0;
    TypeCounts types{};
    Times times;
  };

  std::uint64_t count = 0;
  std::uint64_t timeless = 0;
  TypeCounts types{};
  Times times;
  std::map<std::string, SourceCounts, std::less<>> sources;
  std::map<std::int64_t, Times> minutes;  // since 1970
};

}  // namespace TamLogCtl
