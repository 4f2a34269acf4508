#include "store/ring.h"

#include <algorithm>

std::int64_t SlotFromNewest(const LogFileHeader& header, std::int32_t newerMessages) {
  const std::int64_t slot = std::int64_t{header.nextSlot} - newerMessages - 1;
  return slot < 0 ? slot + header.maxMessages : slot;
}

bool RingIsInside(const LogFileHeader& header, std::int64_t slotCount) {
  if (header.nextSlot < 0 || header.nextSlot >= std::max(header.maxMessages, 1)) return false;
  if (header.messageCount == 0) return true;
  if (header.messageCount < 0 || header.messageCount > header.maxMessages) return false;
  const bool wraps = header.messageCount > header.nextSlot;
  return (wraps ? header.maxMessages : header.nextSlot) <= slotCount;
}

void ReformatRing(LogFileHeader& header) {
  header.messageCount = 0;
  header.nextSlot = 0;
  header.changeCount = 1;
  header.rewriteCount = 1;
  header.nextSequence = 0;
}

void ClearRing(LogFileHeader& header) {
  header.messageCount = 0;
  header.nextSlot = 0;
  ++header.rewriteCount;
}

void SetRingCapacity(LogFileHeader& header, std::uint32_t maxMessages) {
  // The header's fields are signed: a capacity of 2^31 and more becomes negative, which the integrity rules
  // refuse at every open.
  header.maxMessages = static_cast<std::int32_t>(maxMessages);
  if (header.messageCount >= header.maxMessages) {
    header.messageCount = header.maxMessages;
    header.nextSlot = 0;
  } else {
    header.nextSlot = header.messageCount;
  }
}

void RestartRing(LogFileHeader& header) {
  header.messageCount = header.maxMessages;
  header.nextSlot = 0;
  ++header.rewriteCount;
}

void RewindRing(LogFileHeader& header, std::int32_t messages) {
  const std::int64_t capacity = header.maxMessages;
  if (messages > 0) ++header.rewriteCount;
  header.messageCount = static_cast<std::int32_t>(static_cast<std::uint32_t>(header.messageCount) -
                                                  static_cast<std::uint32_t>(messages));
  // The remainder of a negative number is negative, so one more turn makes it an index.
  const std::int64_t slot = (std::int64_t{header.nextSlot} - messages) % capacity;
  header.nextSlot = static_cast<std::int32_t>(slot < 0 ? slot + capacity : slot);
}

std::int32_t AppendToRing(LogFileHeader& header) {
  const std::int64_t capacity = header.maxMessages;
  header.messageCount = static_cast<std::int32_t>(std::min(std::int64_t{header.messageCount} + 1, capacity));
  const std::int32_t slot = header.nextSlot;
  const std::int64_t next = std::int64_t{slot} + 1;
  // Divides only for unsound numbers: a division would be a good part of a message's cost.
  header.nextSlot = static_cast<std::int32_t>(next >= 0 && next < capacity ? next : next % capacity);
  return slot;
}
