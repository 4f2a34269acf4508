#pragma once

// The verb send: hands in messages.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

enum class LongText : std::uint8_t { Refuse, Truncate, Split };

struct SendOptions : CommonOptions {
  std::string argument;  // the text, or with `input` the name of a file
  bool hasArgument = false;
  std::string source = "tamlogctl";
  std::uint32_t type = 0;
  std::string time;
  std::string input;  // "", "text" or "tsv"
  LongText longText = LongText::Refuse;
  bool confirm = false;
};

// Returns the program's exit code and has said on stderr what went wrong.
int Send(const SendOptions& options);

}  // namespace TamLogCtl
