#include "client/format/message_formatter.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

void AppendRaw(const LogMessage& message, std::string& out) {
  out.append(reinterpret_cast<const char*>(&message), sizeof(message));
}

}  // namespace

std::optional<Format> FormatFromName(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Format>, 12> kNames{
      {{"short", Format::Short},
       {"full", Format::Full},
       {"cat", Format::Cat},
       {"json", Format::Json},
       {"ndjson", Format::Json},
       {"json-array", Format::JsonArray},
       {"tsv", Format::Tsv},
       {"csv", Format::Csv},
       {"template", Format::Template},
       {"export", Format::Export},
       {"rfc5424", Format::Rfc5424},
       {"raw", Format::Raw}}};
  for (const auto& [known, format] : kNames) {
    if (known == name) return format;
  }
  return std::nullopt;
}

void MessageFormatter::AppendHead(std::string& out) const {
  if (options.format == Format::Csv) AppendCsvHead(options, out);
  if (options.format == Format::JsonArray) out += "[\n";
}

void MessageFormatter::AppendTail(std::string& out) const {
  if (options.format == Format::JsonArray) out += begun ? "\n]\n" : "]\n";
}

bool MessageFormatter::Selects(Field field) const {
  const auto& fields = options.fields;
  const auto& parts = options.layout.Parts();
  return std::find(fields.begin(), fields.end(), field) != fields.end() ||
         std::any_of(parts.begin(), parts.end(), [field](const auto& part) { return part.field == field; });
}

bool MessageFormatter::ShowsCursors() const {
  switch (options.format) {
    case Format::Export:
    case Format::Rfc5424:
      return true;
    case Format::Json:
    case Format::JsonArray:
    case Format::Csv:
      return options.fields.empty() || Selects(Field::Cursor);
    default:
      return Selects(Field::Cursor);
  }
}

bool MessageFormatter::CarriesHost() const {
  switch (options.format) {
    case Format::Export:
    case Format::Rfc5424:
      return true;
    case Format::Json:
    case Format::JsonArray:
      return options.fields.empty() || Selects(Field::Host);
    default:
      return Selects(Field::Host);
  }
}

void MessageFormatter::Append(const LogMessage& message, bool late, std::string& out, std::uint32_t twin,
                              std::string_view host) {
  // These show no time, and determining its zone is most of the work.
  if (options.format == Format::Cat) return AppendCat(LogMessageView(message), options, out);
  if (options.format == Format::Raw) return AppendRaw(message, out);
  MessageToFormat found{LogMessageView(message), WordsOf(message.body), true, std::nullopt, late, host, {}};
  found.realTime = IsRealTime(found.words);
  found.offset = options.zone.OffsetAt(found.words);
  const std::string cursor = ShowsCursors() ? FormatCursor(CursorOf(message.body, twin)) : std::string();
  found.cursor = cursor;
  const bool first = !begun;
  begun = true;
  switch (options.format) {
    case Format::Short:
    case Format::Full:
      return AppendLine(found, options, out);
    case Format::Json:
      AppendJsonObject(found, options, out);
      out += '\n';
      return;
    case Format::JsonArray:
      if (!first) out += ",\n";
      return AppendJsonObject(found, options, out);
    case Format::Template:
      return AppendTemplate(found, options, out);
    case Format::Tsv:
      return AppendTsvRow(found, options, out);
    case Format::Csv:
      return AppendCsvRow(found, options, out);
    case Format::Export:
      return AppendExportEntry(found, options, out);
    case Format::Rfc5424:
      return AppendSyslogLine(found, options, out);
    case Format::Cat:
    case Format::Raw:
      return;
  }
}

}  // namespace TamLogClient
