#include "client/log/log_snapshot.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

using Slots = std::vector<std::uint32_t>;

// The end of the stretch at the oldest end in which times run backwards; 0 when there is none.
std::size_t ReversedStretch(const std::vector<std::uint64_t>& keys) {
  std::size_t end = 0;
  bool falls = false;
  while (end + 1 < keys.size() && keys[end] >= keys[end + 1]) {
    falls = falls || keys[end] > keys[end + 1];
    ++end;
  }
  return falls ? end + 1 : 0;
}

}  // namespace

bool LogSnapshot::HeaderIsSound() const {
  return header.maxMessages > 0 && header.messageCount >= 0 && header.messageCount <= header.maxMessages &&
         header.nextSlot >= 0 && header.nextSlot < header.maxMessages &&
         static_cast<std::size_t>(header.maxMessages) <= slots.size();
}

std::vector<std::uint32_t> LogSnapshot::RingOrder() const {
  Slots order;
  if (slots.empty()) return order;
  const auto there = static_cast<std::int64_t>(slots.size());
  const std::int64_t capacity = header.maxMessages > 0 ? header.maxMessages : there;
  const std::int64_t count = std::clamp<std::int64_t>(header.messageCount, 0, capacity);
  const std::int64_t next = header.nextSlot >= 0 ? header.nextSlot % capacity : 0;
  order.reserve(static_cast<std::size_t>(std::min(count, there)));
  // A short file may claim a huge capacity: the slots that are there are visited, not those that are claimed.
  const auto add = [&order, there](std::int64_t from, std::int64_t to) {
    for (std::int64_t slot = from; slot < std::min(to, there); ++slot) {
      order.push_back(static_cast<std::uint32_t>(slot));
    }
  };
  const std::int64_t first = next - count;
  if (first < 0) add(first + capacity, capacity);
  add(std::max<std::int64_t>(first, 0), next);
  return order;
}

MessageOrder OrderMessages(const LogSnapshot& snapshot) {
  MessageOrder order;
  Slots slots = snapshot.RingOrder();
  std::vector<std::uint64_t> keys(slots.size());
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const LogMessageView message(snapshot.slots[slots[i]]);
    keys[i] = message.Key();
    if (message.Damaged()) ++order.damaged;
  }
  if (!std::is_sorted(keys.begin(), keys.end())) {
    order.reordered = true;
    const auto stretch = static_cast<std::ptrdiff_t>(ReversedStretch(keys));
    std::reverse(slots.begin(), slots.begin() + stretch);
    std::stable_sort(slots.begin(), slots.end(), [&snapshot](std::uint32_t left, std::uint32_t right) {
      return TimeKey(snapshot.slots[left].body) < TimeKey(snapshot.slots[right].body);
    });
  }
  order.oldestFirst = std::move(slots);
  return order;
}

}  // namespace TamLogClient
