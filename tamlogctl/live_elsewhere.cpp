// The verbs of a running server, on systems that have none.

#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/verbs.h"

namespace TamLogCtl {

namespace {

int NoServerHere() {
  Say(StatusText(TamLogClient::Status::NotSupported));
  return ExitCodeOf(TamLogClient::Status::NotSupported);
}

}  // namespace

int ShowLive(const Options& /*options*/) {
  return NoServerHere();
}
int Send(const Options& /*options*/) {
  return NoServerHere();
}
int ShowStatus(const Options& /*options*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
