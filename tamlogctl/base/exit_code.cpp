#include "tamlogctl/base/exit_code.h"

#include "tamlogctl/base/console.h"

namespace TamLogCtl {

using TamLogClient::Status;

int Refuse(int exitCode, std::string_view line) {
  Say(line);
  return exitCode;
}

std::string Explain(Status status) {
  std::string text = StatusText(status);
  switch (status) {
    case Status::NotRunning:
      return text + "; start it: tamlogctl server start";
    case Status::Unsteady:
      return text +
             "; allow more time with --timeout, or read the newest messages only: tamlogctl show -n 100";
    case Status::TimedOut:
    case Status::Stuck:
    case Status::ForeignEvents:
      return text + "; see: tamlogctl doctor";
    case Status::NotSupported:
      return text + "; show, stats and export read a copied log with --file, and convert makes one";
    default:
      return text;
  }
}

int Refuse(Status status, const std::string& what) {
  return Refuse(ExitCodeOf(status), (what.empty() ? "" : what + ": ") + Explain(status));
}

}  // namespace TamLogCtl
