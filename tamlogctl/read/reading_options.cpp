#include "tamlogctl/read/reading_options.h"

namespace TamLogCtl {

std::string CursorProblem(const ReadingOptions& options) {
  const bool cursor = !options.cursorFile.empty() || !options.afterCursor.empty() || options.showCursor;
  if (!options.cursorFile.empty() && !options.afterCursor.empty())
    return "--after-cursor: cannot be used with --cursor-file, which contains the cursor";
  if (cursor && options.files.size() > 1) return "--file: a cursor belongs to one log; name one file only";
  if (!options.cursorFile.empty() && !options.selection.until.empty())
    return "-U: cannot be used with --cursor-file: newer messages would never be shown";
  if (!options.cursorFile.empty() && options.limit.first)
    return "-n +N: cannot be used with --cursor-file: the messages after the first N would never be shown";
  return "";
}

std::string CountText(std::size_t count, const OutputOptions& output) {
  const bool json = output.format == "json" || output.format == "ndjson";
  return json ? "{\"count\":" + std::to_string(count) + "}\n" : std::to_string(count) + "\n";
}

bool IsTextFormat(const ReadingOptions& options) {
  const std::string& format = options.output.format;
  return format == "short" || format == "full" || format == "cat";
}

}  // namespace TamLogCtl
