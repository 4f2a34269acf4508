#pragma once

// Fills the fields of a message that is going to be sent.

#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

// Writes the texts into the body's fields, padded with zeros. Returns false and leaves the body unchanged
// when one is longer than 256 bytes or contains a zero byte.
bool FillTexts(std::string_view source, std::string_view text, LogMessageBody& body);

}  // namespace TamLogClient
