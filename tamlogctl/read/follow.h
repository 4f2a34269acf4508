#pragma once

// Following the log of a running server, for show -f, follow and export --follow.

#include <cstddef>
#include <optional>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/rotating_file.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

// Receives the messages that are followed. Called from the thread that called Follow.
class FollowTarget {
 public:
  FollowTarget() = default;
  FollowTarget(const FollowTarget&) = default;
  FollowTarget& operator=(const FollowTarget&) = default;
  virtual ~FollowTarget() = default;

  // Returns whether the numbers of equal messages are needed, for cursors.
  virtual bool ShowsCursors() const = 0;

  // Prints the messages that are in the log at the beginning, oldest first. They are in `snapshot`.
  virtual void PrintLast(const std::vector<const LogMessage*>& oldestFirst,
                         const TamLogClient::LogSnapshot& snapshot) = 0;

  // Prints a message that has arrived since; `twin` is its number among equal ones. Output may be buffered
  // until Flush.
  virtual void Print(const LogMessage& message, bool late, std::uint32_t twin) = 0;

  // Called when messages were lost, or the log was cleared, since the messages that were printed before.
  virtual void Gap() {}

  // Called several times a second. Returns false once the output has failed, which has been reported.
  virtual bool Flush() = 0;

  // Called after the last message. Returns false as above.
  virtual bool Finish() = 0;

  // Returns the place after everything that was flushed, for the cursor file; nothing when the output has
  // none. OutputFailed tells whether that failed.
  virtual std::optional<FilePlace> Note() { return std::nullopt; }

  virtual bool OutputFailed() const = 0;

  // Returns whether messages were selected and none matched.
  virtual bool NothingMatched() const = 0;
};

// Passes the messages in the log, and those that arrive, to `target`, until it is interrupted, its time is
// over, or the output fails. Returns the program's exit code.
int Follow(const ShowOptions& options, FollowTarget& target, ReadingPosition& position);

}  // namespace TamLogCtl
