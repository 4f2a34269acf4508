#include "tamlogctl/read/printer.h"

#include <algorithm>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/select/highlight.h"
#include "tamlogctl/select/message_choice.h"

namespace TamLogCtl {

std::optional<Printer> Printer::Make(const ShowOptions& options, int& exitCode) {
  auto selection = MakeSelection(options.selection, options.output, exitCode);
  if (!selection) return std::nullopt;
  exitCode = kUsage;
  auto formatter = MakeFormatter(options.output, options.color);
  if (!formatter) return std::nullopt;
  Printer printer(options, std::move(*formatter), std::move(*selection));
  for (const std::string& text : options.highlights) {
    auto pattern = MakePattern("--highlight", text, options.selection);
    if (!pattern) return std::nullopt;
    if (IsTextFormat(options) && WantsColor(options.color)) printer.highlights.push_back(std::move(*pattern));
  }
  return printer;
}

void Printer::PrintLast(const std::vector<const LogMessage*>& oldestFirst) {
  std::vector<std::size_t> indices = ChooseMessages(oldestFirst, selection, options.limit);
  matched += indices.size();
  if (options.count) return;
  indices = WithContext(indices, oldestFirst.size(), options.before, options.after);
  if (!options.reverse) std::reverse(indices.begin(), indices.end());
  std::optional<std::size_t> last;
  for (const std::size_t index : indices) {
    if (last && (index > *last ? index - *last : *last - index) > 1) EmitGap();
    last = index;
    Emit(*oldestFirst[index], false, twins.Of(oldestFirst[index]));
    if (failed) return;
  }
}

void Printer::Print(const LogMessage& message, bool late, std::uint32_t twin) {
  if (failed) return;
  if (!LimitIsReached() && Wants(message)) {
    ++matched;
    if (options.count) return;
    if (leftOut && emitted) EmitGap();
    leftOut = false;
    for (const Earlier& entry : earlier) Emit(entry.message, entry.late, entry.twin);
    earlier.clear();
    Emit(message, late, twin);
    stillAfter = options.after;
  } else if (stillAfter > 0) {
    --stillAfter;
    Emit(message, late, twin);
  } else if (options.before == 0) {
    leftOut = true;
  } else {
    earlier.push_back({message, late, twin});
    if (earlier.size() > options.before) {
      earlier.pop_front();
      leftOut = true;
    }
  }
}

void Printer::Emit(const LogMessage& message, bool late, std::uint32_t twin) {
  if (!begun) formatter.AppendHead(pending);
  begun = emitted = true;
  if (highlights.empty()) {
    formatter.Append(message, late, pending, twin);
  } else {
    plain.clear();
    formatter.Append(message, late, plain, twin);
    AppendHighlighted(plain, highlights, pending);
  }
  if (pending.size() >= kWriteSize) Flush();
}

void Printer::EmitGap() {
  if ((options.before > 0 || options.after > 0) && IsTextFormat(options)) pending += "--\n";
}

bool Printer::Finish() {
  if (options.count) {
    pending += CountText(options.limit.Of(matched), options.output);
  } else {
    if (!begun) formatter.AppendHead(pending);
    begun = true;
    formatter.AppendTail(pending);
  }
  return Flush();
}

bool Printer::Finish(Pager& pager) {
  const bool written = Finish();
  const bool paged = pager.Active();
  return pager.End() && (written || paged);
}

bool Printer::Flush() {
  if (!failed && !pending.empty()) failed = !WriteOut(pending);
  pending.clear();
  return !failed;
}

}  // namespace TamLogCtl
