#include "tamlogctl/select/selection_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "client/file/file_path.h"
#include "client/message/local_time.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/locale.h"
#include "tamlogctl/select/time_bound.h"

namespace TamLogCtl {

namespace {

using TamLogClient::MessageSelection;
using TamLogClient::TextPattern;

constexpr const char* kTermMend = "expected NAME or NAME:TYPES, for example Camera:0,2";
constexpr const char* kTimeMend =
    "expected YYYY-MM-DD [HH:MM[:SS[.mmm]]], HH:MM, now, today, yesterday, -15m (s, m, h, d, w), or "
    "YYYY-MM-DDTHH:MM:SSZ";

std::nullopt_t Refuse(const std::string& option, const std::string& value, const std::string& mend) {
  Say(option + " '" + value + "': " + mend);
  return std::nullopt;
}

bool AddSources(const SelectionOptions& options, MessageSelection& selection) {
  for (const bool excluded : {false, true}) {
    for (const std::string& text : excluded ? options.excludedSources : options.sources) {
      auto term = TamLogClient::ParseSourceTerm(text);
      if (!term) {
        Refuse(excluded ? "-x" : "-s", text, kTermMend);
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

bool AddFilterFile(const std::string& path, MessageSelection& selection) {
  const std::filesystem::path place = TamLogClient::PathOf(path);
  std::error_code error;
  std::ifstream file(place, std::ios::binary);
  std::ostringstream lines;
  lines << file.rdbuf();
  // An empty file makes the line above fail, a directory does not everywhere.
  if (!file.is_open() || std::filesystem::is_directory(place, error)) {
    Refuse("--filter-file", path, "the file cannot be read");
    return false;
  }
  std::size_t badLine = 0;
  if (selection.AddTerms(lines.str(), badLine)) return true;
  Say(path + ":" + std::to_string(badLine) + ": expected NAME, NAME:TYPES, or !NAME[:TYPES] to leave out");
  return false;
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
  const TamLogClient::BoundClock clock{TamLogClient::LocalNow(), OffsetAtUtc};
  for (const bool until : {false, true}) {
    const std::string& text = until ? options.until : options.since;
    if (text.empty()) continue;
    const auto time = TamLogClient::ParseBound(text, clock);
    if (!time) {
      Refuse(until ? "-U" : "-S", text, kTimeMend);
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

// What a filter file holds is not looked at: it may.
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

void DefineSelectionOptions(CLI::App& verb, SelectionOptions& to) {
  const auto list = [&verb](const char* name, std::vector<std::string>& target, const char* purpose,
                            const char* value) {
    verb.add_option(name, target, purpose)->allow_extra_args(false)->option_text(value);
  };
  list("-s,--source", to.sources, "Only this source, of these types (NAME may hold *; repeatable)",
       "NAME[:TYPES]");
  list("-x,--exclude", to.excludedSources, "Not this source, or not these of its types (repeatable)",
       "NAME[:TYPES]");
  list("--filter-file", to.filterFiles, "Sources from a file: NAME[:TYPES] or !NAME[:TYPES] a line", "FILE");
  verb.add_option("-t,--type", to.types, "Only these types: 0,2 or 1-3")->option_text("LIST");
  list("-g,--grep", to.patterns, "Only texts that match this expression (repeatable: any of them)", "RE");
  list("-v,--not-matching", to.antiPatterns, "Only texts that do not match it (repeatable: none of them)",
       "RE");
  verb.add_flag("-F,--fixed", to.fixedPattern, "The expressions of -g and -v are plain text");
  verb.add_flag("-i,--ignore-case", to.ignoreCase,
                "Ignore case (an expression all in lower case does so too)");
  verb.add_option("-S,--since", to.since,
                  "Not older: as printed, [YYYY-MM-DD] HH:MM, today, yesterday, -15m, RFC 3339")
      ->option_text("TIME");
  verb.add_option("-U,--until", to.until, "Not newer than this time")->option_text("TIME");
}

void CheckSelectionOptions(const SelectionOptions& options) {
  if (options.patterns.empty() && options.antiPatterns.empty() && options.fixedPattern) {
    throw CLI::ValidationError("-F", "says how -g and -v are meant; give one of them as well");
  }
}

std::optional<TextPattern> MakePattern(const std::string& option, const std::string& text,
                                       const SelectionOptions& options) {
  std::string problem;
  auto pattern = TextPattern::Make(text, options.fixedPattern, options.ignoreCase, problem);
  if (pattern) return pattern;
  return Refuse(option, text,
                "no regular expression: " + problem + "; add -F to search for it as plain text");
}

std::optional<MessageSelection> MakeSelection(const SelectionOptions& options, const OutputOptions& output) {
  MessageSelection selection;
  if (!AddSources(options, selection)) return std::nullopt;
  for (const std::string& path : options.filterFiles) {
    if (!AddFilterFile(path, selection)) return std::nullopt;
  }
  if (!options.types.empty()) {
    const auto types = TamLogClient::ParseTypes(options.types);
    if (!types) return Refuse("-t", options.types, "expected types from 0 to 3, for example 0,2 or 1-3");
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
