#include "store/message_list.h"

void MessageList::AppendOldest(const LogMessage& message) {
  entries.push_back({.key = TimeKey(message.body), .message = message});
}

void MessageList::Trim(std::size_t size) {
  while (entries.size() > size) entries.pop_back();
}
