// Reading the log of a running server, on systems without one.

#include "tamlogctl/base/no_server.h"
#include "tamlogctl/read/export.h"
#include "tamlogctl/read/log_input.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

int ShowLive(const ShowOptions& /*options*/) {
  return NoServerHere();
}

LogInput ReadLiveInput(std::uint32_t /*timeoutMs*/, bool /*quiet*/, const ReadPart& /*readPart*/) {
  return {{}, NoServerHere()};
}

int FollowExport(const ExportOptions& /*options*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
