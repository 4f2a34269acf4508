#pragma once

// Messages as lines of four columns: time, type, source, text, with tabs between them. What the tsv format
// writes, the parser reads back byte for byte (of these four fields).

#include <optional>
#include <string>
#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

// Appends `text` with tab, line feed, carriage return and backslash as \t \n \r \\ and other control
// characters and bytes that are not UTF-8 as \xNN.
void AppendTsvText(std::string_view text, std::string& out);

// A message read from a line, before it is known to fit its fields.
struct MessageDraft {
  LogMessageBody body{};  // time and type are filled in; source and text are not
  std::string source;
  std::string text;
};

// Reads one line without its line end. On failure the result is empty and `problem` says what is wrong and
// what would be right.
std::optional<MessageDraft> ParseTsvLine(std::string_view line, std::string& problem);

}  // namespace TamLogClient
