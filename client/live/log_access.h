#pragma once

// Read access to the shared log: while it is held, the server does not write. The library takes it only to
// copy a log that changes faster than it can be copied; everything else reads without
// (client/live/consistent_read.h).
//
// A thread must not be ended while it holds access: the count of readers would stay raised, and the server
// would wait for it at each of its writes. Nothing but copying belongs between Enter and Leave.
//
// An access belongs to one thread at a time.

#include <cstdint>
#include <string>

#include "client/live/event_names.h"
#include "client/live/handle.h"
#include "client/message/status.h"

namespace TamLogClient {

class LogAccess {
 public:
  // How access ended.
  enum class Left : std::uint8_t {
    Normally,
    PassedByWriter,  // the writer did not wait for this reader: the copy may mix two states of the log
    Fault,           // the page of the header could not be read or written
  };

  LogAccess() = default;
  ~LogAccess() { Close(); }
  LogAccess(const LogAccess&) = delete;
  LogAccess& operator=(const LogAccess&) = delete;

  // Opens the page of the header for writing, and the events by the names in the log. The statuses are those
  // of MappedLog::Open.
  Status Open(const std::string& mapName, EventNames accepted);

  // Closes everything. Access must have been left.
  void Close();

  // Takes read access. Ok: the caller is inside and has to call Leave. TimedOut: the server is writing, or is
  // waiting for a reader that stays inside. Stuck: the header lock is not released. InPage: the count of
  // readers could not be raised.
  Status Enter(std::uint32_t timeoutMs);

  // Releases read access. Waits up to 30 s for the header lock and leaves without it after that.
  Left Leave();

 private:
  Status OpenEvents(bool ofTheServer);
  Status TakeHeaderLock(std::uint32_t timeoutMs);
  bool ChangeReadCount(std::int32_t step, std::int32_t& result);

  Handle mapping;
  Handle headerLock;
  Handle readWait;
  Handle writeWait;
  unsigned char* headerView = nullptr;  // kSlotsOffset bytes
};

}  // namespace TamLogClient
