#include "tamlogctl/output_options.h"

#include <CLI/CLI.hpp>

#include "tamlogctl/console.h"

namespace TamLogCtl {

namespace {

bool WantsColor(Color color) {
  if (color != Color::Auto) {
    if (color == Color::Always) EnableColors();
    return color == Color::Always;
  }
  return StdoutIsTerminal() && !EnvironmentHas("NO_COLOR") && EnableColors();
}

}  // namespace

void DefineOutputOptions(CLI::App& verb, OutputOptions& to) {
  verb.add_option("-o,--output", to.format, "Format: short, full, cat, json, tsv, csv")
      ->check(CLI::IsMember({"short", "full", "cat", "json", "ndjson", "tsv", "csv"}))
      ->option_text("FORMAT");
}

std::optional<TamLogClient::MessageFormatter> MakeFormatter(const OutputOptions& options, Color color) {
  const auto format = TamLogClient::FormatFromName(options.format);
  if (!format) return std::nullopt;
  return TamLogClient::MessageFormatter({*format, StdoutIsTerminal(), WantsColor(color)});
}

}  // namespace TamLogCtl
