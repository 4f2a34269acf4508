#include "tamlogctl/base/output_options.h"

#include <string_view>
#include <utility>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/locale.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Format;
using TamLogClient::FormatOptions;

constexpr std::string_view kTemplate = "template=";

bool Refuse(const char* option, const std::string& value, const std::string& fix) {
  Say(std::string(option) + " '" + value + "': " + fix);
  return false;
}

bool TakeTemplate(const OutputOptions& options, FormatOptions& to) {
  std::string problem;
  auto layout =
      TamLogClient::TextTemplate::Parse(std::string_view(options.format).substr(kTemplate.size()), problem);
  if (!layout) {
    Say("-o template: " + problem);
    return false;
  }
  to.format = Format::Template;
  to.layout = std::move(*layout);
  return true;
}

bool TakeFormat(const OutputOptions& options, FormatOptions& to) {
  if (options.format.rfind(kTemplate, 0) == 0) return TakeTemplate(options, to);
  if (options.format == "template")
    return Refuse("-o", options.format, "give the line's text as well: template='{time} {source}: {text}'");
  const auto format = TamLogClient::FormatFromName(options.format);
  if (!format)
    return Refuse("-o", options.format, "expected one of " + std::string(TamLogClient::kFormatNames));
  to.format = *format;
  if (to.format == Format::Raw && to.terminal)
    return Refuse("-o", options.format, "is not for a terminal; send the output to a file or a program");
  return true;
}

bool TakeFields(const OutputOptions& options, FormatOptions& to) {
  if (options.fields.empty()) return true;
  const Format format = to.format;
  if (format == Format::Template)
    return Refuse("--fields", options.fields, "leave it out; a template names its fields itself");
  if (format != Format::Json && format != Format::JsonArray && format != Format::Csv && format != Format::Tsv)
    return Refuse("--fields", options.fields, "add -o json, json-array, csv or tsv");
  std::string problem;
  auto fields = TamLogClient::ParseFields(options.fields, problem);
  if (!fields) return Refuse("--fields", options.fields, problem);
  to.fields = std::move(*fields);
  return true;
}

bool TakeSpreadsheet(const OutputOptions& options, FormatOptions& to) {
  to.spreadsheet = options.spreadsheet;
  if (!options.spreadsheet || to.format == Format::Csv || to.format == Format::Tsv) return true;
  Say("--spreadsheet: add -o csv or -o tsv");
  return false;
}

bool TakeZone(const OutputOptions& options, FormatOptions& to) {
  auto zone = TamLogClient::TimeZone::FromName(options.zone, OffsetOfLocalTime);
  if (!zone)
    return Refuse("--tz", options.zone, "expected written, local, utc, or an offset from UTC such as +02:00");
  to.zone = std::move(*zone);
  return true;
}

// Returns the value of the option, or else of the environment variable, with the name of the one that was
// used.
std::pair<const char*, std::string> Configured(const char* option, const std::string& given,
                                               const char* variable) {
  return given.empty() ? std::pair(variable, EnvironmentValue(variable)) : std::pair(option, given);
}

bool TakeTypeNames(const OutputOptions& options, FormatOptions& to) {
  const auto [where, list] = Configured("--type-names", options.typeNames, "TAMLOGCTL_TYPE_NAMES");
  if (list.empty()) return true;
  std::string problem;
  auto names = TamLogClient::TypeNames::Parse(list, problem);
  if (!names) return Refuse(where, list, problem);
  to.typeNames = std::move(*names);
  return true;
}

bool TakeEncoding(const OutputOptions& options, FormatOptions& to) {
  to.encoding = DefaultEncoding();
  const auto [where, name] = Configured("--encoding", options.encoding, "TAMLOGCTL_ENCODING");
  if (name.empty()) return true;
  const auto encoding = TamLogClient::TextEncoding::FromName(name);
  if (!encoding) return Refuse(where, name, "expected one of " + std::string(TamLogClient::kEncodingNames));
  to.encoding = *encoding;
  return true;
}

bool Take(const OutputOptions& options, FormatOptions& chosen) {
  return TakeFormat(options, chosen) && TakeFields(options, chosen) && TakeSpreadsheet(options, chosen) &&
         TakeZone(options, chosen) && TakeTypeNames(options, chosen) && TakeEncoding(options, chosen);
}

std::optional<TamLogClient::MessageFormatter> Make(const OutputOptions& options, FormatOptions chosen) {
  if (!Take(options, chosen)) return std::nullopt;
  return TamLogClient::MessageFormatter(std::move(chosen));
}

}  // namespace

bool WantsColor(Color color) {
  if (color == Color::Always) EnableColors();
  if (color != Color::Auto) return color == Color::Always;
  return StdoutIsTerminal() && !EnvironmentHas("NO_COLOR") && TerminalIsCapable() && EnableColors();
}

std::optional<TamLogClient::TextEncoding> MakeEncoding(const OutputOptions& options) {
  FormatOptions chosen;
  return TakeEncoding(options, chosen) ? std::optional(chosen.encoding) : std::nullopt;
}

std::optional<TamLogClient::TypeNames> MakeTypeNames(const OutputOptions& options) {
  FormatOptions chosen;
  return TakeTypeNames(options, chosen) ? std::optional(std::move(chosen.typeNames)) : std::nullopt;
}

std::optional<FormatOptions> MakeFormatOptions(const OutputOptions& options) {
  FormatOptions chosen;
  return Take(options, chosen) ? std::optional(std::move(chosen)) : std::nullopt;
}

std::optional<TamLogClient::MessageFormatter> MakeFormatter(const OutputOptions& options, Color color) {
  FormatOptions chosen;
  chosen.terminal = StdoutIsTerminal();
  chosen.color = WantsColor(color);
  return Make(options, std::move(chosen));
}

std::optional<TamLogClient::MessageFormatter> MakeFileFormatter(const OutputOptions& options) {
  FormatOptions chosen;
  if (!Take(options, chosen)) return std::nullopt;
  // A table for people has fewer columns; a file is to be read back.
  using TamLogClient::kExactCsvColumns;
  using TamLogClient::kExactTsvColumns;
  if (chosen.fields.empty() && chosen.format == Format::Csv)
    chosen.fields.assign(kExactCsvColumns.begin(), kExactCsvColumns.end());
  if (chosen.fields.empty() && chosen.format == Format::Tsv)
    chosen.fields.assign(kExactTsvColumns.begin(), kExactTsvColumns.end());
  return TamLogClient::MessageFormatter(std::move(chosen));
}

}  // namespace TamLogCtl
