#include "client/log/log_snapshot.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "client/log/ring.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

std::vector<ArrivalStamp> StampsOf(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& slots) {
  std::vector<ArrivalStamp> stamps(slots.size());
  std::transform(slots.begin(), slots.end(), stamps.begin(),
                 [&snapshot](std::uint32_t slot) { return ArrivalOf(snapshot.slots[slot]); });
  return stamps;
}

void Turn(std::size_t length, std::vector<std::uint32_t>& slots) {
  std::reverse(slots.begin(), slots.begin() + static_cast<std::ptrdiff_t>(length));
}

}  // namespace

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

std::vector<std::uint32_t> OrderOfArrival(const LogSnapshot& snapshot) {
  std::vector<std::uint32_t> slots = snapshot.RingOrder();
  Turn(BlockLength(snapshot.header, StampsOf(snapshot, slots)), slots);
  return slots;
}

MessageOrder OrderMessages(const LogSnapshot& snapshot) {
  MessageOrder order;
  std::vector<std::uint32_t>& slots = order.oldestFirst;
  slots = snapshot.RingOrder();
  for (const std::uint32_t slot : slots) {
    if (LogMessageView(snapshot.slots[slot]).Damaged()) ++order.damaged;
  }
  const std::vector<ArrivalStamp> stamps = StampsOf(snapshot, slots);
  order.reordered = !std::is_sorted(stamps.begin(), stamps.end(),
                                    [](const auto& a, const auto& b) { return a.key < b.key; });
  Turn(BlockLength(snapshot.header, stamps), slots);
  if (order.reordered) {
    std::stable_sort(slots.begin(), slots.end(), [&snapshot](std::uint32_t left, std::uint32_t right) {
      return TimeKey(snapshot.slots[left].body) < TimeKey(snapshot.slots[right].body);
    });
  }
  return order;
}

}  // namespace TamLogClient
