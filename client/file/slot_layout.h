#pragma once

// Finds where the slots of a log file really are. In a file that lost or gained bytes they stop to follow
// each other: the slots after such a break begin at places that are no multiple of a slot's size. Several
// logs may also stand one behind the other in one file.
//
// The walk goes through the file once, forward. It stays on the grid of slots while each holds a message, and
// where one does not, it follows the best chain of messages (slot_chain.h). A message that only contains the
// bytes of another one does not mislead it, because the slots after it hold messages. A plain ring
// (server_traces.h) is not searched. docs/tamlogctl.md, "Lost and added bytes", states what that finds.

#include <cstdint>
#include <vector>

#include "client/file/log_file_image.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Slots that follow each other without a gap.
struct SlotStretch {
  std::uint64_t offset = 0;  // of the first, in the file
  std::uint64_t slots = 0;
  std::uint64_t number = 0;  // of the first in its log; after several breaks the best guess
};

// A place where slots stop to follow each other.
struct SlotBreak {
  std::uint64_t offset = 0;  // the end of the last slot before it
  std::uint64_t end = 0;     // the beginning of the next slot
  std::int64_t bytes = 0;    // added; negative: missing. After several breaks the best guess
  std::uint64_t lost = 0;    // slots in between, at most
};

// A log within the file, or bytes after the end of one.
struct LogPart {
  std::uint64_t offset = 0;  // of its header
  LogFileHeader header{};
  bool headerTrusted = false;  // the header's numbers are valid, and a server can have written them
  bool ringIsPlain = false;    // see RingIsPlain
  bool afterEnd = false;       // bytes after the end of the log before, without a header
  std::vector<SlotStretch> stretches;
  std::vector<SlotBreak> breaks;

  // Returns whether the header's slots are where the header's numbers place them: no break lies before the
  // end of the ring, or the ring is plain.
  bool RingInPlace() const;
};

// Returns the parts of the file in its order; the first one always exists.
std::vector<LogPart> FindLayout(const LogFileImage& image);

// Returns whether the file holds a message that is no coincidence of bytes. Ends at the first one.
bool HoldsAnyMessage(const LogFileImage& image);

}  // namespace TamLogClient
