#include "client/log/reorder_buffer.h"

#include <algorithm>
#include <iterator>

namespace TamLogClient {

void ReorderBuffer::Add(const LogMessage& message, std::uint64_t now) {
  const std::uint64_t key = TimeKey(message.body);
  // Its place is over: waiting would make it later still.
  const bool late = any && key < lastGiven;
  held.emplace(key, Held{message, late ? now : now + hold});
}

void ReorderBuffer::TakeDue(std::uint64_t now, std::vector<Ready>& ready) {
  const auto lastDue =
      std::find_if(held.rbegin(), held.rend(), [now](const auto& entry) { return entry.second.due <= now; });
  Give(lastDue.base(), ready);
}

void ReorderBuffer::TakeAll(std::vector<Ready>& ready) {
  Give(held.end(), ready);
}

void ReorderBuffer::Give(ByTime::iterator end, std::vector<Ready>& ready) {
  for (auto at = held.begin(); at != end; ++at) {
    ready.push_back({at->second.message, any && at->first < lastGiven});
    lastGiven = at->first;
    any = true;
  }
  held.erase(held.begin(), end);
}

}  // namespace TamLogClient
