#include "tamlogctl/server/filter.h"

#include <algorithm>

#include "client/file/log_file_image.h"
#include "client/live/log_client.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/live_server.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::Status;
using Filters = std::vector<FilterEntry>;

constexpr std::uint64_t kMostBytesOfFilters = std::uint64_t{64} << 20U;

LogClient Connect(const FilterOptions& options) {
  return LogClient({kRequestPipeName, options.timeoutMs});
}

// Checked before anything is sent: a list that is refused half way would leave a partial one.
bool CanBeStored(const Filters& filters, bool allowEmpty) {
  return std::all_of(filters.begin(), filters.end(), [allowEmpty](const FilterEntry& filter) {
    std::string problem = FilterProblem(filter);
    if (filter.text.empty() && !allowEmpty) {
      problem = std::string("an empty filter matches every source") +
                (filter.include ? "" : ", so every message would be dropped") +
                "; it usually comes from an unset variable; add --allow-empty if it is meant";
    }
    if (!problem.empty()) Say(problem);
    return problem.empty();
  });
}

void Warn(const Filters& added) {
  for (const FilterEntry& filter : added) {
    const std::string remark = FilterRemark(filter);
    if (!remark.empty()) Say("warning: '" + Shown(filter.text) + "' is " + remark);
  }
}

void SayKnown(const Filters& known, const char* problem) {
  for (const FilterEntry& filter : known) Say("'" + Shown(filter.text) + "' " + problem);
}

void WarnOfRule(const Filters& all) {
  const auto included = std::count_if(all.begin(), all.end(), [](const FilterEntry& f) { return f.include; });
  if (included > 0 && included < static_cast<std::ptrdiff_t>(all.size())) {
    Say("note: while there are include filters, exclude filters are ignored");
  }
}

// Prints the filters that are not stored, in the format that `filter set -` reads.
int AddAll(LogClient& client, const Filters& filters) {
  for (std::size_t i = 0; i < filters.size(); ++i) {
    const Status status = client.AddFilter(filters[i]);
    if (status == Status::Ok) continue;
    const Filters rest(filters.begin() + static_cast<std::ptrdiff_t>(i), filters.end());
    Say("these filters were not stored; add them again:");
    WriteErr(FiltersAsTsv(rest));
    return Refuse(status, "filter add");
  }
  return kDone;
}

// Clears the list and adds all filters again: no request removes or changes a single one.
int Replace(LogClient& client, const Filters& filters) {
  const Status status = client.ClearFilters();
  if (status != Status::Ok) return Refuse(status, "filter clear");
  const int exitCode = AddAll(client, filters);
  Say("note: messages that arrived meanwhile were filtered by a partial list");
  return exitCode;
}

bool Remove(Filters& filters, const FilterEntry& wanted) {
  const auto at = std::find_if(filters.begin(), filters.end(), [&wanted](const FilterEntry& filter) {
    return filter.include == wanted.include && filter.text == wanted.text;
  });
  if (at == filters.end()) return false;
  filters.erase(at);
  return true;
}

}  // namespace

int ListFilters(const FilterOptions& options) {
  LogClient client = Connect(options);
  Filters filters;
  if (const int exitCode = RequestFilters(client, filters); exitCode != kDone) return exitCode;
  std::string out;
  switch (options.format) {
    case ListFormat::Text:
      out = FiltersAsText(filters);
      break;
    case ListFormat::Tsv:
      out = FiltersAsTsv(filters);
      break;
    case ListFormat::Json:
      out = FiltersAsJson(filters);
      break;
  }
  return WriteOut(out) ? kDone : kOutputFailed;
}

int AddFilters(const FilterOptions& options) {
  if (!CanBeStored(options.entries, options.allowEmpty)) return kUsage;
  LogClient client = Connect(options);
  Filters all;
  if (const int exitCode = RequestFilters(client, all); exitCode != kDone) return exitCode;
  Filters added = options.entries;
  SayKnown(RemoveKnown(all, added), "is already a filter; not added again");
  Warn(added);
  if (const int exitCode = AddAll(client, added); exitCode != kDone) return exitCode;
  all.insert(all.end(), added.begin(), added.end());
  WarnOfRule(all);
  return kDone;
}

int RemoveFilters(const FilterOptions& options) {
  LogClient client = Connect(options);
  Filters filters;
  if (const int exitCode = RequestFilters(client, filters); exitCode != kDone) return exitCode;
  std::vector<std::uint32_t> numbers = options.numbers;
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  const std::size_t before = filters.size();
  // The highest first, so that the others keep their numbers.
  std::reverse(numbers.begin(), numbers.end());
  for (const std::uint32_t number : numbers) {
    if (number == 0 || number > before) {
      return Refuse(kNegative,
                    "there is no filter " + std::to_string(number) + "; see: tamlogctl filter list");
    }
    filters.erase(filters.begin() + static_cast<std::ptrdiff_t>(number - 1));
  }
  for (const FilterEntry& wanted : options.entries) {
    if (Remove(filters, wanted)) continue;
    return Refuse(kNegative, std::string("there is no ") + (wanted.include ? "include" : "exclude") +
                                 " filter '" + Shown(wanted.text) + "'; see: tamlogctl filter list");
  }
  return Replace(client, filters);
}

int ClearFilters(const FilterOptions& options) {
  LogClient client = Connect(options);
  const Status status = client.ClearFilters();
  return status == Status::Ok ? kDone : Refuse(status, "filter clear");
}

int SetFilters(const FilterOptions& options) {
  std::string text;
  if (options.file == "-") {
    text = ReadInput();
  } else if (const auto status = TamLogClient::ReadFileBytes(options.file, text, kMostBytesOfFilters);
             status != Status::Ok) {
    return Refuse(ExitCodeOf(status), FileProblem(options.file, status));
  }
  std::string problem;
  auto filters = ParseFilters(text, problem);
  if (!filters) return Refuse(kUsage, options.file + ": " + problem);
  if (!CanBeStored(*filters, options.allowEmpty)) return kUsage;
  SayKnown(RemoveKnown({}, *filters), "occurs twice; stored once");
  LogClient client = Connect(options);
  Warn(*filters);
  WarnOfRule(*filters);
  return Replace(client, *filters);
}

int TestFilters(const FilterOptions& options) {
  LogClient client = Connect(options);
  SettingsBody settings{};
  Filters filters;
  const Status status = client.GetSettings(settings);
  if (status != Status::Ok) return Refuse(status, "settings");
  if (const int exitCode = RequestFilters(client, filters); exitCode != kDone) return exitCode;
  std::string out;
  bool kept = false;
  // Without a type every type is judged; one that is kept is enough.
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    if (options.typeGiven && type != options.type) continue;
    const auto verdict = JudgeMessage(filters, settings.typeFilter, options.source, type);
    kept = kept || verdict.kept;
    out += "type " + std::to_string(type) + "  " + VerdictText(filters, verdict, type) + "\n";
  }
  if (!WriteLines(out)) return kOutputFailed;
  return kept ? kDone : kNegative;
}

}  // namespace TamLogCtl
