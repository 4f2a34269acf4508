#include "tamlogctl/read/message_stats.h"

#include <algorithm>
#include <chrono>

namespace TamLogCtl {

using TamLogClient::IsRealTime;
using TamLogClient::LogMessageView;
using TamLogClient::TimeWords;

namespace {

constexpr std::int64_t kMinutesADay = 1440;

double SecondsOf(const TimeWords& words) {
  return static_cast<double>(MinuteOf(words)) * 60.0 + words[5] + words[6] / 1000.0;
}

}  // namespace

std::int64_t MinuteOf(const TimeWords& words) {
  const std::chrono::year_month_day date{std::chrono::year(words[0]),
                                         std::chrono::month(static_cast<unsigned>(words[1])),
                                         std::chrono::day(static_cast<unsigned>(words[2]))};
  const auto days = std::chrono::sys_days(date).time_since_epoch().count();
  return std::int64_t{days} * kMinutesADay + std::int64_t{words[3]} * 60 + words[4];
}

TimeWords WordsOfMinute(std::int64_t minute) {
  const std::int64_t day =
      minute >= 0 ? minute / kMinutesADay : -((kMinutesADay - 1 - minute) / kMinutesADay);
  const auto ofDay = static_cast<int>(minute - day * kMinutesADay);
  const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(static_cast<int>(day)))};
  return {static_cast<std::int16_t>(static_cast<int>(date.year())),
          static_cast<std::int16_t>(static_cast<unsigned>(date.month())),
          static_cast<std::int16_t>(static_cast<unsigned>(date.day())),
          static_cast<std::int16_t>(ofDay / 60),
          static_cast<std::int16_t>(ofDay % 60),
          0,
          0,
          0};
}

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
  // Words of real times compare as times do.
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
    if (last != begin) periods.push_back({WordsOfMinute(begin), 0});
    last = begin;
    periods.back().count += messages;
  }
  return periods;
}

std::optional<double> MessageStats::SpanSeconds() const {
  if (!oldest || !newest) return std::nullopt;
  return SecondsOf(*newest) - SecondsOf(*oldest);
}

std::optional<double> MessageStats::PerMinute() const {
  const auto span = SpanSeconds();
  if (!span || *span < 1.0) return std::nullopt;
  return static_cast<double>(count - timeless) / *span * 60.0;
}

}  // namespace TamLogCtl
