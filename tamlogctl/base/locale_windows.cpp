#include <cstdint>

#include "client/message/win32.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::TextEncoding;
using TamLogClient::TimeWords;
using TamLogClient::UpperHalf;

// Asks the system for the character of each byte above 127.
UpperHalf ReadCodePage(UINT codePage) {
  UpperHalf table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    const char byte = static_cast<char>(0x80 + i);
    wchar_t unit = 0;
    if (MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, &byte, 1, &unit, 1) == 1) table[i] = unit;
  }
  return table;
}

// Null when the code page is UTF-8 or has characters of several bytes.
const UpperHalf* AnsiCodePage() {
  const UINT codePage = MachineCodePage();
  if (const UpperHalf* const known = TamLogClient::UpperHalfOfCodePage(codePage)) return known;
  CPINFO about{};
  if (GetCPInfo(codePage, &about) == FALSE || about.MaxCharSize != 1) return nullptr;
  static const UpperHalf table = ReadCodePage(codePage);
  return &table;
}

SYSTEMTIME SystemTimeOf(const TimeWords& words) {
  const auto part = [&words](std::size_t word) { return static_cast<WORD>(words[word]); };
  return {part(0), part(1), 0, part(2), part(3), part(4), part(5), part(6)};
}

// In units of 100 ns; 0 for a year that the system cannot convert.
std::int64_t CountOf(const SYSTEMTIME& time) {
  FILETIME count{};
  if (SystemTimeToFileTime(&time, &count) == FALSE) return 0;
  return static_cast<std::int64_t>(std::uint64_t{count.dwHighDateTime} << 32U | count.dwLowDateTime);
}

// Returns the rules that this machine's zone has in the year of the time, which may differ from today's;
// today's if the system does not know them.
TIME_ZONE_INFORMATION ZoneIn(const TimeWords& words) {
  TIME_ZONE_INFORMATION zone{};
  if (GetTimeZoneInformationForYear(static_cast<USHORT>(words[0]), nullptr, &zone) == FALSE)
    GetTimeZoneInformation(&zone);
  return zone;
}

int MinutesBetween(const SYSTEMTIME& earlier, const SYSTEMTIME& later) {
  constexpr std::int64_t kMinute = 600'000'000;
  return static_cast<int>((CountOf(later) - CountOf(earlier)) / kMinute);
}

}  // namespace

TextEncoding DefaultEncoding() {
  return TextEncoding::Guessed(AnsiCodePage());
}

int OffsetOfLocalTime(const TimeWords& local) {
  const TIME_ZONE_INFORMATION zone = ZoneIn(local);
  const SYSTEMTIME written = SystemTimeOf(local);
  SYSTEMTIME utc{};
  if (TzSpecificLocalTimeToSystemTime(&zone, &written, &utc) == FALSE) return 0;
  return MinutesBetween(utc, written);
}

int OffsetAtUtc(const TimeWords& utc) {
  const TIME_ZONE_INFORMATION zone = ZoneIn(utc);
  const SYSTEMTIME moment = SystemTimeOf(utc);
  SYSTEMTIME local{};
  if (SystemTimeToTzSpecificLocalTime(&zone, &moment, &local) == FALSE) return 0;
  return MinutesBetween(moment, local);
}

}  // namespace TamLogCtl
