#include "tamlogctl/server/message_counts.h"

namespace TamLogCtl {

MessageCounts CountsOf(const TamLogClient::LogSnapshot& log) {
  MessageCounts counts;
  for (const std::uint32_t slot : log.RingOrder()) ++counts[TamLogClient::IdentityOf(log.slots[slot].body)];
  return counts;
}

}  // namespace TamLogCtl
