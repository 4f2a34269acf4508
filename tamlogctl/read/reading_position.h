#pragma once

// The position where reading begins (--after-cursor, --cursor-file), and where it ended.

#include <cstdint>
#include <optional>
#include <vector>

#include "client/log/log_follower.h"
#include "client/log/log_snapshot.h"
#include "tamlogctl/read/cursor_file.h"
#include "tamlogctl/read/reading_options.h"

namespace TamLogCtl {

class ReadingPosition {
 public:
  // `options` have to outlive the object. Returns nothing after a report on stderr; `exitCode` is then kUsage
  // for a malformed cursor or cursor file; for a file that cannot be read, the code of its status.
  static std::optional<ReadingPosition> Make(const ReadingOptions& options, int& exitCode);

  // Returns the memory of an earlier run, if any.
  const std::optional<TamLogClient::FollowerMemory>& Memory() const { return start.memory; }

  // Returns the messages that the earlier run had read and not written.
  const HeldMessages& Held() const { return start.held; }
  bool IsGiven() const { return start.memory || start.cursor || start.place; }

  // Returns the place up to which an earlier run had written its target, if it stored one.
  const std::optional<FilePlace>& Place() const { return start.place; }

  // Returns the messages of `snapshot` after the position, oldest first; all when there is no position.
  // Reports what was lost.
  std::vector<const LogMessage*> Beyond(const TamLogClient::LogSnapshot& snapshot);

  // Writes the cursor file, if one was requested: every message of `snapshot` has been read. Call it after
  // the output was written, up to `place` of its files, without the messages in `held`. Returns kDone, or
  // another exit code after a report on stderr.
  int Keep(const TamLogClient::LogSnapshot& snapshot) {
    return Keep(snapshot, follower.Remembered(kRememberedMessages), {}, std::nullopt);
  }
  int Keep(const TamLogClient::LogSnapshot& snapshot, const TamLogClient::FollowerMemory& memory,
           const HeldMessages& held, const std::optional<FilePlace>& place);

  // Writes the cursor file with another place and everything else as it is.
  int KeepPlace(const std::optional<FilePlace>& place);

  // Reports the cursor of the newest message, with --show-cursor.
  void ShowCursor(const TamLogClient::LogSnapshot& snapshot) const;

 private:
  std::vector<std::uint32_t> SlotsBeyond(const TamLogClient::LogSnapshot& snapshot);

  explicit ReadingPosition(const ReadingOptions& chosen) : options(&chosen) {}

  const ReadingOptions* options;
  CursorFile start;
  CursorFileText stored;  // in the cursor file now
  TamLogClient::LogFollower follower;
};

}  // namespace TamLogCtl
