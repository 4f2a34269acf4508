#include "store/integrity.h"

#include <algorithm>
#include <iterator>
#include <limits>

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

bool EndsInside(const char (&text)[kTextSize]) {
  return std::find(std::begin(text), std::end(text), '\0') != std::end(text);
}

}  // namespace

IntegrityRule FirstBrokenRule(const LogFileHeader& header, SlotSource& slots) {
  const IntegrityRule broken = RuleBrokenByHeader(header);
  if (broken != IntegrityRule::NoneBroken) return broken;

  std::uint64_t newerKey = std::numeric_limits<std::uint64_t>::max();
  for (std::int32_t i = 0; i < header.messageCount; ++i) {
    LogMessage message;
    if (!slots.ReadSlot(SlotFromNewest(header, i), message)) return IntegrityRule::SlotsInFile;
    const std::uint64_t key = TimeKey(message.body);
    if (key > newerKey) return IntegrityRule::NewestFirst;
    if (!EndsInside(message.body.text) || !EndsInside(message.body.source)) return IntegrityRule::TextsEnd;
    if (message.body.type >= kMessageTypes) return IntegrityRule::KnownType;
    newerKey = key;
  }
  return IntegrityRule::NoneBroken;
}
