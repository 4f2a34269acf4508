#pragma once

// Verifies a log file: finds everything that breaks a rule of the format, and decides whether a server would
// keep the messages. A server that finds one of its own rules broken at its start empties the whole file
// without telling readers.
//
// Damage is what no running server writes. Oddities that a server does write (a ring written newest first,
// repeated numbers) or that senders may submit (impossible dates) are remarks. This is the one place that
// tells the two apart: every reader of files takes its verdict from here.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/file/log_file_image.h"

namespace TamLogClient {

enum class FileRule : std::uint8_t {
  HeaderComplete,  // the file is long enough for header and lock names
  NotNegative,     // messageCount, maxMessages and nextSlot are 0 or more
  InsideRing,      // messageCount <= maxMessages and nextSlot < maxMessages
  SlotsInFile,     // every slot that holds a message is in the file
  NewestFirst,     // from the newest message to the oldest the time keys never rise
  TextEnds,        // the text is terminated inside its field
  SourceEnds,      // and so is the source
  KnownType,       // the type is one of the four
  ReversedBlock,   // the oldest part of the ring is newest first: a server wrote it, and does not accept it
  ImpossibleDate,  // not a date of the calendar and time of day
  Duplicate,       // the same 546 bytes as another message
  SequenceOrder,   // a number that repeats, or that the server has not assigned yet
  BytesAfterEnd,   // the file is longer than its capacity needs
  EmptySlotsGone,  // the file is shorter, but only slots without messages are missing
  ReadersInside,   // readCount is not 0; a server sets it itself before it checks the file
  NotClosed,       // serverRunning is not 0
  LockNames,       // a lock name is not terminated inside its field
  EmptyFile,       // no bytes: a server makes a new log of it
  ShiftedSlots,    // bytes are missing or were added: slots do not follow each other
  AnotherLog,      // a second log begins in the file
};
inline constexpr std::size_t kFileRules = 20;

// Returns whether a finding is a remark; the others are damage.
constexpr bool IsRemark(FileRule rule) {
  switch (rule) {
    case FileRule::ReversedBlock:
    case FileRule::ImpossibleDate:
    case FileRule::Duplicate:
    case FileRule::SequenceOrder:
    case FileRule::ReadersInside:
    case FileRule::NotClosed:
    case FileRule::LockNames:
    case FileRule::EmptyFile:
      return true;
    default:
      return false;
  }
}

// Returns whether a server empties a file that breaks the rule.
constexpr bool ServerRejects(FileRule rule) {
  return rule <= FileRule::ReversedBlock;
}

// Returns the name that reports and scripts use, for example "newest-first". It never changes.
const char* RuleName(FileRule rule);

struct FileFinding {
  FileRule rule = FileRule::HeaderComplete;
  std::optional<std::uint32_t> slot;  // nothing: about the file as a whole
  std::uint64_t offset = 0;           // of the field, in the file
  std::string seen;
  std::string allowed;
};

struct VerifyOptions {
  std::size_t most = 20;  // findings of one rule that are listed; all are counted
  bool live = false;      // the log of a running server: ReadersInside and NotClosed are not checked
  bool remarks = true;    // false: looks for damage only, which is faster
};

struct VerifyReport {
  std::uint64_t size = 0;
  std::uint64_t slotsThere = 0;
  LogFileHeader header{};
  std::vector<FileFinding> findings;  // in the order of the file's parts: header, then oldest slot first
  std::array<std::uint64_t, kFileRules> count{};  // by rule, listed or not
  // Slots after a break, where messages cannot be checked one by one, break a rule of the server's.
  bool rejectedAfterBreak = false;

  std::uint64_t Count(FileRule rule) const { return count[static_cast<std::size_t>(rule)]; }
  std::uint64_t Damage() const;
  std::uint64_t Remarks() const;
  // Returns whether a server would keep the messages that it finds in the slots.
  bool Accepted() const;
};

// Checks every rule and continues after each finding. Needs at most 40 bytes of memory a message.
VerifyReport VerifyLogFile(const LogFileImage& image, const VerifyOptions& options = {});

}  // namespace TamLogClient
