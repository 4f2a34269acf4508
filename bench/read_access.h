#pragma once

// Read access as docs/read_access.md describes it, for comparison: our own programs read without it. The
// first three steps of entering are one wait for two events. Ends the program when access is not granted. Use
// from one thread.

#include <cstdint>

#include "util/native_handle.h"

namespace Bench {

class ReadAccess {
 public:
  // `count` is the mapped count of readers.
  explicit ReadAccess(std::int32_t& count);
  ~ReadAccess();
  ReadAccess(const ReadAccess&) = delete;
  ReadAccess& operator=(const ReadAccess&) = delete;

  void Enter();
  void Leave();

 private:
  volatile std::int32_t* readCount;
  TamLogUtil::NativeHandle headerLock;
  TamLogUtil::NativeHandle readWait;
  TamLogUtil::NativeHandle writeWait;
};

}  // namespace Bench
