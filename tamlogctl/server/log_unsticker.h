#pragma once

// Frees the shared log of readers of other programs that have died inside it. Only the user can decide that:
// nothing shows whether such a reader is dead or slow. Takes the header lock for a moment, so it is the one
// part of the tool that must not be killed; see docs/reader_protocol.md, "Unsticking".

#include "records/log_file_format.h"

namespace TamLogCtl {

// Signals the header lock once, for a holder that died. Returns whether it did: a lock that is free within a
// second was only contended, and is left alone.
bool FreeHeaderLock();

// Forgets the readers inside: sets readCount to 0 and signals write-wait, under the header lock. The server
// may then write under a reader that is alive. Returns false when readCount or changeCount is no longer as in
// `seen`, when the header lock is not free for a second, or when an object cannot be opened.
bool ForgetReaders(const LogFileHeader& seen);

}  // namespace TamLogCtl
