#include "client/log/log_snapshot.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "client/log/ring.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

bool LogSnapshot::HeaderIsSound() const {
  return RingFits(header, slots.size());
}

std::vector<std::uint32_t> LogSnapshot::RingOrder() const {
  if (slots.empty()) return {};
  LogFileHeader bounded = header;
  if (bounded.maxMessages <= 0) bounded.maxMessages = static_cast<std::int32_t>(slots.size());
  bounded.messageCount = std::clamp(bounded.messageCount, 0, bounded.maxMessages);
  bounded.nextSlot = bounded.nextSlot >= 0 ? bounded.nextSlot % bounded.maxMessages : 0;
  return RingSlots(bounded, slots.size());
}

// The next slot counts the messages that were appended after the rewrite; they are at the end of the ring.
// Where times are equal, a number after none is that of the next message of the stretch, or of the first one
// of an insertion: the message that follows shows which.
std::size_t ReversedStretch(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& ring) {
  const auto appended = snapshot.HeaderIsSound() && snapshot.Full() ? snapshot.header.nextSlot : 0;
  const std::size_t size = ring.size() - std::min(ring.size(), static_cast<std::size_t>(appended));
  const auto falls = [&](std::size_t at, bool numberAfterNone) {
    const LogMessageView older(snapshot.slots[ring[at]]);
    const LogMessageView newer(snapshot.slots[ring[at + 1]]);
    if (older.Key() != newer.Key()) return older.Key() > newer.Key();
    return older.Sequence() >= newer.Sequence() || (numberAfterNone && older.Sequence() == 0);
  };
  std::size_t end = 0;
  bool any = false;
  for (; end + 1 < size; ++end) {
    const bool fallsHere = falls(end, false);
    if (!fallsHere && (!falls(end, true) || (end + 2 < size && !falls(end + 1, false)))) break;
    any = any || fallsHere;
  }
  return any ? end + 1 : 0;
}

MessageOrder OrderMessages(const LogSnapshot& snapshot) {
  MessageOrder order;
  std::vector<std::uint32_t> slots = snapshot.RingOrder();
  std::vector<std::uint64_t> keys(slots.size());
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const LogMessageView message(snapshot.slots[slots[i]]);
    keys[i] = message.Key();
    if (message.Damaged()) ++order.damaged;
  }
  const std::size_t stretch = ReversedStretch(snapshot, slots);
  std::reverse(slots.begin(), slots.begin() + static_cast<std::ptrdiff_t>(stretch));
  order.reordered = stretch > 0 || !std::is_sorted(keys.begin(), keys.end());
  if (order.reordered) {
    std::stable_sort(slots.begin(), slots.end(), [&snapshot](std::uint32_t left, std::uint32_t right) {
      return TimeKey(snapshot.slots[left].body) < TimeKey(snapshot.slots[right].body);
    });
  }
  order.oldestFirst = std::move(slots);
  return order;
}

}  // namespace TamLogClient
