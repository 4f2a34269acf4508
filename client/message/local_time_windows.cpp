#include "client/message/local_time.h"
#include "client/message/win32.h"

namespace TamLogClient {

TimeWords LocalNow() {
  SYSTEMTIME now;
  GetLocalTime(&now);
  const auto word = [](WORD value) { return static_cast<std::int16_t>(value); };
  return {word(now.wYear),   word(now.wMonth),  word(now.wDay),          word(now.wHour),
          word(now.wMinute), word(now.wSecond), word(now.wMilliseconds), 0};
}

}  // namespace TamLogClient
