#include "tamlogctl/select/selection_options.h"

#include <algorithm>
#include <utility>

#include "client/file/log_file_image.h"
#include "client/message/local_time.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/select/time_bound.h"

namespace TamLogCtl {

namespace {

constexpr const char* kTermHelp = "expected NAME or NAME:TYPES, for example Camera:0,2";
constexpr const char* kTimeHelp =
    "expected YYYY-MM-DD [HH:MM[:SS[.mmm]]], HH:MM, now, today, yesterday, -15m (ms, s, m, h, d, w), or "
    "YYYY-MM-DDTHH:MM:SSZ";

std::nullopt_t RefuseValue(const std::string& option, const std::string& value, const std::string& problem) {
  Say(option + " '" + value + "': " + problem);
  return std::nullopt;
}

bool AddSources(const SelectionOptions& options, MessageSelection& selection) {
  for (const bool excluded : {false, true}) {
    for (const std::string& text : excluded ? options.excludedSources : options.sources) {
      auto term = ParseSourceTerm(text);
      if (!term) {
        RefuseValue(excluded ? "-x" : "-s", text, kTermHelp);
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
  if (const auto status = TamLogClient::ReadFileBytes(path, lines); status != TamLogClient::Status::Ok)
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

bool AddTimes(const SelectionOptions& options, MessageSelection& selection) {
  const BoundClock clock{TamLogClient::LocalNow(), OffsetAtUtc};
  for (const bool until : {false, true}) {
    const std::string& text = until ? options.until : options.since;
    if (text.empty()) continue;
    const auto time = ParseBound(text, clock);
    if (!time) {
      RefuseValue(until ? "-U" : "-S", text, kTimeHelp);
      return false;
    }
    const std::uint64_t key = TamLogClient::KeyOf(*time);
    if (until) {
      selection.SetUntil(key);
    } else {
      selection.SetSince(key);
    }
  }
  return true;
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

std::string SelectionProblem(const SelectionOptions& options) {
  if (options.patterns.empty() && options.antiPatterns.empty() && options.fixedPattern)
    return "-F: applies to -g and -v; add one of them";
  return "";
}

std::optional<TextPattern> MakePattern(const std::string& option, const std::string& text,
                                       const SelectionOptions& options) {
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
  if (!options.types.empty()) {
    const auto types = ParseTypes(options.types);
    if (!types) return RefuseValue("-t", options.types, "expected types from 0 to 3, for example 0,2 or 1-3");
    selection.SetTypes(*types);
  }
  if (!AddPatterns(options, selection) || !AddTimes(options, selection)) return std::nullopt;
  if (GoesBeyondAscii(options)) {
    const auto encoding = MakeEncoding(output);
    if (!encoding) return std::nullopt;
    selection.SetEncoding(*encoding);
  }
  return selection;
}

}  // namespace TamLogCtl
