#include "client/log/ring.h"

#include <algorithm>

namespace TamLogClient {

namespace {

using Stamps = std::vector<ArrivalStamp>;

// Returns the position of the first message that may have been written after the last full rewrite: from
// there on times do not fall and numbers rise, by 1 or, where an insertion began, by more. An insertion
// writes two messages at least.
std::size_t WrittenSince(const Stamps& ring) {
  std::size_t begin = ring.size() - 1;
  for (; begin > 0; --begin) {
    const ArrivalStamp& older = ring[begin - 1];
    const ArrivalStamp& newer = ring[begin];
    if (older.number == 0 || older.number >= newer.number || older.key > newer.key) break;
    const bool insertion = begin + 1 < ring.size() && newer.number + 1 == ring[begin + 1].number;
    if (older.number + 1 != newer.number && !insertion) break;
  }
  return begin;
}

// Returns the length of the falling stretch by times alone.
std::size_t FallingStretchOf(const Stamps& ring) {
  std::vector<std::uint64_t> keys(ring.size());
  std::transform(ring.begin(), ring.end(), keys.begin(), [](const ArrivalStamp& each) { return each.key; });
  return FallingStretch(keys);
}

}  // namespace

bool RingIsSound(const LogFileHeader& header) {
  return header.messageCount >= 0 && header.messageCount <= header.maxMessages && header.nextSlot >= 0 &&
         header.nextSlot < header.maxMessages;
}

bool RingFits(const LogFileHeader& header, std::uint64_t slotsThere) {
  return RingIsSound(header) && static_cast<std::uint64_t>(header.maxMessages) <= slotsThere;
}

std::array<SlotRun, 2> NewestRuns(const LogFileHeader& header, std::int64_t count) {
  const std::int64_t first = header.nextSlot - count;
  if (first >= 0) return {{{first, header.nextSlot}, {}}};
  return {{{first + header.maxMessages, header.maxMessages}, {0, header.nextSlot}}};
}

std::array<SlotRun, 2> OccupiedRuns(const LogFileHeader& header, std::uint64_t slotsThere) {
  if (RingFits(header, slotsThere)) return NewestRuns(header, header.messageCount);
  const auto there = static_cast<std::int64_t>(slotsThere);
  return {{{0, std::clamp<std::int64_t>(header.maxMessages, 0, there)}, {}}};
}

std::vector<std::uint32_t> RingSlots(const LogFileHeader& header, std::uint64_t slotsThere) {
  const auto there = static_cast<std::int64_t>(slotsThere);
  std::vector<std::uint32_t> slots;
  slots.reserve(static_cast<std::size_t>(std::min<std::int64_t>(header.messageCount, there)));
  for (const SlotRun& run : NewestRuns(header, header.messageCount)) {
    for (std::int64_t slot = run.begin; slot < std::min(run.end, there); ++slot)
      slots.push_back(static_cast<std::uint32_t>(slot));
  }
  return slots;
}

std::uint32_t SlotAt(const LogFileHeader& header, std::uint32_t position) {
  std::int64_t slot = std::int64_t{header.nextSlot} - header.messageCount + position;
  if (slot < 0) slot += header.maxMessages;
  return static_cast<std::uint32_t>(slot);
}

bool HoldsMessage(const LogFileHeader& header, std::uint64_t slot) {
  if (header.maxMessages <= 0 || slot >= static_cast<std::uint64_t>(header.maxMessages)) return false;
  std::int64_t age = std::int64_t{header.nextSlot} - 1 - static_cast<std::int64_t>(slot);
  if (age < 0) age += header.maxMessages;
  return age < header.messageCount;
}

std::size_t FallingStretch(const std::vector<std::uint64_t>& keys) {
  std::size_t end = 0;
  bool falls = false;
  while (end + 1 < keys.size() && keys[end] >= keys[end + 1]) {
    falls = falls || keys[end] > keys[end + 1];
    ++end;
  }
  return falls ? end + 1 : 0;
}

ArrivalStamp ArrivalOf(const LogMessage& message) {
  return {TimeKey(message.body), message.sequence};
}

bool IsShownOlder(const ArrivalStamp& message, const ArrivalStamp& next) {
  return message.key < next.key ||
         (message.key == next.key && message.number != 0 && message.number < next.number);
}

std::size_t BlockLength(const LogFileHeader& header, const Stamps& ring) {
  const auto capacity = static_cast<std::size_t>(std::max(header.maxMessages, 0));
  if (ring.empty() || ring.size() != capacity || !RingIsSound(header)) return FallingStretchOf(ring);
  return BlockLength(capacity - static_cast<std::size_t>(header.nextSlot), ring);
}

std::size_t BlockLength(std::size_t older, const Stamps& ring) {
  // Slot 0 got the block's newest message, which appended messages overwrite first.
  std::size_t most = older;
  if (older > 0 && older < ring.size()) {
    // An insertion may have overwritten the oldest ones. It writes a message only before newer ones.
    const std::size_t since = WrittenSince(ring);
    if (since < most) most = since + (ring[since].key == ring.back().key ? 1 : 0);
  }
  std::size_t length = std::min<std::size_t>(most, 1);
  while (length < most && !IsShownOlder(ring[length - 1], ring[length])) ++length;
  return older == ring.size() && length < older ? 0 : length;
}

std::size_t NewerLength(const Stamps& slots) {
  for (std::size_t i = 1; i < slots.size(); ++i) {
    // The first message of a log has the number 0. The newest message has no newer one in the ring.
    const bool isFirst = i == 1 && slots[0].number == 0 && slots[1].number == 1;
    const bool isNewest = slots[i - 1].key >= slots.back().key;
    const bool rises = isFirst || IsShownOlder(slots[i - 1], slots[i]);
    if (slots[i].key < slots[i - 1].key || (isNewest && !rises)) return i;
  }
  return slots.size();
}

}  // namespace TamLogClient
