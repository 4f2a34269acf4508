#pragma once

// From where on messages are to be read (--after-cursor, --cursor-file), and where reading ended.

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
  // Nothing, after a word on stderr, when the cursor or the cursor file is none; the exit code is kUsage.
  static std::optional<ReadingPosition> Make(const ReadingOptions& options);

  // The memory of an earlier run, if there is one.
  const std::optional<TamLogClient::FollowerMemory>& Memory() const { return start.memory; }
  bool IsGiven() const { return start.memory || start.cursor; }

  // The slots of the messages beyond the position, oldest first: all when there is none. Tells what was lost.
  std::vector<std::uint32_t> Beyond(const TamLogClient::LogSnapshot& snapshot);

  // Remembers all of `snapshot`, as far as that was asked for. After the output was written. False after a
  // word on stderr.
  bool Keep(const TamLogClient::LogSnapshot& snapshot) const {
    return Keep(snapshot, follower.Remembered(kRememberedMessages));
  }
  bool Keep(const TamLogClient::LogSnapshot& snapshot, const TamLogClient::FollowerMemory& memory) const;

  // With --show-cursor: tells the cursor of the newest message.
  void ShowCursor(const TamLogClient::LogSnapshot& snapshot) const;

 private:
  explicit ReadingPosition(const ReadingOptions& chosen) : options(&chosen) {}

  const ReadingOptions* options;
  CursorFile start;
  TamLogClient::LogFollower follower;
};

}  // namespace TamLogCtl
