#pragma once

// Which messages are wanted: the options that every verb which reads messages has.

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

// Which options contradict each other, "-F: ..."; empty when none do.
std::string SelectionProblem(const SelectionOptions& options);

// Nothing, after a word on stderr, when an option's value makes no sense; the exit code is then kUsage. A
// filter file that cannot be read counts as such a value. Of `output` the encoding has a meaning here: names
// and expressions beyond ASCII find what is shown.
std::optional<TamLogClient::MessageSelection> MakeSelection(const SelectionOptions& options,
                                                            const OutputOptions& output);

// One pattern of an option as MakeSelection makes them; nothing after a word on stderr.
std::optional<TamLogClient::TextPattern> MakePattern(const std::string& option, const std::string& text,
                                                     const SelectionOptions& options);

}  // namespace TamLogCtl
