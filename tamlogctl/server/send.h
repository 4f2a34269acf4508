#pragma once

// The verb send: submits messages.

#include <cstdint>
#include <string>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/server/long_text.h"

namespace TamLogCtl {

struct SendOptions : CommonOptions {
  std::string argument;  // the text or the file
  bool hasArgument = false;
  std::string source = "tamlogctl";
  std::uint32_t type = 0;
  std::string time;
  std::string input;  // "", "text" or "tsv"; unless it is "", `argument` is a file
  LongText longText = LongText::Refuse;
  bool confirm = false;
  std::uint32_t retrySeconds = 30;  // how long to wait for a server that is gone ...
  bool waitAtStart = false;         // ... also at the start, and for a single message
};

// Returns the exit code, and explains a failure on stderr.
int Send(const SendOptions& options);

}  // namespace TamLogCtl
