#pragma once

// The events that a log names. Every user may write to the shared log, names included, so a reader that
// opened whatever it names would signal and reset events of somebody else's choice.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "records/log_file_format.h"

namespace TamLogClient {

enum class EventNames : std::uint8_t {
  OfTheServer,  // of the server's own mapping only the server's events; of any other mapping those it names
  Any,          // whatever the log names: only where nobody else can write to it
};

// Returns the first name in `names` that is not the server's own; empty when all are. Makes each name end
// inside its field.
inline std::string FirstForeignName(LockNames& names) {
  constexpr const char* kOwn[] = {kHeaderLockName, kReadWaitEventName, kWriteWaitEventName};
  for (std::size_t i = 0; i < 3; ++i) {
    names.name[i][kLockNameSize - 1] = '\0';
    if (std::strcmp(names.name[i], kOwn[i]) != 0) return names.name[i][0] == '\0' ? "(none)" : names.name[i];
  }
  return "";
}

}  // namespace TamLogClient
