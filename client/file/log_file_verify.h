#pragma once

// Says what is wrong with a log file, and whether a server would take it over as it is: a server that finds
// one rule broken empties the whole file, without a word to readers.
//
// Damage is what no server writes. What a server does write, although it is odd (a ring laid down newest
// first, numbers given twice), and what senders may hand in (impossible dates), are remarks.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/file/log_file_image.h"

namespace TamLogClient {

enum class FileRule : std::uint8_t {
  // Damage.
  HeaderComplete,  // the file is long enough for header and lock names
  NotNegative,     // messageCount, maxMessages and nextSlot are 0 or more
  InsideRing,      // messageCount <= maxMessages and nextSlot < maxMessages
  SlotsInFile,     // every slot that holds a message lies in the file
  NewestFirst,     // from the newest message to the oldest the time keys never rise
  TextEnds,        // the text ends with a zero inside its field
  SourceEnds,      // and so does the source
  KnownType,       // the type is one of the four
  // Remarks.
  ReversedBlock,   // the oldest part of the ring lies newest first: a server made it, and does not accept it
  ImpossibleDate,  // no date of the calendar or time of the day
  Duplicate,       // the 546 bytes of another message once more
  SequenceOrder,   // a number that is given twice, or not yet
  BytesAfterEnd,   // the file is longer than its capacity asks for
  EmptySlotsGone,  // the file is shorter than that, but only slots without messages are missing
  ReadersInside,   // readCount is not 0
  NotClosed,       // serverRunning is not 0
  LockNames,       // a lock name does not end inside its field
  EmptyFile,       // no bytes at all: a server makes a new log of it
};
inline constexpr std::size_t kFileRules = 18;

constexpr bool IsRemark(FileRule rule) {
  return rule >= FileRule::ReversedBlock;
}

// The name that reports and scripts use, for example "newest-first". It never changes.
const char* RuleName(FileRule rule);

struct FileFinding {
  FileRule rule = FileRule::HeaderComplete;
  std::optional<std::uint32_t> slot;  // nothing when it is about the file as a whole
  std::uint64_t offset = 0;           // of the field, in the file
  std::string seen;
  std::string allowed;
};

struct VerifyOptions {
  std::size_t most = 20;  // findings of one rule that are listed; all are counted
  bool live = false;      // the log of a running server: readers inside and the running mark are as usual
};

struct VerifyReport {
  std::uint64_t size = 0;
  std::uint64_t slotsThere = 0;
  LogFileHeader header{};
  std::vector<FileFinding> findings;  // in the order of the file's parts: header, then oldest slot first
  std::array<std::uint64_t, kFileRules> count{};  // by rule, listed or not

  std::uint64_t Count(FileRule rule) const { return count[static_cast<std::size_t>(rule)]; }
  std::uint64_t Damage() const;
  std::uint64_t Remarks() const;
  // A server would keep the messages. Damage is never accepted, and a reversed block is not either.
  bool Accepted() const { return Damage() == 0 && Count(FileRule::ReversedBlock) == 0; }
};

// Checks everything and goes on after each finding. The server's own reader count, which it sets before it
// checks, is left out. Memory: 28 bytes a message beside the image.
VerifyReport VerifyLogFile(const LogFileImage& image, const VerifyOptions& options = {});

}  // namespace TamLogClient
