#include "store/integrity.h"

#include <algorithm>
#include <cstring>

#include "store/ring.h"

namespace {

IntegrityRule RuleBrokenByHeader(const LogFileHeader& header) {
  if (header.messageCount < 0 || header.maxMessages < 0 || header.nextSlot < 0) {
    return IntegrityRule::NotNegative;
  }
  if (header.messageCount > header.maxMessages || header.nextSlot >= header.maxMessages) {
    return IntegrityRule::InsideRing;
  }
  return header.readCount == 1 ? IntegrityRule::NoneBroken : IntegrityRule::OneReader;
}

// Returns whether the text is terminated. Most texts are followed by zeros up to the end of their field, so
// the last byte is checked first, then eight bytes at a time.
bool EndsInside(const char (&text)[kTextSize]) {
  if (text[kTextSize - 1] == '\0') return true;
  constexpr std::uint64_t kEach = 0x0101010101010101U;
  static_assert(kTextSize % sizeof kEach == 1);
  for (std::size_t i = 0; i + sizeof kEach <= kTextSize; i += sizeof kEach) {
    std::uint64_t word = 0;
    std::memcpy(&word, text + i, sizeof word);
    if (((word - kEach) & ~word & (kEach * 0x80)) != 0) return true;
  }
  return false;
}

// Prefetches the bytes that the check of most messages reads: the head, and the ends of the texts.
void Prefetch(const LogMessage* message) {
  const char* const bytes = reinterpret_cast<const char*>(message);
  __builtin_prefetch(bytes);
  __builtin_prefetch(bytes + offsetof(LogMessage, body.text) - 1);
  __builtin_prefetch(bytes + offsetof(LogMessage, body.tail) - 1);
}

IntegrityRule RuleBrokenBy(const LogMessageBody& body, std::uint64_t key, std::uint64_t newerKey) {
  if (key > newerKey) return IntegrityRule::NewestFirst;
  if (!EndsInside(body.text) || !EndsInside(body.source)) return IntegrityRule::TextsEnd;
  if (body.type >= kMessageTypes) return IntegrityRule::KnownType;
  return IntegrityRule::NoneBroken;
}

}  // namespace

void SlotCheck::Look(const LogMessage* oldest, std::size_t count) {
  constexpr std::size_t kAhead = 8;
  std::uint64_t newer = newerKey;
  broken = IntegrityRule::NoneBroken;
  for (std::size_t i = 0; i < count && broken == IntegrityRule::NoneBroken; ++i) {
    const LogMessage& message = oldest[count - 1 - i];
    if (i + kAhead < count) Prefetch(&message - kAhead);
    keys[i] = TimeKey(message.body);
    broken = RuleBrokenBy(message.body, keys[i], newer);
    newer = keys[i];
  }
}

IntegrityRule FirstBrokenRule(const LogFileHeader& header, SlotSource& slots, MessageMirror* loaded) {
  const IntegrityRule broken = RuleBrokenByHeader(header);
  if (broken != IntegrityRule::NoneBroken) return broken;

  SlotCheck check;
  std::int32_t done = 0;
  while (done < header.messageCount) {
    const std::int64_t newest = SlotFromNewest(header, done);
    // Down to slot 0, where the ring continues at its other end.
    const std::int64_t most = std::min<std::int64_t>(newest + 1, header.messageCount - done);
    const std::size_t count =
        slots.LookAt(newest, std::min(static_cast<std::size_t>(most), SlotCheck::kMost), check);
    if (count == 0) return IntegrityRule::SlotsInFile;
    if (check.Broken() != IntegrityRule::NoneBroken) return check.Broken();
    for (std::size_t i = 0; loaded != nullptr && i < count; ++i) {
      loaded->AppendOldest(check.Key(i), newest - static_cast<std::int64_t>(i));
    }
    check.Accept(count);
    done += static_cast<std::int32_t>(count);
  }
  return IntegrityRule::NoneBroken;
}
