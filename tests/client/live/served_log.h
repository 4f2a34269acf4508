#pragma once

// Shares a log as a server would: a named mapping of a file with header, lock names and slots, and the three
// events, all made as docs/reader_protocol.md describes them and nothing else. The names end in the process
// id.

#include <cstdint>
#include <string>

#include "client/live/handle.h"
#include "client/log/log_snapshot.h"

namespace TamLogTest {

class ServedLog {
 public:
  // `bytes` 0: as many as the snapshot's capacity needs. With a `mapName`, for programs that look for the
  // server's, the mapping has that name, and the events have the server's.
  explicit ServedLog(const TamLogClient::LogSnapshot& content, std::uint64_t bytes = 0,
                     const char* mapName = nullptr);
  ~ServedLog();
  ServedLog(const ServedLog&) = delete;
  ServedLog& operator=(const ServedLog&) = delete;

  const std::string& MapName() const { return names[0]; }

  // One write access, step by step as the server takes it; false when readers did not leave within
  // `timeoutMs`.
  bool Write(const TamLogClient::LogSnapshot& content, std::uint32_t timeoutMs = 2000);

  void SetRunning(bool running);
  std::int32_t ReadCount() const;
  bool WriteWaitIsSignalled() const;
  bool HeaderLockIsFree() const;

  // From now on nobody can open anything of this with a right to change it: the mapping only for reading, the
  // header lock only to query its state, the other events only to wait for them.
  void AllowLookingOnly();

  // These break the protocol on purpose.
  void CloseReadWait();
  void OpenReadWait();
  void TakeHeaderLock();
  void FreeHeaderLock();
  void SetReadCount(std::int32_t count);
  unsigned char* Bytes() { return view; }

 private:
  void Lay(const TamLogClient::LogSnapshot& content);

  std::string names[4];  // mapping, header lock, read-wait, write-wait
  TamLogClient::Handle mapping;
  TamLogClient::Handle headerLock;
  TamLogClient::Handle readWait;
  TamLogClient::Handle writeWait;
  unsigned char* view = nullptr;
  std::uint64_t size = 0;
};

}  // namespace TamLogTest
