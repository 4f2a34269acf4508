#pragma once

// The file in which show and follow remember how far they have read. Its first line is a cursor (or `none`
// for an empty log); then follows a follower's memory, which knows late messages and losses as well. A file
// that holds a cursor alone is accepted, too.

#include <optional>
#include <string>

#include "client/log/cursor.h"
#include "client/log/follower_memory.h"
#include "client/log/log_snapshot.h"

namespace TamLogCtl {

struct CursorFile {
  std::optional<TamLogClient::Cursor> cursor;
  std::optional<TamLogClient::FollowerMemory> memory;
};

// Messages that a cursor file remembers by their bytes: as many as can be given in the minutes that a late
// message may lie back, and no more, because the file is written at every run.
inline constexpr std::size_t kRememberedMessages = 10000;

// A file that does not exist leaves `to` empty: reading begins with the oldest message. False, after a word
// on stderr, for one that cannot be read or holds something else.
bool ReadCursorFile(const std::string& path, CursorFile& to);

// Writes a new file and puts it in the place of the old one, so that the old one stays when anything fails.
// False after a word on stderr.
bool WriteCursorFile(const std::string& path, const TamLogClient::LogSnapshot& snapshot,
                     const TamLogClient::FollowerMemory& memory);

}  // namespace TamLogCtl
