#pragma once

// Counts messages by source, type and minute. One thread at a time may use an object.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
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
  };

  struct Period {
    TamLogClient::TimeWords begin{};
    std::uint64_t count = 0;
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

  const std::optional<TamLogClient::TimeWords>& Oldest() const { return oldest; }
  const std::optional<TamLogClient::TimeWords>& Newest() const { return newest; }

  // Returns the time from the oldest message to the newest; nothing without messages.
  std::optional<double> SpanSeconds() const;

  // Returns the messages per minute over that span; nothing if it is shorter than a second.
  std::optional<double> PerMinute() const;

 private:
  std::uint64_t count = 0;
  std::uint64_t timeless = 0;
  TypeCounts types{};
  std::map<std::string, std::pair<std::uint64_t, TypeCounts>, std::less<>> sources;
  std::map<std::int64_t, std::uint64_t> minutes;  // since 1970
  std::optional<TamLogClient::TimeWords> oldest;
  std::optional<TamLogClient::TimeWords> newest;
};

}  // namespace TamLogCtl
