#pragma once

// The options that select messages; every verb that reads messages has them.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/message/time_text.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

struct SelectionOptions {
  std::vector<std::string> sources;
  std::vector<std::string> excludedSources;
  std::string types;
  std::string severity;
  std::vector<std::string> patterns;
  std::vector<std::string> antiPatterns;
  bool fixedPattern = false;
  bool ignoreCase = false;
  std::string since;
  std::string until;
  bool relativeToEnd = false;                    // relative times count from `end`, not from now
  std::optional<TamLogClient::TimeWords> end{};  // of the copied logs; the verb sets it. Empty: unknown
  std::vector<std::string> filterFiles;
};

// Returns which options contradict each other, "-F: ..."; empty when none do. `copied`: the verb reads copied
// logs, not that of the running server.
std::string SelectionProblem(const SelectionOptions& options, bool copied);

// Returns the minutes by which the local time of the log is ahead of UTC at a moment in UTC: in the zone that
// `output` states, else in this machine's.
std::function<int(const TamLogClient::TimeWords& utc)> LocalOffsetOf(const OutputOptions& output);

// Returns nothing after a report on stderr. `exitCode` is then kUsage for a wrong value; for a filter file
// that cannot be read, the code of its status. The encoding of `output` is used: names and expressions beyond
// ASCII match messages as they are shown.
std::optional<MessageSelection> MakeSelection(const SelectionOptions& options, const OutputOptions& output,
                                              int& exitCode);

// Returns the pattern that MakeSelection would make of this value of `option`; nothing after a report on
// stderr.
std::optional<TextPattern> MakePattern(const std::string& option, const std::string& text,
                                       const SelectionOptions& options);

}  // namespace TamLogCtl
