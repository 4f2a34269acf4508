#include "client/format/tsv_text.h"

#include <array>
#include <charconv>
#include <cstring>

#include "client/message/hex.h"
#include "client/message/time_text.h"
#include "client/message/utf8.h"

namespace TamLogClient {

namespace {

// Returns the character that a single-letter escape stands for; 0 for other letters.
char SimpleEscape(char letter) {
  switch (letter) {
    case 't':
      return '\t';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case '\\':
      return '\\';
    default:
      return 0;
  }
}

bool TakeEscape(std::string_view& text, std::string& out) {
  if (text.size() < 2) return false;
  if (const char simple = SimpleEscape(text[1]); simple != 0) {
    out += simple;
    text.remove_prefix(2);
    return true;
  }
  if (text[1] != 'x' || text.size() < 4) return false;
  const auto byte = FromHex(text.substr(2, 2));
  if (!byte) return false;
  out += *byte;
  text.remove_prefix(4);
  return true;
}

}  // namespace

void AppendTsvText(std::string_view text, std::string& out) {
  while (!text.empty()) {
    const std::size_t backslash = text.find('\\');
    AppendVisible(text.substr(0, backslash), out);
    if (backslash == std::string_view::npos) return;
    out += "\\\\";
    text.remove_prefix(backslash + 1);
  }
}

bool UnescapeTsvText(std::string_view text, std::string& out) {
  while (!text.empty()) {
    if (text.front() == '\\') {
      if (!TakeEscape(text, out)) return false;
      continue;
    }
    out += text.front();
    text.remove_prefix(1);
  }
  return true;
}

std::optional<MessageDraft> ParseTsvLine(std::string_view line, std::string& problem) {
  std::array<std::string_view, 4> columns;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const std::size_t tab = line.find('\t');
    const bool lastColumn = i + 1 == columns.size();
    if (lastColumn != (tab == std::string_view::npos)) {
      problem = "expected four columns with tabs between them: time, type, source, text";
      return std::nullopt;
    }
    columns[i] = line.substr(0, tab);
    if (!lastColumn) line.remove_prefix(tab + 1);
  }
  MessageDraft draft;
  const auto time = ParseTime(columns[0]);
  if (!time) {
    problem = "the time is not of the form YYYY-MM-DD HH:MM:SS.mmm";
    return std::nullopt;
  }
  SetTime(draft.body, *time);
  const std::string_view type = columns[1];
  const auto [end, error] = std::from_chars(type.data(), type.data() + type.size(), draft.body.type);
  if (error != std::errc() || end != type.data() + type.size() || draft.body.type >= kMessageTypes) {
    problem = "the type is not a number from 0 to 3";
    return std::nullopt;
  }
  if (!UnescapeTsvText(columns[2], draft.source) || !UnescapeTsvText(columns[3], draft.text)) {
    problem = "unknown escape; write \\t \\n \\r \\\\ or \\xNN, and a backslash itself as \\\\";
    return std::nullopt;
  }
  return draft;
}

}  // namespace TamLogClient
