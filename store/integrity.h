#pragma once

// The rules by which the server recognises a sound log file: the format has neither a magic number nor a
// version. A file that breaks one loses all its messages; it is never repaired message by message.

#include <cstdint>

#include "store/log_file_format.h"

// Where the messages to be checked come from.
class SlotSource {
 public:
  // Copies slot `index` to `message`; false when the file holds no such slot.
  virtual bool ReadSlot(std::int64_t index, LogMessage& message) = 0;

 protected:
  ~SlotSource() = default;
};

enum class IntegrityRule : std::uint8_t {
  NoneBroken,
  NotNegative,  // messageCount, maxMessages and nextSlot are 0 or more
  InsideRing,   // messageCount <= maxMessages and nextSlot < maxMessages
  OneReader,    // readCount is 1: the server's own read access and nobody else's
  SlotsInFile,  // every slot that holds a message lies in the file as it is mapped
  NewestFirst,  // from the newest message to the oldest the time keys never rise
  TextsEnd,     // text and source end with a zero inside their fields
  KnownType,    // the type is one of the four
};

// The first rule that `header` or one of its messages, walked from the newest to the oldest, breaks. `header`
// is to be read under a read access of the server's own, with nobody else inside: a reader of another process
// that has come in since the file was mapped breaks OneReader too, and costs the whole file. What `slots`
// throws passes through.
IntegrityRule FirstBrokenRule(const LogFileHeader& header, SlotSource& slots);
