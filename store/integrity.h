#pragma once

// The rules by which the server recognises a sound log file, since the format has neither a magic number nor
// a version. A file that breaks one is emptied; single messages are never repaired.

#include <cstddef>
#include <cstdint>

#include "records/log_file_format.h"
#include "store/message_mirror.h"

enum class IntegrityRule : std::uint8_t {
  NoneBroken,
  NotNegative,  // messageCount, maxMessages and nextSlot are 0 or more
  InsideRing,   // messageCount <= maxMessages and nextSlot < maxMessages
  OneReader,    // readCount is 1: the server's own read access and no other
  SlotsInFile,  // every slot that holds a message is in the mapped file
  NewestFirst,  // from the newest message to the oldest the time keys never rise
  TextsEnd,     // text and source are terminated inside their fields
  KnownType,    // the type is one of the four
};

// Checks messages from the newest to the oldest, a run of slots at a time, and keeps their keys.
class SlotCheck {
 public:
  static constexpr std::size_t kMost = 256;

  // Checks the `count` slots, at most kMost, from `oldest` on. Forgets the results of the last call unless
  // those were accepted, so a call that a fault has ended can be repeated. Touches only the slots and itself:
  // it may run under the fault guard.
  void Look(const LogMessage* oldest, std::size_t count);

  IntegrityRule Broken() const { return broken; }
  // Returns a key of the last Look; 0 is the newest message.
  std::uint64_t Key(std::size_t newer) const { return keys[newer]; }
  void Accept(std::size_t count) { newerKey = keys[count - 1]; }

 private:
  std::uint64_t newerKey = ~std::uint64_t{0};
  IntegrityRule broken = IntegrityRule::NoneBroken;
  std::uint64_t keys[kMost] = {};
};

// The slots to be checked.
class SlotSource {
 public:
  // Passes slot `newest` and as many of the slots before it as the source likes to `check`, at most `count`
  // in all; slots 0 to `newest` are at least `count`. Returns how many were passed; 0 when the file holds no
  // such slot.
  virtual std::size_t LookAt(std::int64_t newest, std::size_t count, SlotCheck& check) = 0;

 protected:
  ~SlotSource() = default;
};

// Returns the first rule that `header` or one of its messages breaks, walking from the newest message to the
// oldest. The caller has read `header` under its own read access; a reader of another process that has
// entered since the file was mapped breaks OneReader too, and costs the whole file. Exceptions of `slots`
// pass through.
//
// Appends the messages of a sound file to `loaded`, which is empty and may be null; of a broken one some of
// them.
IntegrityRule FirstBrokenRule(const LogFileHeader& header, SlotSource& slots,
                              MessageMirror* loaded = nullptr);
