#include "tamlogctl/selection_options.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "client/time_text.h"
#include "tamlogctl/console.h"

namespace TamLogCtl {

namespace {

std::nullopt_t Refuse(const std::string& option, const std::string& value, const std::string& mend) {
  Say(option + " '" + value + "': " + mend);
  return std::nullopt;
}

constexpr const char* kTermMend = "expected NAME or NAME:TYPES, for example Camera:0,2";
constexpr const char* kTimeMend =
    "expected YYYY-MM-DD [HH:MM[:SS[.mmm]]], now, today, yesterday, or -15m (s, m, h, d)";

}  // namespace

void DefineSelectionOptions(CLI::App& verb, SelectionOptions& to) {
  verb.add_option("-s,--source", to.sources, "Only this source, of these types (NAME may hold *; repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME[:TYPES]");
  verb.add_option("-x,--exclude", to.excludedSources,
                  "Not this source, or not these of its types (repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME[:TYPES]");
  verb.add_option("-t,--type", to.types, "Only these types: 0,2 or 1-3")->option_text("LIST");
  verb.add_option("-g,--grep", to.pattern, "Only texts that match this regular expression")
      ->option_text("RE");
  verb.add_flag("-F,--fixed", to.fixedPattern, "The expression of -g is plain text");
  verb.add_flag("-i,--ignore-case", to.ignoreCase, "Ignore case (all lower case in -g does so too)");
  verb.add_option("-S,--since", to.since, "Not older: YYYY-MM-DD [HH:MM[:SS[.mmm]]], today, yesterday, -15m")
      ->option_text("TIME");
  verb.add_option("-U,--until", to.until, "Not newer than this time")->option_text("TIME");
}

void CheckSelectionOptions(const SelectionOptions& options) {
  if (options.pattern.empty() && options.fixedPattern) {
    throw CLI::ValidationError("-F", "says how -g is meant; give -g as well");
  }
}

std::optional<TamLogClient::MessageSelection> MakeSelection(const SelectionOptions& options) {
  TamLogClient::MessageSelection selection;
  for (const std::string& text : options.sources) {
    auto term = TamLogClient::ParseSourceTerm(text);
    if (!term) return Refuse("-s", text, kTermMend);
    selection.Include(std::move(*term));
  }
  for (const std::string& text : options.excludedSources) {
    auto term = TamLogClient::ParseSourceTerm(text);
    if (!term) return Refuse("-x", text, kTermMend);
    selection.Exclude(std::move(*term));
  }
  if (!options.types.empty()) {
    const auto types = TamLogClient::ParseTypes(options.types);
    if (!types) return Refuse("-t", options.types, "expected types from 0 to 3, for example 0,2 or 1-3");
    selection.SetTypes(*types);
  }
  if (!options.pattern.empty() &&
      !selection.SetPattern(options.pattern, options.fixedPattern, options.ignoreCase)) {
    return Refuse("-g", options.pattern, "no regular expression; add -F to search for it as plain text");
  }
  const auto now = Now();
  if (!options.since.empty()) {
    const auto time = TamLogClient::ParseTimeBound(options.since, now);
    if (!time) return Refuse("-S", options.since, kTimeMend);
    selection.SetSince(TamLogClient::KeyOf(*time));
  }
  if (!options.until.empty()) {
    const auto time = TamLogClient::ParseTimeBound(options.until, now);
    if (!time) return Refuse("-U", options.until, kTimeMend);
    selection.SetUntil(TamLogClient::KeyOf(*time));
  }
  return selection;
}

}  // namespace TamLogCtl
