#include "client/live/call_deadline.h"

#include "client/message/win32.h"

namespace TamLogClient {

CallDeadline::CallDeadline(std::uint32_t milliseconds) : end(GetTickCount64() + milliseconds) {}

std::uint32_t CallDeadline::Remaining() const {
  const std::uint64_t now = GetTickCount64();
  return now < end ? static_cast<std::uint32_t>(end - now) : 0;
}

}  // namespace TamLogClient
