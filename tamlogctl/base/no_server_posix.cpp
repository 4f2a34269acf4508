#include "tamlogctl/base/no_server.h"

#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"

namespace TamLogCtl {

using TamLogClient::Status;

int NoServerHere() {
  return Refuse(Status::NotSupported);
}

Status ReadLiveLog(std::uint32_t /*timeoutMs*/, TamLogClient::LogSnapshot& /*snapshot*/) {
  return Status::NotSupported;
}

int ReadLiveImage(std::uint32_t /*timeoutMs*/, std::string& /*bytes*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
