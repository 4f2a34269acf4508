// Tables: csv with a head line of column names, and tsv without one.

#include <algorithm>
#include <charconv>
#include <cstring>

#include "client/format/tsv_text.h"
#include "client/message/hex.h"
#include "client/message/utf8.h"
#include "tamlogctl/server/import_draft.h"
#include "tamlogctl/server/stamp_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Field;
using Cells = std::vector<std::string>;

template <std::size_t size>
bool SetBytes(std::string_view digits, std::array<std::uint8_t, size>& field, std::string& problem) {
  const auto bytes = TamLogClient::FromHex(digits);
  problem = "expected " + std::to_string(2 * size) + " hexadecimal digits";
  if (!bytes || bytes->size() != size) return false;
  std::memcpy(field.data(), bytes->data(), size);
  return true;
}

template <typename Number>
bool SetNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool SetTime(std::string_view text, ImportDraft& draft, std::string& problem) {
  const auto stamp = ParseStamp(text);
  problem = "the time is not of the form YYYY-MM-DD HH:MM:SS.mmm";
  if (!stamp) return false;
  const std::int16_t spare = draft.time ? (*draft.time)[7] : std::int16_t{0};
  draft.time = stamp->words;
  (*draft.time)[7] = spare;
  draft.offset = stamp->offset;
  return true;
}

bool SetSpare(std::string_view text, ImportDraft& draft, std::string& problem) {
  problem = "the spare word is not a number from -32768 to 32767";
  if (!draft.time) draft.time.emplace();
  return SetNumber(text, (*draft.time)[7]);
}

bool SetType(std::string_view text, ImportDraft& draft, std::string& problem) {
  std::uint32_t type = 0;
  problem = "the type is not a number from 0 to 3";
  if (!SetNumber(text, type) || type >= kMessageTypes) return false;
  draft.type = type;
  return true;
}

// An empty cell: the other column has all bytes.
bool SetHex(std::string_view digits, std::string& text, std::string& problem) {
  problem = "expected hexadecimal digits, two for each byte";
  auto bytes = TamLogClient::FromHex(digits);
  if (!digits.empty() && bytes) text = std::move(*bytes);
  return digits.empty() || bytes.has_value();
}

// Splits csv into rows. Texts in quotes may contain separators and line ends.
class CsvRows {
 public:
  CsvRows(ImportBytes& text, char between) : rest(text), separator(between) {}

  // Reads the next row that is not empty. Returns false at the end.
  bool Next(Cells& cells) {
    while (!rest.AtEnd()) {
      row = line;
      cells.assign(1, {});
      while (!rest.AtEnd() && !TakeLineEnd()) TakePiece(cells);
      if (cells.size() > 1 || !cells.front().empty()) return true;
    }
    return false;
  }
  std::size_t Line() const { return row; }  // on which the row began

 private:
  bool TakeLineEnd() {
    const std::string_view there = rest.Window(2);
    const std::size_t length = there.starts_with("\r\n") ? 2 : there.front() == '\n' ? 1 : 0;
    if (length == 0) return false;
    rest.Drop(length);
    ++line;
    return true;
  }

  void TakePiece(Cells& cells) {
    const char first = rest.Window(1).front();
    rest.Drop(1);
    if (first == separator) {
      cells.emplace_back();
    } else if (first == '"' && cells.back().empty()) {
      TakeQuoted(cells.back());
    } else {
      cells.back() += first;
    }
  }

  void TakeQuoted(std::string& cell) {
    while (!rest.AtEnd()) {
      const std::string_view there = rest.Window(1);
      const std::string_view plain = there.substr(0, there.find('"'));
      line += static_cast<std::size_t>(std::count(plain.begin(), plain.end(), '\n'));
      cell += plain;
      const bool quote = plain.size() < there.size();
      rest.Drop(plain.size() + (quote ? 1 : 0));
      if (!quote) continue;
      if (!rest.Window(1).starts_with('"')) return;
      cell += '"';
      rest.Drop(1);
    }
  }

  ImportBytes& rest;
  char separator;
  std::size_t line = 1;
  std::size_t row = 1;
};

// The names that other programs give to columns.
constexpr std::array<std::pair<std::string_view, Field>, 15> kOtherNames{{{"timestamp", Field::Time},
                                                                          {"date", Field::Time},
                                                                          {"datetime", Field::Time},
                                                                          {"@timestamp", Field::Time},
                                                                          {"message", Field::Text},
                                                                          {"msg", Field::Text},
                                                                          {"logger", Field::Source},
                                                                          {"program", Field::Source},
                                                                          {"app", Field::Source},
                                                                          {"application", Field::Source},
                                                                          {"component", Field::Source},
                                                                          {"module", Field::Source},
                                                                          {"hostname", Field::Host},
                                                                          {"machine", Field::Host},
                                                                          {"computer", Field::Host}}};

struct Column {
  std::optional<Field> field;  // nothing: its cells are appended to the text
  std::string name;
};

Column ColumnOf(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(), TamLogClient::LowerCase);
  Column column{TamLogClient::FieldFromName(lower), name};
  for (const auto& [other, field] : kOtherNames) {
    if (!column.field && other == lower) column.field = field;
  }
  return column;
}

bool Has(const std::vector<Column>& columns, Field field) {
  return std::any_of(columns.begin(), columns.end(),
                     [field](const Column& column) { return column.field == field; });
}

// Returns whether a row has the names of the columns.
bool IsHead(const std::vector<Column>& columns, const Cells& cells) {
  return std::equal(columns.begin(), columns.end(), cells.begin(), cells.end(),
                    [](const Column& column, const std::string& cell) { return column.name == cell; });
}

