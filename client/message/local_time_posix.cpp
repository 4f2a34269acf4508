#include <chrono>
#include <ctime>

#include "client/message/local_time.h"

namespace TamLogClient {

TimeWords LocalNow() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto rest = duration_cast<milliseconds>(now.time_since_epoch()) % 1000;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  const auto word = [](auto value) { return static_cast<std::int16_t>(value); };
  return {word(parts.tm_year + 1900), word(parts.tm_mon + 1), word(parts.tm_mday), word(parts.tm_hour),
          word(parts.tm_min),         word(parts.tm_sec),     word(rest.count()),  0};
}

}  // namespace TamLogClient
