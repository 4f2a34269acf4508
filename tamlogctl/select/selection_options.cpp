#include "tamlogctl/select/selection_options.h"

#include <algorithm>
#include <utility>

#include "client/file/log_file_image.h"
#include "client/message/time_zone.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/base/time_bound.h"

namespace TamLogCtl {

using TamLogClient::KeyOf;
using TamLogClient::TimeWords;

namespace {

constexpr std::uint64_t kMostBytesOfTerms = std::uint64_t{64} << 20U;
// Returns the reason why the text does not name a source. The part after its last colon is read as types and
// is not valid.
std::string TermProblem(const std::string& text) {
  const std::string expected = "expected NAME or NAME:TYPES, for example Camera:0,2";
  const bool endsLikeName = text.rfind(':') != 0 && text.rfind(':') + 1 < text.size();
  return expected + (endsLikeName ? "; for a source of this name write '" + text + "*'" : "");
}

std::nullopt_t RefuseValue(const std::string& option, const std::string& value, const std::string& problem) {
  Say(option + " '" + value + "': " + problem);
  return std::nullopt;
}

// Returns the severity of -p, which means something only if the names of the types have severities.
std::optional<int> SeverityIn(const std::string& text, const TamLogClient::TypeNames& names) {
  const bool digit = text.size() == 1 && text[0] >= '0' && text[0] <= '7';
  const auto severity = digit ? std::optional(text[0] - '0') : TamLogClient::SeverityOf(text);
  if (!severity)
    return RefuseValue("-p", text,
                       "expected emerg, alert, crit, err, warning, notice, info, debug, or 0 to 7");
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    if (names.Severity(type)) return severity;
  }
  return RefuseValue("-p", text,
                     "types have no severity of their own; state it with --type-names 0=info,1=warn,3=err or "
                     "TAMLOGCTL_TYPE_NAMES");
}

bool AddSources(const SelectionOptions& options, MessageSelection& selection) {
  for (const bool excluded : {false, true}) {
    for (const std::string& text : excluded ? options.excludedSources : options.sources) {
      auto term = ParseSourceTerm(text);
      if (!term) {
        RefuseValue(excluded ? "-x" : "-s", text, TermProblem(text));
        return false;
      }
      if (excluded) {
        selection.Exclude(std::move(*term));
      } else {
        selection.Include(std::move(*term));
      }
    }
  }
  return true;
}

int AddFilterFile(const std::string& path, MessageSelection& selection) {
  std::string lines;
  if (const auto status = TamLogClient::ReadFileBytes(path, lines, kMostBytesOfTerms);
      status != TamLogClient::Status::Ok)
    return Refuse(ExitCodeOf(status), "--filter-file '" + path + "': " + ProblemOf(status));
  std::size_t badLine = 0;
  if (selection.AddTerms(lines, badLine)) return kDone;
  return Refuse(kUsage, path + ":" + std::to_string(badLine) +
                            ": expected NAME, NAME:TYPES, or !NAME[:TYPES] to exclude");
}

bool AddPatterns(const SelectionOptions& options, MessageSelection& selection) {
  for (const std::string& text : options.patterns) {
    auto pattern = MakePattern("-g", text, options);
    if (!pattern) return false;
    selection.AddPattern(std::move(*pattern));
  }
  for (const std::string& text : options.antiPatterns) {
    auto pattern = MakePattern("-v", text, options);
    if (!pattern) return false;
    selection.AddAntiPattern(std::move(*pattern));
  }
  return true;
}

bool AddTypes(const SelectionOptions& options, const OutputOptions& output, MessageSelection& selection) {
  if (options.types.empty() && options.severity.empty()) return true;
  const auto names = MakeTypeNames(output);
  if (!names) return false;
  std::uint32_t types = 0xF;
  if (!options.types.empty()) {
    const auto listed = ParseTypes(options.types, *names);
    if (!listed) {
      RefuseValue(
          "-t", options.types,
          "expected types from 0 to 3, T0 to T3, or their names by --type-names, for example 0,2 or 1-3");
      return false;
    }
    types &= *listed;
  }
  if (!options.severity.empty()) {
    const auto severity = SeverityIn(options.severity, *names);
    if (!severity) return false;
    types &= TypesOfSeverity(*severity, *names);
  }
  selection.SetTypes(types);
  return true;
}

std::string Shown(const TimeWords& words) {
  std::string text;
  TamLogClient::AppendTime(words, ' ', text);
  return text;
}

bool AddTimes(const SelectionOptions& options, const OutputOptions& output, MessageSelection& selection) {
  BoundClock clock = ClockOfNow(LocalOffsetOf(output));
  if (options.relativeToEnd && options.end) clock = {*options.end, clock.localOffset};
  const auto parse = [&clock](const char* option, const std::string& text, std::optional<TimeWords>& time) {
    if (!text.empty()) time = ParseBound(text, clock);
    if (!text.empty() && !time) RefuseValue(option, text, kExpectedTime);
    return text.empty() || time;
  };
  std::optional<TimeWords> since;
  std::optional<TimeWords> until;
  clock.earliest = true;
  if (!parse("-S", options.since, since)) return false;
  clock.earliest = false;
  if (!parse("-U", options.until, until)) return false;
  if (since) selection.SetSince(KeyOf(*since));
  if (until) selection.SetUntil(KeyOf(*until));
  if (!since || !until || KeyOf(*since) <= KeyOf(*until)) return true;
  RefuseValue("-S", options.since,
              "is " + Shown(*since) + ", which is later than -U '" + options.until + "', " + Shown(*until) +
                  ": no message can match");
  return false;
}

// Filter files are not searched: any of them may.
bool GoesBeyondAscii(const SelectionOptions& options) {
  const auto beyond = [](const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) != 0; });
  };
  for (const auto* const list :
       {&options.sources, &options.excludedSources, &options.patterns, &options.antiPatterns}) {
    if (std::any_of(list->begin(), list->end(), beyond)) return true;
  }
  return !options.filterFiles.empty();
}

}  // namespace

