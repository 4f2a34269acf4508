#include "client/log/reorder_buffer.h"

#include <algorithm>
#include <iterator>

namespace TamLogClient {

void ReorderBuffer::Add(const LogMessage& message, std::uint64_t now, std::uint32_t twin) {
  const std::uint64_t key = TimeKey(message.body);
  // Later messages were returned already: waiting would only make it later.
  const bool late = any && key < lastTaken;
  held.emplace(key, Held{message, late ? now : now + hold, twin});
}

void ReorderBuffer::TakeDue(std::uint64_t now, std::vector<Ready>& ready) {
  const auto lastDue =
      std::find_if(held.rbegin(), held.rend(), [now](const auto& entry) { return entry.second.due <= now; });
  Take(lastDue.base(), ready);
}

void ReorderBuffer::TakeAll(std::vector<Ready>& ready) {
  Take(held.end(), ready);
}

std::vector<ReorderBuffer::Ready> ReorderBuffer::All() const {
  std::vector<Ready> all;
  all.reserve(held.size());
  for (const auto& [key, entry] : held) all.push_back({entry.message, false, entry.twin});
  return all;
}

void ReorderBuffer::Take(ByTime::iterator end, std::vector<Ready>& ready) {
  for (auto at = held.begin(); at != end; ++at) {
    ready.push_back({at->second.message, any && at->first < lastTaken, at->second.twin});
    lastTaken = at->first;
    any = true;
  }
  held.erase(held.begin(), end);
}

}  // namespace TamLogClient
