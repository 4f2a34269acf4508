#pragma once

// Finds the messages that can be saved from a log file that is damaged, cut, grown, shifted or reversed, and
// puts them in an order that a server accepts. Nothing is written here: what was found goes to WriteLogFile.
//
// There is no checksum: a message is taken as it lies there when its texts end, its type exists and it is not
// blank. Bytes that were changed within these bounds are not noticed. One flaw is forgiven to what has the
// date of a message: a text without end is cut, and of a type that does not exist the two lowest bits are
// kept. That is the type it had if bits above were flipped, and if not, the text is still worth more than the
// number.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/file/log_file_image.h"

namespace TamLogClient {

struct RepairOptions {
  // Also messages outside the ring, which a reformat or a clear leaves in their slots, and messages that
  // moved because the file lost or won bytes.
  bool carve = false;
  // Leaves out a message of which all 546 bytes were met before: a server that inserts into a reversed ring
  // writes some twice.
  bool unique = false;
  std::size_t most = 20;  // losses, and changes, that are listed; all are counted
};

enum class LossReason : std::uint8_t {
  Blank,       // zeros only
  TextEnds,    // text or source has no end, and nothing says that it was a message
  KnownType,   // the type does not exist, and nothing says that it was a message
  Missing,     // behind the end of the file
  NotMessage,  // bytes between messages that are none
};

// A short English phrase, for example "its type does not exist".
const char* ReasonText(LossReason reason);

struct RepairLoss {
  std::uint64_t offset = 0;  // where it begins in the file
  std::uint64_t bytes = 0;
  std::uint64_t slots = 0;  // how many messages at most that were
  LossReason reason = LossReason::Blank;
};

struct SavedMessage {
  std::uint64_t offset = 0;  // in the file
  std::uint64_t key = 0;
  bool endTexts = false;  // a text without its end: its last byte becomes one
  bool giveType = false;  // a type that does not exist: its two lowest bits are kept
};

// What is different in a message that was saved.
struct Change {
  std::uint64_t offset = 0;
  bool endTexts = false;
  bool giveType = false;
  std::uint32_t seenType = 0;
  std::uint32_t givenType = 0;
};

struct RepairPlan {
  std::vector<SavedMessage> oldestFirst;
  std::uint64_t fromRing = 0;      // the rest was carved
  std::uint64_t mended = 0;        // texts that were given an end
  std::uint64_t retyped = 0;       // types that did not exist
  std::uint64_t repeated = 0;      // left out because of `unique`
  std::uint64_t outside = 0;       // left where they are: messages in slots outside the ring, without `carve`
  std::uint64_t lost = 0;          // messages at most
  std::vector<RepairLoss> losses;  // the first of them
  std::vector<Change> changes;     // the first of those that were mended or retyped
  bool headerTrusted = false;      // otherwise every slot of the file was looked at
  std::uint32_t capacity = 1;      // of the damaged file, as far as it can be told
};

// Memory: 24 bytes a message beside the image.
RepairPlan PlanRepair(const LogFileImage& image, const RepairOptions& options = {});

// The message as it is to be written.
LogMessage SavedMessageOf(const LogFileImage& image, const SavedMessage& saved);

}  // namespace TamLogClient
