#include "tamlogctl/read/message_stats.h"

#include <algorithm>
#include <chrono>

#include "client/message/time_zone.h"
#include "tamlogctl/base/time_arithmetic.h"

namespace TamLogCtl {

using TamLogClient::IsRealTime;
using TamLogClient::LogMessageView;
using TamLogClient::TimeWords;

namespace {

constexpr std::int64_t kMinuteMs = 60000;

// Rounds down, also before 1970.
std::int64_t MinuteOf(std::int64_t time) {
  return std::chrono::floor<std::chrono::minutes>(std::chrono::milliseconds(time)).count();
}

}  // namespace

void MessageStats::Times::Add(std::int64_t time) {
  ++count;
  first = std::min(first, time);
  last = std::max(last, time);
}

std::optional<TimeWords> MessageStats::Times::Oldest() const {
  return count > 0 ? std::optional(WordsSince1970(first)) : std::nullopt;
}

std::optional<TimeWords> MessageStats::Times::Newest() const {
  return count > 0 ? std::optional(WordsSince1970(last)) : std::nullopt;
}

double MessageStats::Gap::Seconds() const {
  return SecondsBetween(from, to);
}

void MessageStats::Add(const LogMessageView& message) {
  const std::size_t type = std::min<std::size_t>(message.Type(), kMessageTypes);
  ++count;
  ++types[type];
  auto source = sources.find(message.Source());
  if (source == sources.end()) source = sources.try_emplace(std::string(message.Source())).first;
  ++source->second.count;
  ++source->second.types[type];
  const TimeWords words = TamLogClient::WordsOf(message.Body());
  if (!IsRealTime(words)) {
    ++timeless;
    return;
  }
  const std::int64_t time = TamLogClient::MillisecondsSince1970(words, 0);
  times.Add(time);
  source->second.times.Add(time);
  minutes[MinuteOf(time)].Add(time);
}

std::vector<MessageStats::Source> MessageStats::Sources() const {
  std::vector<Source> list;
  list.reserve(sources.size());
  for (const auto& [name, counts] : sources) {
    list.push_back({name, counts.count, counts.types, counts.times.Oldest(), counts.times.Newest()});
  }
  std::stable_sort(list.begin(), list.end(),
                   [](const Source& left, const Source& right) { return left.count > right.count; });
  return list;
}

std::vector<MessageStats::Gap> MessageStats::Gaps(std::size_t most) const {
  std::vector<Gap> gaps;
  const Times* before = nullptr;
  for (const auto& [minute, inMinute] : minutes) {
    if (before != nullptr && inMinute.first - before->last >= kMinuteMs)
      gaps.push_back({WordsSince1970(before->last), WordsSince1970(inMinute.first)});
    before = &inMinute;
  }
  std::stable_sort(gaps.begin(), gaps.end(),
                   [](const Gap& left, const Gap& right) { return left.Seconds() > right.Seconds(); });
  gaps.resize(std::min(gaps.size(), most));
  return gaps;
}

std::optional<MessageStats::Period> MessageStats::BusiestMinute() const {
  const auto busiest = std::max_element(
      minutes.begin(), minutes.end(),
      [](const auto& left, const auto& right) { return left.second.count < right.second.count; });
  if (busiest == minutes.end()) return std::nullopt;
  return Period{WordsSince1970(busiest->first * kMinuteMs), busiest->second.count};
}

std::vector<MessageStats::Period> MessageStats::Periods(std::uint32_t length) const {
  std::vector<Period> periods;
  std::optional<std::int64_t> last;
  for (const auto& [minute, messages] : minutes) {
    const std::int64_t inPeriod = ((minute % length) + length) % length;
    const std::int64_t begin = minute - inPeriod;
    if (last != begin) periods.push_back({WordsSince1970(begin * kMinuteMs), 0});
    last = begin;
    periods.back().count += messages.count;
  }
  return periods;
}

std::optional<double> MessageStats::SpanSeconds() const {
  if (times.count == 0) return std::nullopt;
  return static_cast<double>(times.last - times.first) / 1000.0;
}

std::optional<double> MessageStats::PerMinute() const {
  const auto span = SpanSeconds();
  if (!span || *span < 1.0) return std::nullopt;
  return static_cast<double>(count - timeless) / *span * 60.0;
}

}  // namespace TamLogCtl
