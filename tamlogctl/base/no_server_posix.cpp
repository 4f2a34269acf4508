#include "tamlogctl/base/no_server.h"

#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_image.h"

namespace TamLogCtl {

int NoServerHere() {
  return Refuse(TamLogClient::Status::NotSupported);
}

int ReadLiveImage(std::uint32_t /*timeoutMs*/, std::string& /*bytes*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
