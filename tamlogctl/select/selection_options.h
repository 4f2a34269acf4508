#pragma once

// The options that select messages; every verb that reads messages has them.

#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/base/output_options.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

struct SelectionOptions {
  std::vector<std::string> sources;
  std::vector<std::string> excludedSources;
  std::string types;
  std::vector<std::string> patterns;
  std::vector<std::string> antiPatterns;
  bool fixedPattern = false;
  bool ignoreCase = false;
  std::string since;
  std::string until;
  std::vector<std::string> filterFiles;
};

// Returns which options contradict each other, "-F: ..."; empty when none do.
std::string SelectionProblem(const SelectionOptions& options);

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
