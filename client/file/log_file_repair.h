#pragma once

// Finds the messages that can be saved from a log file that is damaged, cut, grown, shifted or reversed, or
// from several logs one behind the other, and puts them in an order that a server accepts. It only plans:
// WriteLogFile writes the messages of the plan.
//
// Where a file lost or gained bytes, the header cannot say any more which slots hold its messages. All
// messages that are found are saved then.
//
// The format has no checksum. A message is saved unchanged when its texts are terminated, its type exists and
// it is not blank; bytes that changed within these bounds go unnoticed. When the bytes carry the date of a
// message, one flaw is fixed: an unterminated text is cut, and a type that does not exist keeps its two
// lowest bits. Those are the original type if higher bits were flipped, and otherwise the text is still worth
// more than the number.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/file/log_file_image.h"
#include "client/file/slot_layout.h"
#include "client/log/ring.h"

namespace TamLogClient {

struct RepairOptions {
  // Also saves messages outside the ring, which a reformat or a clear leaves in their slots, and messages
  // after the end of the log.
  bool carve = false;
  // Leaves out messages whose 546 bytes all repeat an earlier one: a server that inserts into a reversed ring
  // writes some twice.
  bool unique = false;
  std::size_t most = 20;  // losses, and as many changes, that are listed; all are counted
};

enum class LossReason : std::uint8_t {
  Blank,       // zeros only
  TextEnds,    // text or source is unterminated, and nothing else identifies a message
  KnownType,   // the type does not exist, and nothing else identifies a message
  Missing,     // after the end of the file
  NotMessage,  // bytes between messages
};

// Returns a short English phrase without a full stop, for example "zeros only".
const char* ReasonText(LossReason reason);

struct RepairLoss {
  std::uint64_t offset = 0;  // where it begins in the file
  std::uint64_t bytes = 0;
  std::uint64_t slots = 0;  // messages lost, at most
  LossReason reason = LossReason::Blank;
};

struct SavedMessage {
  std::uint64_t offset = 0;  // in the file
  ArrivalStamp stamp;
  bool cutTexts = false;    // an unterminated text: its last byte becomes a zero
  bool changeType = false;  // a type that does not exist keeps its two lowest bits
};

// A change to a message that was saved.
struct Change {
  std::uint64_t offset = 0;
  bool cutTexts = false;
  bool changeType = false;
  std::uint32_t oldType = 0;
  std::uint32_t newType = 0;
};

struct RepairPlan {
  std::vector<SavedMessage> oldestFirst;
  std::uint64_t fromRing = 0;      // the rest was carved
  std::uint64_t textsCut = 0;      // unterminated texts that were cut
  std::uint64_t typesChanged = 0;  // types that did not exist and were changed
  std::uint64_t repeated = 0;      // left out because of `unique`
  std::uint64_t outside = 0;       // messages outside the ring, not saved without `carve`
  std::uint64_t doubtful = 0;      // saved ones without a date that nothing else shows to be messages
  std::uint64_t lost = 0;          // messages at most
  std::vector<RepairLoss> losses;  // the first of them
  std::vector<Change> changes;     // the first of them
  std::vector<SlotBreak> breaks;   // where the file lost or gained bytes
  std::vector<LogPart> logs;       // in the file; without their stretches and breaks
  bool headerTrusted = false;      // false: every slot of the file was searched
  // Enough for the messages, and otherwise that of the damaged file, or the best guess; never more than a
  // server can be set to, unless the file itself has more.
  std::uint32_t capacity = 1;
};

// Plans the repair of `image`. Reads the file up to three times, and needs up to 80 bytes of memory a
// message.
RepairPlan PlanRepair(const LogFileImage& image, const RepairOptions& options = {});

// Returns a message of the plan in the form to be written. `image` is the one that was planned for.
LogMessage SavedMessageOf(const LogFileImage& image, const SavedMessage& saved);

}  // namespace TamLogClient
