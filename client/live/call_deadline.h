#pragma once

// The end of a call's time, shared by all waits of the call.

#include <cstdint>

namespace TamLogClient {

class CallDeadline {
 public:
  // Sets the end to `milliseconds` from now.
  explicit CallDeadline(std::uint32_t milliseconds);

  // Returns the milliseconds that are left; 0 after the end.
  std::uint32_t Remaining() const;

 private:
  std::uint64_t end;  // GetTickCount64
};

}  // namespace TamLogClient
