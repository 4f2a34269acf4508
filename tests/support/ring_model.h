#pragma once

// A small model of the log as its format document describes it: the list in memory, the counts of pending and
// rewound entries, the ring that a flush writes from them, and the check at a start. Written from the
// document alone. Tests use it to bring a log into any state and to know the fate of every message.

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "client/log/log_snapshot.h"
#include "records/log_file_format.h"

namespace TamLogTest {

// Returns a message of 2026-01-01 with the time of day in milliseconds.
LogMessageBody MakeBody(std::int32_t millisecondOfDay, const std::string& text,
                        const std::string& source = "Test", std::uint32_t type = 0);

class RingModel {
 public:
  explicit RingModel(std::int32_t capacity);

  void Submit(const LogMessageBody& body);
  void Flush();
  void Clear();
  void Reformat(std::int32_t capacity);

  // Stops the server and starts it again, with another capacity if one is given. Pending messages are lost. A
  // file that fails the check is emptied. Returns whether the file kept its messages.
  bool Restart() { return Restart(header.maxMessages); }
  bool Restart(std::int32_t capacity);

  // Returns the present contents of the file, as a reader would copy them.
  TamLogClient::LogSnapshot Snapshot() const;
  std::string FileBytes() const;

  // Return the numbers, counted from 0 in order of submission, of all messages that ever were in the file, in
  // the order in which they came into it, and the number of the message in a slot.
  const std::vector<std::size_t>& EverInFile() const { return everInFile; }
  // Returns how many messages were dropped from the list before a flush wrote them: the list was full, and
  // everything in it newer.
  std::uint64_t NeverWritten() const { return unwritten; }
  std::size_t MessageIn(std::uint32_t slot) const { return slotMessages[slot]; }

 private:
  struct Entry {
    LogMessage message{};
    std::size_t number = 0;
  };

  void Write(std::int32_t slot, const Entry& entry);
  void RewriteAll();
  void Append();
  std::vector<std::uint32_t> FromNewest() const;
  bool PassesCheck() const;
  void Compact(std::int32_t capacity);
  void Load();

  std::deque<Entry> entries;  // newest first
  std::int32_t pending = 0;
  std::int32_t rewind = 0;
  LogFileHeader header{};
  std::vector<LogMessage> slots;
  std::vector<std::size_t> slotMessages;
  std::vector<std::size_t> everInFile;
  std::vector<bool> wasInFile;  // by number
  std::size_t submitted = 0;
  std::uint64_t unwritten = 0;
};

}  // namespace TamLogTest
