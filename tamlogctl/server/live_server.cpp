#include "tamlogctl/server/live_server.h"

#include <string>

#include "client/live/log_reader.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/stored_lengths.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::Status;

constexpr std::uint32_t kFlushWaitMs = 450;  // two flushes of the server and some reserve
constexpr std::uint32_t kLookMs = 50;

bool LookAtLog(LogFileHeader& header) {
  LogReader reader;
  return reader.Open() == Status::Ok && reader.Look(header) == Status::Ok;
}

}  // namespace

int RequestFilters(LogClient& client, std::vector<FilterEntry>& filters) {
  const std::size_t longest = ReadStoredLengths().longestFilter;
  if (longest > kLongestFilter) {
    return Refuse(kRefused, "a stored filter has " + std::to_string(longest) +
                                " bytes, and a request for it would crash the server; remove all filters: "
                                "tamlogctl filter clear");
  }
  const Status status = client.GetFilters(filters);
  return status == Status::Ok ? kDone : Refuse(status, "filters");
}

std::optional<LogFileHeader> SharedHeader() {
  LogFileHeader header{};
  return LookAtLog(header) ? std::optional(header) : std::nullopt;
}

std::optional<std::int32_t> CapacityInEffect() {
  const auto header = SharedHeader();
  return header ? std::optional(header->maxMessages) : std::nullopt;
}

bool WaitForFlush() {
  return SleepFor(kFlushWaitMs);
}

bool Confirmed(const std::string& question) {
  std::string answer;
  WriteErr(question + " [y/N] ");
  return ReadLine(answer) && (answer == "y" || answer == "Y" || answer == "yes");
}

int RestartWatch::Refuse(Status status, const std::string& what) const {
  if (failure.empty()) return TamLogCtl::Refuse(status, what);
  return TamLogCtl::Refuse(kRefused, what + ": " + failure + "; see: tamlogctl doctor");
}

Status RestartWatch::Wait(std::uint32_t patienceMs) {
  const std::uint64_t start = Ticks();
  Progress progress("waiting for the server:");
  const auto stopped = [this] { return client.Ping() != Status::Ok || client.Connections() != connections; };
  if (WaitUntil(patienceMs, kLookMs, stopped) != kDone) return Status::TimedOut;
  LogClient next({kRequestPipeName, 1000, 200});
  const auto isBack = [&] {
    const bool answers = next.Ping() == Status::Ok;
    LogFileHeader header{};
    if (answers && LookAtLog(header)) return true;
    failure = startFailure.Look(QueryService()).value_or("");
    if (!failure.empty()) return true;
    progress.Show(
        std::string(answers ? "it answers, but its log is not open yet" : "it does not answer yet"));
    return false;
  };
  const std::uint64_t passed = Ticks() - start;
  const std::uint64_t left = passed < patienceMs ? patienceMs - passed : 0;
  if (WaitUntil(left, 2 * kLookMs, isBack) != kDone) return Status::TimedOut;
  return failure.empty() ? Status::Ok : Status::NotRunning;
}

}  // namespace TamLogCtl
