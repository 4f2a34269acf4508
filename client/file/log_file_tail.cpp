#include "client/file/log_file_tail.h"

#include <algorithm>
#include <cstdint>

#include "client/file/log_file_scan.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

bool ReadLogFileTail(const std::string& path, std::size_t count, LogTail& tail) {
  LogFileScan scan;
  if (!scan.Open(path)) return false;
  tail.header = scan.Header();
  const std::uint32_t messages = scan.MessageCount();
  const auto wanted = static_cast<std::uint32_t>(std::min<std::size_t>(count, messages));
  tail.messages.resize(wanted);
  tail.whole = wanted == messages;
  tail.probes.clear();
  for (const std::uint32_t position : ProbePositions(messages - wanted)) {
    LogMessage message{};
    if (!scan.Read(position, {&message, 1})) return false;
    if (position == 0) tail.first = message;
    tail.probes.push_back(TimeKey(message.body));
  }
  return scan.Read(messages - wanted, tail.messages);
}

}  // namespace TamLogClient
