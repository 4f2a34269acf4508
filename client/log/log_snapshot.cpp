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

MessageOrder OrderMessages(const LogSnapshot& snapshot) {
  MessageOrder order;
  std::vector<std::uint32_t> slots = snapshot.RingOrder();
  std::vector<std::uint64_t> keys(slots.size());
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const LogMessageView message(snapshot.slots[slots[i]]);
    keys[i] = message.Key();
    if (message.Damaged()) ++order.damaged;
  }
  if (!std::is_sorted(keys.begin(), keys.end())) {
    order.reordered = true;
    const auto stretch = static_cast<std::ptrdiff_t>(FallingStretch(keys));
    std::reverse(slots.begin(), slots.begin() + stretch);
    std::stable_sort(slots.begin(), slots.end(), [&snapshot](std::uint32_t left, std::uint32_t right) {
      return TimeKey(snapshot.slots[left].body) < TimeKey(snapshot.slots[right].body);
    });
  }
  order.oldestFirst = std::move(slots);
  return order;
}

}  // namespace TamLogClient
