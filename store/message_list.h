#pragma once

// Messages in memory, newest first, each with its time key. Plain data without a lock: PendingList guards the
// server's own list, loading fills one that nobody else sees yet.
//
// A list that was loaded from a file need not be in order (MessageFileServer::Compact says why); nothing here
// relies on it.

#include <cstddef>
#include <cstdint>
#include <list>

#include "store/log_file_format.h"

class MessageList {
 public:
  struct Entry {
    std::uint64_t key;
    LogMessage message;
  };
  using Position = std::list<Entry>::const_iterator;

  std::size_t Size() const { return entries.size(); }
  void Clear() { entries.clear(); }

  // Appends `message`, as it stands in a slot, at the oldest end.
  void AppendOldest(const LogMessage& message);

  // Inserts a new message, its sequence 0, in front of the first entry, looked at from the newest, whose key
  // is not greater: among equal keys the new message counts as the newest. Returns how many entries stand
  // before it.
  std::size_t Insert(const LogMessageBody& body);

  // Drops messages from the oldest end until at most `size` are left.
  void Trim(std::size_t size);

  // From the newest to the oldest.
  Position begin() const { return entries.begin(); }
  Position end() const { return entries.end(); }

  // Numbers the `count` newest messages: the oldest of them gets `firstSequence`, each newer one the next
  // number.
  void NumberNewest(std::size_t count, std::uint64_t firstSequence);

 private:
  std::list<Entry> entries;
};
