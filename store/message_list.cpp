#include "store/message_list.h"

#include <algorithm>
#include <iterator>

void MessageList::AppendOldest(const LogMessage& message) {
  entries.push_back({.key = TimeKey(message.body), .message = message});
}

std::size_t MessageList::Insert(const LogMessageBody& body) {
  const std::uint64_t key = TimeKey(body);
  const auto place =
      std::find_if(entries.cbegin(), entries.cend(), [key](const Entry& entry) { return entry.key <= key; });
  const auto newer = static_cast<std::size_t>(std::distance(entries.cbegin(), place));
  Entry entry{.key = key, .message = {}};
  entry.message.body = body;
  entries.insert(place, entry);
  return newer;
}

void MessageList::Trim(std::size_t size) {
  while (entries.size() > size) entries.pop_back();
}

void MessageList::NumberNewest(std::size_t count, std::uint64_t firstSequence) {
  std::uint64_t sequence = firstSequence + count;
  auto entry = entries.begin();
  for (std::size_t i = 0; i < count && entry != entries.end(); ++i, ++entry)
    entry->message.sequence = --sequence;
}
