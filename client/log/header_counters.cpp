#include "client/log/header_counters.h"

#include "client/log/ring.h"

namespace TamLogClient {

std::optional<std::uint64_t> AppendedSince(const LogFileHeader& before, const LogFileHeader& now) {
  const bool onlyAppended = now.maxMessages == before.maxMessages &&
                            now.rewriteCount == before.rewriteCount &&
                            now.changeCount >= before.changeCount && now.nextSequence >= before.nextSequence;
  if (!onlyAppended) return std::nullopt;
  return now.nextSequence - before.nextSequence;
}

bool CountersGoOn(const LogFileHeader& before, const LogFileHeader& now) {
  return RingIsSound(before) && now.maxMessages == before.maxMessages &&
         now.changeCount >= before.changeCount && now.rewriteCount >= before.rewriteCount &&
         now.nextSequence >= before.nextSequence;
}

bool SameCounters(const LogFileHeader& before, const LogFileHeader& now) {
  return before.changeCount == now.changeCount && before.rewriteCount == now.rewriteCount &&
         before.nextSequence == now.nextSequence && before.nextSlot == now.nextSlot &&
         before.messageCount == now.messageCount && before.maxMessages == now.maxMessages;
}

}  // namespace TamLogClient