std::string SelectionProblem(const SelectionOptions& options, bool copied) {
  if (options.relativeToEnd && !copied)
    return "--relative-to end: only for copied logs, whose end is in the past; name one, or count from now";
  if (options.patterns.empty() && options.antiPatterns.empty() && options.fixedPattern)
    return "-F: applies to -g and -v; add one of them";
  return "";
}

std::function<int(const TimeWords& utc)> LocalOffsetOf(const OutputOptions& output) {
  auto zone = TamLogClient::TimeZone::FromName(output.zone, {});
  if (!zone || output.zone == "written" || output.zone == "local") return OffsetAtUtc;
  const int minutes = zone->OffsetAt({1970, 1, 1}).value_or(0);  // the same at any time
  return [minutes](const TimeWords&) { return minutes; };
}

std::optional<TextPattern> MakePattern(const std::string& option, const std::string& text,
                                       const SelectionOptions& options) {
  if (option == "-v" && text.empty())
    return RefuseValue(option, text,
                       "every text matches an empty expression; it usually comes from an unset variable");
  std::string problem;
  auto pattern = TextPattern::Make(text, options.fixedPattern, options.ignoreCase, problem);
  if (pattern) return pattern;
  return RefuseValue(option, text,
                     "is not a regular expression: " + problem + "; add -F to search for it as plain text");
}

std::optional<MessageSelection> MakeSelection(const SelectionOptions& options, const OutputOptions& output,
                                              int& exitCode) {
  MessageSelection selection;
  exitCode = kUsage;
  if (!AddSources(options, selection)) return std::nullopt;
  for (const std::string& path : options.filterFiles) {
    if (const int code = AddFilterFile(path, selection); code != kDone) {
      exitCode = code;
      return std::nullopt;
    }
  }
  if (!AddTypes(options, output, selection)) return std::nullopt;
  if (!AddPatterns(options, selection) || !AddTimes(options, output, selection)) return std::nullopt;
  if (GoesBeyondAscii(options)) {
    const auto encoding = MakeEncoding(output);
    if (!encoding) return std::nullopt;
    selection.SetEncoding(*encoding);
  }
  return selection;
}

}  // namespace TamLogCtl
