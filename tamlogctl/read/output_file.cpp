#include "tamlogctl/read/output_file.h"

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/progress.h"

namespace TamLogCtl {

using TamLogClient::FileStatus;
using TamLogClient::Status;

int WriteLogTarget(const std::string& target, std::uint64_t count, const TamLogClient::MessageAt& messageAt,
                   std::uint32_t capacity, bool overwrite) {
  DeferInterrupts();  // so that no half of a file is left
  Progress progress("writing slots", capacity);
  const auto goOn = [&progress](std::uint64_t slot) {
    progress.Show(slot);
    return !Interrupted();
  };
  const FileStatus status = TamLogClient::WriteLogFile(target, count, messageAt, capacity, overwrite, goOn);
  return status == Status::Ok ? kDone : ExplainTarget(target, status);
}

int ExplainTarget(const std::string& target, const FileStatus& status) {
  return RefuseTarget(target, status, "give another name, or --force to replace it");
}

}  // namespace TamLogCtl
