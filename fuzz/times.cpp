// Fuzzes times as users type them: each one that is accepted is printed, and read back as the same time.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/message/time_text.h"
#include "fuzz/input.h"
#include "tamlogctl/base/time_arithmetic.h"
#include "tamlogctl/base/time_bound.h"

namespace {

using TamLogClient::TimeWords;

// One hour ahead of UTC; two from 2026-03-29 01:00 UTC to 2026-10-25 01:00 UTC.
int CentralEurope(const TimeWords& utc) {
  return utc >= TimeWords{2026, 3, 29, 1} && utc < TimeWords{2026, 10, 25, 1} ? 120 : 60;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const TimeWords utc{2026, 10, 25, 1, 30};
  const auto now = TamLogCtl::MovedBy(utc, std::chrono::minutes(CentralEurope(utc)));
  TamLogCtl::BoundClock clock{*now, CentralEurope, utc};
  const auto time = ParseBound(text, clock);
  clock.earliest = true;
  const auto earliest = ParseBound(text, clock);
  Fuzz::Require(time.has_value() == earliest.has_value());
  if (!time) return 0;
  Fuzz::Require(*earliest <= *time);
  std::string printed;
  TamLogClient::AppendTime(*time, ' ', printed);
  const auto again = ParseBound(printed, clock);
  Fuzz::Require(again.has_value());
  std::string twice;
  TamLogClient::AppendTime(*again, ' ', twice);
  Fuzz::Require(printed == twice);
  return 0;
}
