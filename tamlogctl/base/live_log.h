#pragma once

// The log of the running server as the bytes of a file.

#include <cstdint>
#include <string>

namespace TamLogCtl {

// kDone, or another exit code after a word on stderr. Nothing of the server's is held afterwards.
int ReadLiveImage(std::uint32_t timeoutMs, std::string& bytes);

}  // namespace TamLogCtl
