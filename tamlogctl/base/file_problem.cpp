#include "tamlogctl/base/file_problem.h"

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/wildcards.h"

namespace TamLogCtl {

using TamLogClient::FileStatus;
using TamLogClient::Status;

std::string NameProblem(const std::string& path, bool onWindows) {
  if (!onWindows) return "";
  if (path.starts_with("/dev/"))
    return path == "/dev/stdin" ? "Windows has no such file; write - where standard input can be read"
                                : "Windows has no such file";
  return HasWildcards(path) ? "no file matches, or only one can be named here" : "";
}

std::string ProblemOf(const FileStatus& status, const std::string& remark) {
  if (status == Status::Damaged && !remark.empty()) return remark + "; see: tamlogctl verify";
  if (status == Status::NotALog)
    return "is not a log (" + remark + ")" +
           (remark.ends_with("text") ? "; tamlogctl convert makes one of lines with a time" : "");
  if (status == Status::NotAFile && !status.HasReason()) return "is a directory; name a file in it";
  return status.Reason();
}

std::string ReadName(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

std::string FileProblem(const std::string& path, const FileStatus& status, const std::string& remark) {
  const std::string problem = NameProblem(path, kProgramExpandsWildcards);
  if (!problem.empty() && !Readable(status)) return path + ": " + problem;
  return ReadName(path) + (status == Status::NotALog ? " " : ": ") + ProblemOf(status, remark);
}

std::string TargetProblem(const std::string& target, const FileStatus& status) {
  switch (Status{status}) {
    case Status::NotAFile:
      return target + ": is not an ordinary file; give another name";
    case Status::Exists:
      return target + ": already exists";
    case Status::NotFound:
      return target + ": cannot be written: its directory does not exist";
    case Status::Interrupted:
      return target + ": interrupted; nothing was written";
    default:
      return target + ": cannot be written: " + status.Reason();
  }
}

// A missing directory is a failure of the output: exit code 3 is about what is to be read.
int TargetExitCode(Status status) {
  return status == Status::NotFound ? kOutputFailed : ExitCodeOf(status);
}

void SayDamaged(const std::string& path, std::size_t damaged) {
  Say(ReadName(path) + ": " + std::to_string(damaged) +
      (damaged == 1 ? " message breaks" : " messages break") +
      " a rule of the format; see: tamlogctl verify");
}

int RefuseTarget(const std::string& target, const FileStatus& status, const std::string& advice) {
  const std::string problem = TargetProblem(target, status);
  return Refuse(TargetExitCode(status), status == Status::Exists ? problem + "; " + advice : problem);
}

}  // namespace TamLogCtl
