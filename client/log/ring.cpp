#include "client/log/ring.h"

#include <algorithm>

namespace TamLogClient {

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

}  // namespace TamLogClient