// The separator that stands most often in the first line.
char SeparatorOf(std::string_view first) {
  const auto count = [first](char letter) { return std::count(first.begin(), first.end(), letter); };
  char best = ',';
  for (const char other : {';', '\t'}) {
    if (count(other) > count(best)) best = other;
  }
  return best;
}

bool FromCells(const std::vector<Column>& columns, const Cells& cells, ImportDraft& draft,
               std::string& problem) {
  problem = "expected " + std::to_string(columns.size()) + " columns, found " + std::to_string(cells.size());
  if (cells.size() != columns.size()) return false;
  std::string more;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!columns[i].field) {
      if (!cells[i].empty()) more += " " + columns[i].name + "=" + cells[i];
      continue;
    }
    if (SetDraftField(*columns[i].field, cells[i], draft, problem)) continue;
    problem.insert(0, "column " + columns[i].name + ": ");
    return false;
  }
  draft.text += more;
  return true;
}

// Undoes the escapes of tsv.
bool FromTsv(const std::vector<Field>& columns, std::string_view line, ImportDraft& draft,
             std::string& problem) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const std::size_t tab = line.find('\t');
    if ((i + 1 == columns.size()) != (tab == std::string_view::npos)) {
      problem = columns.size() == 4
                    ? "expected four columns with tabs between them: time, type, source, text; --fields "
                      "names others"
                    : "expected " + std::to_string(columns.size()) + " columns with tabs between them";
      return false;
    }
    std::string cell;
    problem = "unknown escape; write \\t \\n \\r \\\\ or \\xNN, and a backslash itself as \\\\";
    if (!TamLogClient::UnescapeTsvText(line.substr(0, tab), cell)) return false;
    if (!SetDraftField(columns[i], cell, draft, problem)) return false;
    line.remove_prefix(std::min(tab == std::string_view::npos ? line.size() : tab + 1, line.size()));
  }
  draft.offset.reset();
  return true;
}

std::vector<Field> TsvColumns(std::string_view line, const ImportChoice& choice) {
  if (!choice.fields.empty()) return choice.fields;
  const auto tabs = static_cast<std::size_t>(std::count(line.begin(), line.end(), '\t'));
  std::string problem;
  if (auto every = TamLogClient::ParseFields("all", problem); tabs + 1 == every->size())
    return *std::move(every);
  const auto& exact = TamLogClient::kExactTsvColumns;
  return {exact.begin(), exact.begin() + (tabs + 1 == exact.size() ? exact.size() : 4)};
}

}  // namespace

bool SetDraftField(Field field, std::string_view value, ImportDraft& draft, std::string& problem) {
  switch (field) {
    case Field::Time:
      return SetTime(value, draft, problem);
    case Field::Type:
      return value.empty() || SetType(value, draft, problem);
    case Field::Source:
      draft.source = std::string(value);
      return true;
    case Field::Text:
      draft.text = std::string(value);
      return true;
    case Field::Host:
      draft.host = std::string(value);
      return true;
    case Field::Origin:
      return SetBytes(value, draft.origin, problem);
    case Field::Tail:
      return SetBytes(value, draft.tail, problem);
    case Field::Spare:
      return SetSpare(value, draft, problem);
    case Field::SourceHex:
      if (!draft.source) draft.source.emplace();
      return SetHex(value, *draft.source, problem);
    case Field::TextHex:
      return SetHex(value, draft.text, problem);
    default:
      return true;
  }
}

void ReadCsvDrafts(ImportBytes& bytes, const ImportChoice& choice, DraftTaker& drafts) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (bytes.Window(kMark.size()).starts_with(kMark)) bytes.Drop(kMark.size());
  CsvRows rows(bytes, SeparatorOf(bytes.PeekLine()));
  std::vector<Column> columns;
  Cells cells;
  for (const Field field : choice.fields) columns.push_back({field, std::string(NameOf(field))});
  bool more = rows.Next(cells);
  if (more && (columns.empty() || IsHead(columns, cells))) {
    columns.clear();
    for (const std::string& name : cells) columns.push_back(ColumnOf(name));
    more = rows.Next(cells);
  }
  if (!columns.empty() && !Has(columns, Field::Time))
    return drafts.Refuse(1, "no column is called time; name the columns with --fields");
  // The digits are those of the message.
  const bool ours = Has(columns, Field::Seq) || Has(columns, Field::Origin);
  for (; more && !drafts.Enough(); more = rows.Next(cells)) {
    ImportDraft draft;
    std::string problem;
    if (!FromCells(columns, cells, draft, problem)) {
      drafts.Refuse(rows.Line(), std::move(problem));
      continue;
    }
    if (ours) draft.offset.reset();
    drafts.Add(rows.Line(), std::move(draft));
  }
}

void ReadTsvLine(std::string_view line, std::size_t number, const ImportChoice& choice, DraftTaker& drafts) {
  ImportDraft draft;
  std::string problem;
  if (FromTsv(TsvColumns(line, choice), line, draft, problem)) {
    drafts.Add(number, std::move(draft));
  } else {
    drafts.Refuse(number, std::move(problem));
  }
}

void ReadTsvDrafts(ImportBytes& bytes, const ImportChoice& choice, DraftTaker& drafts) {
  const auto enough = [&drafts] { return drafts.Enough(); };
  ForEachLine(bytes, enough,
              [&](std::string_view line, std::size_t number) { ReadTsvLine(line, number, choice, drafts); });
}

}  // namespace TamLogCtl
