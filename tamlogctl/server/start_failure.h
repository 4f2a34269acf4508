#pragma once

// Notices that a start of the server has failed, and why.

#include <cstdint>
#include <optional>
#include <string>

#include "tamlogctl/server/service.h"

namespace TamLogCtl {

class StartFailure {
 public:
  // Construct it before the start: entries of the diagnostic log count only from here on.
  StartFailure();

  // Returns the reason once the start has failed, in the service's process or with it: the server's own words
  // where it has written some, otherwise the exit code's. Nothing while it has not failed.
  std::optional<std::string> Look(const ServiceReport& report) const;

 private:
  std::uint64_t knownBytes;  // of the diagnostic log
};

}  // namespace TamLogCtl
