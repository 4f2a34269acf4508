#include "tamlogctl/printer.h"

#include <algorithm>

#include "client/time_text.h"
#include "tamlogctl/console.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;

constexpr std::size_t kWriteSize = std::size_t{1} << 16U;

bool WantsColor(Color color) {
  if (color != Color::Auto) {
    if (color == Color::Always) EnableColors();
    return color == Color::Always;
  }
  return StdoutIsTerminal() && !EnvironmentHas("NO_COLOR") && EnableColors();
}

bool Refuse(const std::string& option, const std::string& value, const std::string& mend) {
  Say(option + " '" + value + "': " + mend);
  return false;
}

constexpr const char* kTermMend = "expected NAME or NAME:TYPES, for example Camera:0,2";
constexpr const char* kTimeMend =
    "expected YYYY-MM-DD [HH:MM[:SS[.mmm]]], now, today, yesterday, or -15m (s, m, h, d)";

}  // namespace

std::optional<Printer> Printer::Make(const ShowOptions& options) {
  const auto format = TamLogClient::FormatFromName(options.format);
  if (!format) return std::nullopt;
  Printer printer(options, {*format, StdoutIsTerminal(), WantsColor(options.color)});
  if (!printer.Select()) return std::nullopt;
  return printer;
}

bool Printer::Select() {
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
  return true;
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
