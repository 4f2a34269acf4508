// Tables: csv with a head line of column names and quoted texts, tsv with tabs and escapes.

#include <algorithm>
#include <array>
#include <span>

#include "client/format/format_parts.h"
#include "client/format/tsv_text.h"

namespace TamLogClient {

namespace {

constexpr std::array<Field, 6> kCsvColumns{Field::Time,   Field::Seq,  Field::Type,
                                           Field::Source, Field::Text, Field::Cursor};
constexpr std::array<Field, 4> kTsvColumns{Field::Time, Field::Type, Field::Source, Field::Text};

std::span<const Field> CsvColumns(const FormatOptions& options) {
  return options.fields.empty() ? std::span<const Field>(kCsvColumns) : options.fields;
}

std::optional<std::string_view> TextOf(Field field, const MessageToFormat& message) {
  if (field == Field::Source) return message.view.Source();
  if (field == Field::Text) return message.view.Text();
  if (field == Field::Host) return message.host;
  return std::nullopt;
}

// A spreadsheet takes a cell that begins with one of these for a formula, also after what it ignores at the
// beginning, and in the wide forms of East Asian writing. An apostrophe in front makes it a text.
void Defuse(std::size_t from, const FormatOptions& options, std::string& out) {
  if (!options.spreadsheet) return;
  const std::string_view cell = std::string_view(out).substr(from);
  const std::string_view begin = cell.substr(std::min(cell.find_first_not_of(" \t\r\n"), cell.size()));
  const bool control = !cell.empty() && (cell[0] == '\t' || cell[0] == '\r' || cell[0] == '\n');
  bool formula =
      control || (!begin.empty() && std::string_view("=+-@").find(begin[0]) != std::string_view::npos);
  for (const std::string_view wide : {"\xEF\xBC\x9D", "\xEF\xBC\x8B", "\xEF\xBC\x8D", "\xEF\xBC\xA0"})
    formula = formula || begin.starts_with(wide);
  if (formula) out.insert(from, 1, '\'');
}

void DoubleQuotes(std::size_t from, std::string& out) {
  for (std::size_t at = out.find('"', from); at != std::string::npos; at = out.find('"', at + 2))
    out.insert(at, 1, '"');
}

void AppendQuoted(std::string_view text, const FormatOptions& options, std::string& out) {
  out += '"';
  const std::size_t from = out.size();
  if (options.terminal) {
    AppendShown(text, options.encoding, out);
  } else {
    AppendAsUtf8(text, options.encoding, out);
  }
  Defuse(from, options, out);
  DoubleQuotes(from, out);
  out += '"';
}

void AppendTsvField(std::string_view text, const FormatOptions& options, std::string& out) {
  const std::size_t from = out.size();
  options.encoding.Decode(
      text, [&out](std::string_view utf8) { AppendTsvText(utf8, out); },
      [&out](char byte) {
        AppendTsvText({&byte, 1}, out);
      });
  Defuse(from, options, out);
}

}  // namespace

void AppendCsvHead(const FormatOptions& options, std::string& out) {
  const char* before = "";
  for (const Field field : CsvColumns(options)) {
    out.append(before).append(NameOf(field));
    before = ",";
  }
  out += '\n';
}

void AppendCsvRow(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  const char* before = "";
  for (const Field field : CsvColumns(options)) {
    out += before;
    before = ",";
    const bool number = field == Field::Seq || field == Field::Type || field == Field::Spare;
    if (const auto text = TextOf(field, message)) {
      AppendQuoted(*text, options, out);
    } else if (number) {
      AppendSimple(field, message, options, out);
    } else {
      out += '"';
      const std::size_t from = out.size();
      AppendSimple(field, message, options, out);
      Defuse(from, options, out);
      out += '"';
    }
  }
  out += '\n';
}

void AppendTsvRow(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  const char* before = "";
  const auto append = [&](Field field) {
    out += before;
    before = "\t";
    if (const auto text = TextOf(field, message)) {
      AppendTsvField(*text, options, out);
    } else {
      const std::size_t from = out.size();
      AppendSimple(field, message, options, out);
      if (field == Field::Label) Defuse(from, options, out);
    }
  };
  if (options.fields.empty()) {
    for (const Field field : kTsvColumns) append(field);
  } else {
    for (const Field field : options.fields) append(field);
  }
  out += '\n';
}

}  // namespace TamLogClient
