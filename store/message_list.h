#pragma once

// Messages in memory, newest first, each with its time key: a whole file's while it is compacted. Plain data
// without a lock.
//
// A list that was loaded from a file need not be in order (MessageFileServer::Compact says why).

#include <cstddef>
#include <cstdint>
#include <list>

#include "records/log_file_format.h"

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

  // Drops messages from the oldest end until at most `size` are left.
  void Trim(std::size_t size);

  // From the newest to the oldest.
  Position begin() const { return entries.begin(); }
  Position end() const { return entries.end(); }

 private:
  std::list<Entry> entries;
};
