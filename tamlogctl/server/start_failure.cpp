#include "tamlogctl/server/start_failure.h"

#include "client/message/utf8.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/server/diagnostic_file.h"

namespace TamLogCtl {

StartFailure::StartFailure() : knownBytes(ReadDiagnosticFile().bytes) {}

std::optional<std::string> StartFailure::Look(const ServiceReport& report) const {
  const DiagnosticFile log = ReadDiagnosticFile();
  const DiagnosticEntry* const entry = log.bytes != knownBytes ? FailedStart(log.last) : nullptr;
  std::string text = "the start failed: ";
  if (entry != nullptr) {
    TamLogClient::AppendVisible(ReasonIn(*entry), text);
    return text;
  }
  if (!report.HasFailed()) return std::nullopt;
  return text + (report.exitCode != 0 ? SystemText(report.exitCode) : "the server's process has ended");
}

}  // namespace TamLogCtl
