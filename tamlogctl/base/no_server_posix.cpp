#include "tamlogctl/base/no_server.h"

#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_image.h"

namespace TamLogCtl {

int NoServerHere() {
  const auto status = TamLogClient::Status::NotSupported;
  return Refuse(ExitCodeOf(status),
                std::string(StatusText(status)) + "; show, stats and export read a copied log with --file");
}

int ReadLiveImage(std::uint32_t /*timeoutMs*/, std::string& /*bytes*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
