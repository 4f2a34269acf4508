// The verbs of a running server, on systems that have none.

#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/send.h"
#include "tamlogctl/show.h"
#include "tamlogctl/status.h"

namespace TamLogCtl {

namespace {

int NoServerHere() {
  Say(StatusText(TamLogClient::Status::NotSupported));
  return ExitCodeOf(TamLogClient::Status::NotSupported);
}

}  // namespace

int ShowLive(const ShowOptions& /*options*/) {
  return NoServerHere();
}
int Send(const SendOptions& /*options*/) {
  return NoServerHere();
}
int ShowStatus(const StatusOptions& /*options*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
