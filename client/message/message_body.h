#pragma once

// Fills the fields of a message that is going to be sent.

#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

// Puts the texts into the body's fields, ended by zeros. False, and the body unchanged, when one is too long
// (over 256 bytes) or holds a zero byte.
bool FillTexts(std::string_view source, std::string_view text, LogMessageBody& body);

}  // namespace TamLogClient
