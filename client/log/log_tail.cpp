#include "client/log/log_tail.h"

#include <algorithm>
#include <functional>

#include "client/log/ring.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

constexpr std::uint32_t kProbes = 64;

}  // namespace

std::vector<std::uint32_t> ProbePositions(std::uint32_t leftOut) {
  std::vector<std::uint32_t> positions;
  const std::uint32_t step = std::max(1U, leftOut / kProbes);
  for (std::uint32_t at = 0; at < leftOut; at += step) {
    positions.push_back(at);
    if (at == 0 && step > 1) positions.push_back(1);
  }
  return positions;
}

std::optional<std::size_t> CertainFrom(const LogTail& tail) {
  std::vector<std::uint64_t> keys;
  keys.reserve(tail.messages.size());
  for (const LogMessage& message : tail.messages) keys.push_back(TimeKey(message.body));
  for (std::size_t i = 1; i < tail.messages.size(); ++i) {
    if (!IsShownOlder(ArrivalOf(tail.messages[i - 1]), ArrivalOf(tail.messages[i]))) return std::nullopt;
  }
  if (tail.whole) return 0;
  // With one time everywhere the first message may be the oldest of a stretch that runs backwards.
  if (keys.empty() || TimeKey(tail.first.body) == keys.front()) return std::nullopt;
  // The messages left out begin with a stretch that runs backwards (perhaps none), newest message first, and
  // then rise up to the first message of the tail. No server writes anything else.
  const auto& probes = tail.probes;
  const auto lowest = std::is_sorted_until(probes.begin(), probes.end(), std::greater<>());
  if (!std::is_sorted(lowest == probes.begin() ? lowest : std::prev(lowest), probes.end())) {
    return std::nullopt;
  }
  std::uint64_t newestLeftOut = keys.front();
  for (const std::uint64_t key : probes) newestLeftOut = std::max(newestLeftOut, key);
  const auto certain = std::lower_bound(keys.begin(), keys.end(), newestLeftOut);
  return static_cast<std::size_t>(certain - keys.begin());
}

std::optional<LogEnds> EndsOf(const LogTail& tail) {
  const auto certain = CertainFrom(tail);
  if (!certain || *certain >= tail.messages.size()) return std::nullopt;
  if (tail.whole) return LogEnds{&tail.messages.front(), &tail.messages.back()};
  // The ring's first two messages are probes: only a stretch that runs backwards has no rise there.
  const auto& probes = tail.probes;
  const bool rises = probes.size() > 1 && probes[0] < probes[1];
  if (!rises && tail.header.messageCount > static_cast<std::int32_t>(tail.messages.size() + 1))
    return std::nullopt;
  return LogEnds{&tail.first, &tail.messages.back()};
}

LogSnapshot SnapshotOf(const LogTail& tail, std::size_t first) {
  LogSnapshot snapshot;
  snapshot.header = tail.header;
  snapshot.slots.assign(tail.messages.begin() + static_cast<std::ptrdiff_t>(first), tail.messages.end());
  const auto count = static_cast<std::int32_t>(snapshot.slots.size());
  snapshot.header.maxMessages = std::max(count, 1);
  snapshot.header.messageCount = count;
  snapshot.header.nextSlot = 0;
  return snapshot;
}

}  // namespace TamLogClient
