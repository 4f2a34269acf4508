#include "tamlogctl/base/file_problem.h"

#include <filesystem>
#include <system_error>

#include "client/file/file_path.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::PathOf;
using TamLogClient::Status;

}  // namespace

std::string ProblemOf(const std::string& path, Status status, const std::string& remark) {
  std::error_code ignored;
  if (status == Status::Damaged && !remark.empty()) return remark + "; see: tamlogctl verify";
  if (fs::is_directory(PathOf(path), ignored)) return "is a directory; name a file in it";
  return Explain(status);
}

std::string FileProblem(const std::string& path, Status status, const std::string& remark) {
  return path + ": " + ProblemOf(path, status, remark);
}

void SayDamaged(const std::string& path, std::size_t damaged) {
  Say(path + ": " + std::to_string(damaged) + (damaged == 1 ? " message breaks" : " messages break") +
      " a rule of the format; see: tamlogctl verify");
}

int RefuseTarget(const std::string& target, Status status, const std::string& advice) {
  if (status == Status::BadValue && IsNoFile(target))
    return Refuse(kUsage, target + ": not a file; give another name");
  if (status == Status::BadValue) return Refuse(kUsage, target + ": already exists; " + advice);
  return Refuse(status == Status::AccessDenied ? kAccessDenied : kOutputFailed,
                target + ": cannot be written: " + StatusText(status));
}

bool IsNoFile(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(PathOf(path), ignored);
  return fs::exists(status) && !fs::is_regular_file(status);
}

}  // namespace TamLogCtl
