#pragma once

// Following the log of a running server, for show -f, follow and export --follow.

#include <cstddef>
#include <vector>

#include "client/message/status.h"
#include "records/log_file_format.h"
#include "tamlogctl/read/reading_position.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

// Where messages go that are followed.
class FollowTarget {
 public:
  FollowTarget() = default;
  FollowTarget(const FollowTarget&) = default;
  FollowTarget& operator=(const FollowTarget&) = default;
  virtual ~FollowTarget() = default;

  // The log that the following messages are from.
  virtual void SetLog(const LogFileHeader& header) = 0;

  // The messages that are there at the beginning, oldest first.
  virtual void PrintLast(const std::vector<const LogMessage*>& oldestFirst) = 0;

  // One that has come since. It may be held back until Flush.
  virtual void Print(const LogMessage& message, bool late) = 0;

  // Called several times a second. False once the output has failed, which has then been said.
  virtual bool Flush() = 0;

  // After the last message. False as above.
  virtual bool Finish() = 0;

  virtual bool OutputFailed() const = 0;

  // Something was searched for, and nothing matched.
  virtual bool NothingMatched() const = 0;
};

// Prints what there is and what comes, until it is interrupted, its time is over, or the output fails. The
// program's exit code.
int Follow(const ShowOptions& options, FollowTarget& target, ReadingPosition& position);

// Says on stderr why the running server's log cannot be read; the program's exit code.
int ExplainStatus(TamLogClient::Status status);

}  // namespace TamLogCtl
