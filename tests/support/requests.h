#pragma once

// Builds the requests of the pipe protocol. Needs the records only.

#include <cstdint>
#include <string>

#include "records/pipe_protocol.h"

namespace TestSupport {

// Every field except the code is zero.
PipeRequest RequestOf(std::uint32_t code);
PipeRequest RequestOf(RequestCode code);
PipeRequest SubmitRequest(const LogMessageBody& message);
PipeRequest SettingsRequest(const SettingsBody& settings);
// A path of 1024 characters fills its field to the last byte. A longer one throws std::runtime_error.
PipeRequest PathRequest(const std::string& path);
PipeRequest IndexRequest(std::uint32_t index);
// Throws std::runtime_error when the text leaves no room for its zero byte.
PipeRequest FilterRequest(const std::string& text, bool include);

}  // namespace TestSupport
