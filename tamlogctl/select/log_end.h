#pragma once

// The end of copied logs, from which --relative-to end counts: the last message of a copied log is often old,
// and "the last quarter of an hour" then means the one before that message.

#include <optional>
#include <string>
#include <vector>

#include "client/message/time_text.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/select/nothing_found.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

// Returns the latest real time (IsRealTime) of the messages of the file at `path` (UTF-8); nothing when it
// has none or cannot be read.
std::optional<TamLogClient::TimeWords> EndOfLog(const std::string& path);

// Returns the latest of the ends of these files.
std::optional<TamLogClient::TimeWords> EndOfLogs(const std::vector<std::string>& paths);

// Reports on stderr that --since is later than `end`, the end of the logs in which nothing matched, and
// suggests --relative-to end where that would find messages.
void SuggestEnd(const SelectionOptions& options, const OutputOptions& output,
                const std::optional<TamLogClient::TimeWords>& end);

// Runs a verb on logs: resolves --relative-to end before. Where the verb found nothing, suggests it, and
// reports names of sources that are not in the logs.
template <typename Options>
int RunWithEnd(const Options& given, int (*run)(const Options&)) {
  Options options = given;
  if (options.selection.relativeToEnd) options.selection.end = EndOfLogs(options.files);
  const int exitCode = run(options);
  if (exitCode == kNegative && !options.quiet) {
    SuggestSources(options.selection, options.files);
    SuggestEnd(options.selection, options.output, EndOfLogs(options.files));
  }
  return exitCode;
}

}  // namespace TamLogCtl
