#pragma once

// The reference for the pending list: one list of whole messages, where every place is found by a walk from
// the newest and no message is known by its slot.

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <list>

#include "store/message_mirror.h"
#include "store/ring.h"

namespace StoreTest {

class PlainPendingList {
 public:
  void Add(const LogMessageBody& body, std::uint32_t maxMessages) {
    std::int32_t newer = 0;
    auto place = messages.begin();
    for (; place != messages.end() && TimeKey(place->body) > TimeKey(body); ++place) ++newer;
    messages.insert(place, {.sequence = 0, .body = body, .padding = {}});
    if (newer > pending) {
      rewind += newer - pending;
      pending = newer;
    }
    ++pending;
    while (messages.size() > maxMessages) messages.pop_back();
    pending = std::min(pending, static_cast<std::int32_t>(messages.size()));
  }

  std::int32_t PendingCount() const { return pending; }

  void Flush(LogFileHeader& header, FlushTarget& target) {
    if (pending == 0) return;
    if (pending >= header.maxMessages) {
      RestartRing(header);
      std::int64_t slot = 0;
      for (const LogMessage& message : messages) target.WriteSlot(slot++, message.sequence, message);
      target.WriteHeader(header);
    } else {
      RewindRing(header, rewind);
      std::uint64_t sequence = header.nextSequence;
      auto entry = std::next(messages.begin(), pending);
      for (std::int32_t left = pending; left > 0; --left) {
        --entry;
        const std::uint64_t number = header.nextSequence++;
        target.WriteSlot(AppendToRing(header), number, *entry);
      }
      target.WriteHeader(header);
      entry = std::next(messages.begin(), pending);
      for (std::int32_t left = pending; left > 0; --left) (--entry)->sequence = sequence++;
    }
    pending = 0;
    rewind = 0;
  }

  void Clear() {
    messages.clear();
    pending = 0;
    rewind = 0;
  }

  void AppendOldest(const LogMessage& message) { messages.push_back(message); }

 private:
  std::list<LogMessage> messages;
  std::int32_t pending = 0;
  std::int32_t rewind = 0;
};

}  // namespace StoreTest
