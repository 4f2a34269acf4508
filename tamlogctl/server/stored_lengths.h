#pragma once

// The lengths of the texts that the server keeps in the registry. A server crashes when a client requests a
// text that does not fit into its reply, so these are read first.

#include <cstddef>

#include "records/pipe_protocol.h"

namespace TamLogCtl {

// Bytes without the terminating zero; 0 when there is no such text or the registry denies access.
struct StoredLengths {
  std::size_t longestFilter = 0;
  std::size_t path = 0;  // of the log file

  // Returns whether the path may be requested.
  bool PathFits() const { return path < kPipeBodySize; }
};

StoredLengths ReadStoredLengths();

}  // namespace TamLogCtl
