#pragma once

// Messages as lines of four columns separated by tabs: time, type, source, text. The parser reads these four
// fields back byte for byte from what the tsv format writes. May be called from any thread.

#include <optional>
#include <string>
#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

// Appends `text` with tab, line feed, carriage return and backslash as \t \n \r \\, and other control
// characters and bytes that are not UTF-8 as \xNN.
void AppendTsvText(std::string_view text, std::string& out);

// Undoes the escapes of AppendTsvText and appends the text. Returns false when one of them is unknown.
bool UnescapeTsvText(std::string_view text, std::string& out);

// A message as parsed from a line. Its texts may be too long for their fields.
struct MessageDraft {
  LogMessageBody body{};  // time and type are filled in; source and text are not
  std::string source;
  std::string text;
};

// Parses one line without its line end. Returns nothing on failure; `problem` then states the fault and the
// expected form.
std::optional<MessageDraft> ParseTsvLine(std::string_view line, std::string& problem);

}  // namespace TamLogClient
