#include "tamlogctl/printer.h"

#include <algorithm>

#include "tamlogctl/console.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;

constexpr std::size_t kWriteSize = std::size_t{1} << 16U;

}  // namespace

std::optional<Printer> Printer::Make(const ShowOptions& options) {
  auto selection = MakeSelection(options.selection);
  auto formatter = MakeFormatter(options.output, options.color);
  if (!selection || !formatter) return std::nullopt;
  return Printer(options, *formatter, std::move(*selection));
}

void Printer::PrintLast(const std::vector<const LogMessage*>& oldestFirst) {
  std::vector<const LogMessage*> wanted;
  // clang 14, which checks the sources, cannot compile std::views::reverse with this library.
  // NOLINTNEXTLINE(modernize-loop-convert)
  for (auto at = oldestFirst.rbegin(); at != oldestFirst.rend(); ++at) {
    if (options.last && wanted.size() >= *options.last) break;
    if (selection.Wants(LogMessageView(**at))) wanted.push_back(*at);
  }
  if (!options.reverse) std::reverse(wanted.begin(), wanted.end());
  for (const LogMessage* message : wanted) {
    formatter.Append(*message, false, pending);
    ++printed;
    if (pending.size() >= kWriteSize && !Flush()) return;
  }
  Flush();
}

void Printer::Print(const LogMessage& message, bool late) {
  if (failed || !selection.Wants(LogMessageView(message))) return;
  formatter.Append(message, late, pending);
  ++printed;
  if (pending.size() >= kWriteSize) Flush();
}

bool Printer::Flush() {
  if (!failed && !pending.empty()) failed = !WriteOut(pending);
  pending.clear();
  return !failed;
}

}  // namespace TamLogCtl
