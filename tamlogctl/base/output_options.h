#pragma once

// How messages are written: the options that every verb which prints messages has.

#include <optional>
#include <string>

#include "client/format/message_formatter.h"
#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

struct OutputOptions {
  std::string format = "short";
  std::string fields;  // empty: what the format has usually
  std::string zone = "written";
  std::string typeNames;  // empty: T0 to T3
  std::string encoding;   // empty: what the machine goes by
};

// The encoding alone; nothing, after a word on stderr, when there is none of that name.
std::optional<TamLogClient::TextEncoding> MakeEncoding(const OutputOptions& options);

// What these options mean, or nothing, after a word on stderr.
std::optional<TamLogClient::FormatOptions> MakeFormatOptions(const OutputOptions& options);

// Nothing, after a word on stderr, when an option's value makes no sense.
std::optional<TamLogClient::MessageFormatter> MakeFormatter(const OutputOptions& options, Color color);

// The same for a file, whatever standard output is: without colours, and with nothing changed for the sake of
// a terminal.
std::optional<TamLogClient::MessageFormatter> MakeFileFormatter(const OutputOptions& options);

}  // namespace TamLogCtl
