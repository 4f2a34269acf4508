#include "tamlogctl/read/message_stats.h"

#include <algorithm>
#include <chrono>

#include "client/message/time_zone.h"
#include "tamlogctl/select/time_arithmetic.h"

namespace TamLogCtl {

using TamLogClient::IsRealTime;
using TamLogClient::LogMessageView;
using TamLogClient::TimeWords;

namespace {

constexpr std::int64_t kMinuteMs = 60000;

// Returns the minutes from 1970 to a real time.
std::int64_t MinuteOf(const TimeWords& words) {
  const std::chrono::milliseconds since(TamLogClient::MillisecondsSince1970(words, 0));
  return std::chrono::floor<std::chrono::minutes>(since).count();
}

}  // namespace

void MessageStats::Add(const LogMessageView& message) {
  const std::size_t type = std::min<std::size_t>(message.Type(), kMessageTypes);
  ++count;
  ++types[type];
  auto source = sources.find(message.Source());
  if (source == sources.end()) source = sources.try_emplace(std::string(message.Source())).first;
  ++source->second.first;
  ++source->second.second[type];
  const TimeWords words = TamLogClient::WordsOf(message.Body());
  if (!IsRealTime(words)) {
    ++timeless;
    return;
  }
  ++minutes[MinuteOf(words)];
  // The words of real times compare like the times.
  if (!oldest || words < *oldest) oldest = words;
  if (!newest || words > *newest) newest = words;
}

std::vector<MessageStats::Source> MessageStats::Sources() const {
  std::vector<Source> list;
  list.reserve(sources.size());
  for (const auto& [name, counts] : sources) list.push_back({name, counts.first, counts.second});
  std::stable_sort(list.begin(), list.end(),
                   [](const Source& left, const Source& right) { return left.count > right.count; });
  return list;
}

std::vector<MessageStats::Period> MessageStats::Periods(std::uint32_t length) const {
  std::vector<Period> periods;
  std::optional<std::int64_t> last;
  for (const auto& [minute, messages] : minutes) {
    const std::int64_t inPeriod = ((minute % length) + length) % length;
    const std::int64_t begin = minute - inPeriod;
    if (last != begin) periods.push_back({WordsSince1970(begin * kMinuteMs), 0});
    last = begin;
    periods.back().count += messages;
  }
  return periods;
}

std::optional<double> MessageStats::SpanSeconds() const {
  if (!oldest || !newest) return std::nullopt;
  return SecondsBetween(*oldest, *newest);
}

std::optional<double> MessageStats::PerMinute() const {
  const auto span = SpanSeconds();
  if (!span || *span < 1.0) return std::nullopt;
  return static_cast<double>(count - timeless) / *span * 60.0;
}

}  // namespace TamLogCtl
