#include "client/log/header_counters.h"

namespace TamLogClient {

std::optional<std::uint64_t> AppendedSince(const LogFileHeader& before, const LogFileHeader& now) {
  const bool onlyAppended = now.maxMessages == before.maxMessages &&
                            now.rewriteCount == before.rewriteCount &&
                            now.changeCount >= before.changeCount && now.nextSequence >= before.nextSequence;
  if (!onlyAppended) return std::nullopt;
  return now.nextSequence - before.nextSequence;
}

}  // namespace TamLogClient
