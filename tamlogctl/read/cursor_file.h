#pragma once

// The file in which show, follow and export store how far they have read. Its first line is a cursor (`none`
// for an empty log). With export --follow a line `target` follows with the place up to which the target is
// written. With --ordered, lines `held` contain the messages that were read and not yet written. The rest is
// a follower's memory, which also detects late messages and losses. A file that holds only a cursor is
// accepted.

#include <optional>
#include <string>
#include <vector>

#include "client/log/cursor.h"
#include "client/log/follower_memory.h"
#include "client/log/log_snapshot.h"
#include "client/log/reorder_buffer.h"
#include "tamlogctl/read/rotating_file.h"

namespace TamLogCtl {

using HeldMessages = std::vector<TamLogClient::ReorderBuffer::Ready>;

struct CursorFile {
  std::optional<TamLogClient::Cursor> cursor;
  std::optional<FilePlace> place;
  HeldMessages held;
  std::optional<TamLogClient::FollowerMemory> memory;
};

// The texts of the file's parts; `memory` may be empty.
struct CursorFileText {
  std::string cursor = "none";
  std::optional<FilePlace> place;
  std::string held;
  std::string memory;
};

// The number of messages whose digests a cursor file stores: enough for the minutes by which a message may be
// late, and no more, because the file is written at every run.
inline constexpr std::size_t kRememberedMessages = 10000;

// The most messages that are held back while a cursor file is written.
inline constexpr std::size_t kMostHeld = 10000;

// Reads the file at `path` (UTF-8). A file that does not exist leaves `to` empty: reading begins with the
// oldest message. Returns kDone; or after a report on stderr kUsage for what is not a cursor file, else the
// exit code of the status.
int ReadCursorFile(const std::string& path, CursorFile& to, CursorFileText& text);

// Returns the texts for a reader that has read every message of `snapshot`, and written all but `held`.
CursorFileText MakeCursorFileText(const TamLogClient::LogSnapshot& snapshot,
                                  const TamLogClient::FollowerMemory& memory, const HeldMessages& held);

// Replaces the file at `path` as a whole: the old one stays if anything fails, and the disk holds the new one
// at the end. Returns kDone, or another exit code after a report on stderr.
int WriteCursorFile(const std::string& path, const CursorFileText& text);

}  // namespace TamLogCtl
