#include "tamlogctl/server/live_server.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "client/message/utf8.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/filter_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FilterEntry;
using TamLogClient::FilterReason;
using TamLogClient::FilterVerdict;
using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::Status;

constexpr char kServerKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr char kFiltersKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server\Filters)";
constexpr std::uint32_t kFlushWaitMs = 450;  // two ticks and some more
constexpr std::uint32_t kLookMs = 50;

class Key {
 public:
  explicit Key(const char* path) {
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS) key = nullptr;
  }
  ~Key() {
    if (key != nullptr) RegCloseKey(key);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  HKEY Get() const { return key; }

 private:
  HKEY key = nullptr;
};

std::size_t LengthOfText(const char* bytes, DWORD size) {
  const std::string_view whole(bytes, size);
  return std::min(whole.find('\0'), whole.size());
}

std::size_t LongestFilter() {
  const Key key(kFiltersKey);
  std::size_t longest = 0;
  std::array<char, 256> name{};
  std::array<char, 4096> data{};
  for (DWORD index = 0; key.Get() != nullptr; ++index) {
    auto nameSize = static_cast<DWORD>(name.size());
    auto size = static_cast<DWORD>(data.size());
    const LSTATUS result = RegEnumValueA(key.Get(), index, name.data(), &nameSize, nullptr, nullptr,
                                         reinterpret_cast<BYTE*>(data.data()), &size);
    if (result != ERROR_SUCCESS) break;
    // The first letter says which kind it is.
    const std::size_t length = LengthOfText(data.data(), size);
    longest = std::max(longest, length > 0 ? length - 1 : 0);
  }
  return longest;
}

}  // namespace

KeptLengths LookAtKeptTexts() {
  KeptLengths lengths;
  lengths.longestFilter = LongestFilter();
  const Key key(kServerKey);
  std::array<char, 4096> data{};
  auto size = static_cast<DWORD>(data.size());
  if (key.Get() != nullptr &&
      RegQueryValueExA(key.Get(), "LogFile", nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) ==
          ERROR_SUCCESS) {
    lengths.path = LengthOfText(data.data(), size);
  }
  return lengths;
}

int AskForFilters(LogClient& client, std::vector<FilterEntry>& filters) {
  const std::size_t longest = LookAtKeptTexts().longestFilter;
  if (longest > kMostFilterText) {
    return Refuse(kRefused, "a stored filter has " + std::to_string(longest) +
                                " bytes, and the server would end if it were asked for it; remove all "
                                "filters: tamlogctl filter clear");
  }
  const Status status = client.GetFilters(filters);
  return status == Status::Ok ? kDone : Refuse(status, "filters");
}

std::string VerdictText(const std::vector<FilterEntry>& filters, const FilterVerdict& verdict,
                        std::uint32_t type) {
  const auto quoted = [&filters, &verdict] {
    std::string text = "'";
    TamLogClient::AppendVisible(filters[verdict.index].text, text);
    return text + "' (" + std::to_string(verdict.index + 1) + ")";
  };
  switch (verdict.reason) {
    case FilterReason::NoSuchType:
      return "dropped: there is no type " + std::to_string(type);
    case FilterReason::TypeOff:
      return "dropped by type: " + std::to_string(type) + " is switched off";
    case FilterReason::Included:
      return "kept by include filter " + quoted();
    case FilterReason::NotIncluded:
      return "dropped: no include filter matches";
    case FilterReason::Excluded:
      return "dropped by exclude filter " + quoted();
    case FilterReason::NothingAgainst:
      return "kept: no filter matches";
  }
  return "";
}

std::optional<std::int32_t> CapacityInEffect() {
  LogReader reader;
  LogFileHeader header{};
  if (reader.Open() != Status::Ok || reader.Look(header) != Status::Ok) return std::nullopt;
  return header.maxMessages;
}

bool WaitForFlush() {
  return SleepFor(kFlushWaitMs);
}

bool RestartWatch::WaitForStop(std::uint64_t end) {
  while (client.Ping() == Status::Ok && client.Connections() == connections) {
    if (Ticks() >= end || !SleepFor(kLookMs)) return false;
  }
  return true;
}

Status RestartWatch::Wait(std::uint32_t patienceMs) {
  const std::uint64_t end = Ticks() + patienceMs;
  Progress progress("waiting for the server:");
  if (!WaitForStop(end)) return Status::TimedOut;
  LogClient next({kRequestPipeName, 1000, 200});
  while (Ticks() < end && !Interrupted()) {
    LogReader reader;
    LogFileHeader header{};
    const bool answers = next.Ping() == Status::Ok;
    if (answers && reader.Open() == Status::Ok && reader.Look(header) == Status::Ok) return Status::Ok;
    reader.Close();
    progress.Show(std::string(answers ? "it answers, its log is not open yet" : "it does not answer yet"));
    SleepFor(2 * kLookMs);
  }
  return Status::TimedOut;
}

}  // namespace TamLogCtl
