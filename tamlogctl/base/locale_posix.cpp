#include <ctime>

#include "tamlogctl/base/locale.h"

namespace TamLogCtl {

TamLogClient::TextEncoding DefaultEncoding() {
  return TamLogClient::TextEncoding::Guessed();
}

int OffsetOfLocalTime(const TamLogClient::TimeWords& local) {
  std::tm parts{};
  parts.tm_year = local[0] - 1900;
  parts.tm_mon = local[1] - 1;
  parts.tm_mday = local[2];
  parts.tm_hour = local[3];
  parts.tm_min = local[4];
  parts.tm_isdst = -1;  // the system finds out
  const std::time_t moment = std::mktime(&parts);
  std::tm result{};
  localtime_r(&moment, &result);
  return static_cast<int>(result.tm_gmtoff / 60);
}

}  // namespace TamLogCtl
