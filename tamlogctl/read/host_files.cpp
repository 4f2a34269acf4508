#include "tamlogctl/read/host_files.h"

#include <algorithm>
#include <charconv>

#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"

namespace TamLogCtl {

namespace {

using std::chrono::milliseconds;

std::optional<std::pair<std::string, std::string>> SplitAtEquals(const std::string& option,
                                                                 const std::string& text) {
  const std::size_t at = text.find('=');
  if (at == std::string::npos || at == 0 || at + 1 == text.size()) {
    Say(option + " '" + text + "': expected " +
        (option == "--label" ? "HOST=FILE" : "HOST=+1h (ms, s, m, h, d)"));
    return std::nullopt;
  }
  return std::pair(text.substr(0, at), text.substr(at + 1));
}

std::optional<milliseconds> UnitOf(std::string_view unit) {
  if (unit == "ms") return milliseconds(1);
  if (unit == "s") return std::chrono::seconds(1);
  if (unit == "m") return std::chrono::minutes(1);
  if (unit == "h") return std::chrono::hours(1);
  if (unit == "d") return std::chrono::hours(24);
  return std::nullopt;
}

}  // namespace

std::optional<milliseconds> ParseOffset(std::string_view text) {
  const bool back = !text.empty() && text.front() == '-';
  if (!text.empty() && (back || text.front() == '+')) text.remove_prefix(1);
  constexpr std::uint32_t kMost = 1000000;
  std::uint32_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || count > kMost) return std::nullopt;
  const auto unit = UnitOf(text.substr(static_cast<std::size_t>(end - text.data())));
  if (!unit) return std::nullopt;
  return *unit * count * (back ? -1 : 1);
}

std::optional<std::vector<HostFile>> MakeHostFiles(const std::vector<std::string>& files,
                                                   const std::vector<std::string>& labels,
                                                   const std::vector<std::string>& offsets) {
  std::vector<HostFile> all;
  all.reserve(files.size() + labels.size());
  for (const std::string& file : files) all.push_back({"", file, {}});
  for (const std::string& label : labels) {
    auto pair = SplitAtEquals("--label", label);
    if (!pair) return std::nullopt;
    all.push_back({std::move(pair->first), std::move(pair->second), {}});
  }
  for (const std::string& text : offsets) {
    const auto pair = SplitAtEquals("--offset", text);
    if (!pair) return std::nullopt;
    const auto offset = ParseOffset(pair->second);
    if (!offset) {
      Say("--offset '" + text + "': expected HOST=+1h (ms, s, m, h, d)");
      return std::nullopt;
    }
    bool known = false;
    for (HostFile& file : all) {
      if (file.host != pair->first) continue;
      file.offset = *offset;
      known = true;
    }
    if (!known) {
      Say("--offset '" + text + "': there is no --label " + pair->first + "=FILE");
      return std::nullopt;
    }
  }
  return all;
}

void ShiftTime(LogMessageBody& body, milliseconds by) {
  const TamLogClient::TimeWords words = TamLogClient::WordsOf(body);
  if (by.count() == 0 || !TamLogClient::IsRealTime(words)) return;
  using std::chrono::day;
  using std::chrono::month;
  using std::chrono::year;
  const std::chrono::year_month_day date{year(words[0]), month(static_cast<unsigned>(words[1])),
                                         day(static_cast<unsigned>(words[2]))};
  const auto moment = std::chrono::sys_days(date) + std::chrono::hours(words[3]) +
                      std::chrono::minutes(words[4]) + std::chrono::seconds(words[5]) +
                      milliseconds(words[6]) + by;
  const auto newDay = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day newDate{newDay};
  const std::chrono::hh_mm_ss time{moment - newDay};
  const TamLogClient::TimeWords shifted{static_cast<std::int16_t>(static_cast<int>(newDate.year())),
                                        static_cast<std::int16_t>(static_cast<unsigned>(newDate.month())),
                                        static_cast<std::int16_t>(static_cast<unsigned>(newDate.day())),
                                        static_cast<std::int16_t>(time.hours().count()),
                                        static_cast<std::int16_t>(time.minutes().count()),
                                        static_cast<std::int16_t>(time.seconds().count()),
                                        static_cast<std::int16_t>(time.subseconds().count()),
                                        words[7]};
  if (TamLogClient::IsRealTime(shifted)) TamLogClient::SetTime(body, shifted);
}

}  // namespace TamLogCtl
