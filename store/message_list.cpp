#include "store/message_list.h"

void MessageList::AppendOldest(const LogMessage& message) {
  entries.push_back({.key = TimeKey(message.body), .message = message});
}
