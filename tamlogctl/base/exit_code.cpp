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
  if (status == Status::NotRunning) text += " (tamlogctl server state)";
  if (status == Status::TimedOut || status == Status::Stuck) text += " (tamlogctl doctor)";
  return text;
}

int Refuse(Status status, const std::string& what) {
  return Refuse(ExitCodeOf(status), (what.empty() ? "" : what + ": ") + Explain(status));
}

}  // namespace TamLogCtl
