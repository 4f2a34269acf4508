#pragma once

// The options of every verb that prints messages: how a message is written.

#include <optional>
#include <string>

#include "client/format/message_formatter.h"
#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct OutputOptions {
  std::string format = "short";
  std::string fields;  // empty: the usual ones of the format
  bool spreadsheet = false;
  std::string zone = "written";
  std::string typeNames;  // empty: T0 to T3
  std::string encoding;   // empty: the default of the machine
};

// Returns whether output to standard output is coloured. Prepares the terminal for it.
bool WantsColor(Color color);

// Makes the encoding alone. This and the next four return nothing, after a line on stderr, when the value of
// an option is wrong.
std::optional<TamLogClient::TextEncoding> MakeEncoding(const OutputOptions& options);

std::optional<TamLogClient::TypeNames> MakeTypeNames(const OutputOptions& options);

std::optional<TamLogClient::FormatOptions> MakeFormatOptions(const OutputOptions& options);

// Makes a formatter for standard output.
std::optional<TamLogClient::MessageFormatter> MakeFormatter(const OutputOptions& options, Color color);

// Makes a formatter for a file: without colours, without the changes that protect a terminal, and with the
// columns of csv and tsv from which messages can be restored.
std::optional<TamLogClient::MessageFormatter> MakeFileFormatter(const OutputOptions& options);

}  // namespace TamLogCtl
