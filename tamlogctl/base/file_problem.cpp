#include "tamlogctl/base/file_problem.h"

#include <filesystem>
#include <system_error>

#include "client/file/file_path.h"
#include "tamlogctl/base/console.h"

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
  return StatusText(status);
}

std::string FileProblem(const std::string& path, Status status, const std::string& remark) {
  return path + ": " + ProblemOf(path, status, remark);
}

void SayDamaged(const std::string& path, std::size_t damaged) {
  Say(path + ": " + std::to_string(damaged) + (damaged == 1 ? " message breaks" : " messages break") +
      " a rule of the format; see: tamlogctl verify");
}

bool IsNoFile(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(PathOf(path), ignored);
  return fs::exists(status) && !fs::is_regular_file(status);
}

}  // namespace TamLogCtl
