#include "tamlogctl/base/no_server.h"

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_image.h"

namespace TamLogCtl {

int NoServerHere() {
  Say(std::string(StatusText(TamLogClient::Status::NotSupported)) +
      "; show, stats and export read a copied log with --file");
  return ExitCodeOf(TamLogClient::Status::NotSupported);
}

int ReadLiveImage(std::uint32_t /*timeoutMs*/, std::string& /*bytes*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
