#include <ctime>

#include "tamlogctl/base/locale.h"

namespace TamLogCtl {

namespace {

std::tm PartsOf(const TamLogClient::TimeWords& words) {
  std::tm parts{};
  parts.tm_year = words[0] - 1900;
  parts.tm_mon = words[1] - 1;
  parts.tm_mday = words[2];
  parts.tm_hour = words[3];
  parts.tm_min = words[4];
  parts.tm_sec = words[5];
  return parts;
}

int OffsetAt(std::time_t moment) {
  std::tm local{};
  localtime_r(&moment, &local);
  return static_cast<int>(local.tm_gmtoff / 60);
}

}  // namespace

TamLogClient::TextEncoding DefaultEncoding() {
  return TamLogClient::TextEncoding::Guessed();
}

int OffsetOfLocalTime(const TamLogClient::TimeWords& local) {
  std::tm parts = PartsOf(local);
  parts.tm_isdst = -1;  // the system determines it
  return OffsetAt(std::mktime(&parts));
}

int OffsetAtUtc(const TamLogClient::TimeWords& utc) {
  std::tm parts = PartsOf(utc);
  return OffsetAt(timegm(&parts));
}

}  // namespace TamLogCtl
