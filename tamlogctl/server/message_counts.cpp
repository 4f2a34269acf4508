#include "tamlogctl/server/message_counts.h"

#include <algorithm>

namespace TamLogCtl {

MessageCounts CountsOf(const TamLogClient::LogSnapshot& log) {
  MessageCounts counts;
  for (const std::uint32_t slot : log.RingOrder()) ++counts[TamLogClient::IdentityOf(log.slots[slot].body)];
  return counts;
}

Oldest OldestOf(const TamLogClient::LogSnapshot& log) {
  Oldest oldest{log.Full()};
  for (const std::uint32_t slot : log.RingOrder())
    oldest.key = std::min(oldest.key, TimeKey(log.slots[slot].body));
  return oldest;
}

}  // namespace TamLogCtl
