#include "tamlogctl/server/live_delivery.h"

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/wait.h"

namespace TamLogCtl {

using TamLogClient::Status;

// A request for the settings waits for the locks that a submitted message waits for, and is answered after
// it.
Status LiveTarget::Answers() {
  SettingsBody settings{};
  return client.GetSettings(settings);
}

Status LiveTarget::ReadLog(TamLogClient::LogSnapshot& log) {
  return ReadLiveLog(timeoutMs, log);
}

std::uint64_t LiveTarget::Now() const {
  return Ticks();
}

bool LiveTarget::Sleep(std::uint32_t milliseconds) {
  return SleepFor(milliseconds);
}

void LiveTarget::Report(const std::string& line) {
  if (!quiet) Say(line);
}

int AwaitServer(TamLogClient::LogClient& client, std::uint64_t retryMs, SettingsBody& settings) {
  constexpr std::uint32_t kEveryMs = 200;
  Status status = Status::Ok;
  const int waited = WaitUntil(retryMs, kEveryMs, [&] {
    status = client.GetSettings(settings);
    return status == Status::Ok;
  });
  return waited == kTimedOut ? Refuse(status) : waited;
}

}  // namespace TamLogCtl
