#pragma once

// A copy of a file's messages in memory, newest first, each with its time key. Plain data without a lock.
//
// A list that was loaded from a file may be out of order (MessageFileServer::Compact explains why).

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

  // Appends `message` at the oldest end.
  void AppendOldest(const LogMessage& message);

  // From the newest to the oldest.
  Position begin() const { return entries.begin(); }
  Position end() const { return entries.end(); }

 private:
  std::list<Entry> entries;
};
