#include "tamlogctl/read/cursor_file.h"

#include <filesystem>
#include <system_error>

#include "client/file/file_path.h"
#include "client/file/log_file_image.h"
#include "client/file/log_file_writer.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::Status;

constexpr const char* kNone = "none";

// A device is not read: it may be unterminated, and could not be replaced.
bool IsOrdinaryOrMissing(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(TamLogClient::PathOf(path), ignored);
  return !fs::exists(status) || fs::is_regular_file(status);
}

std::string Named(const std::string& path) {
  return "--cursor-file '" + path + "': ";
}

bool Parse(const std::string& text, CursorFile& to) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const std::string memory = end == std::string::npos ? "" : text.substr(end + 1);
  to.cursor = TamLogClient::ParseCursor(line);
  if (!memory.empty()) to.memory = TamLogClient::ParseMemory(memory);
  return (to.cursor || line == kNone) && to.memory.has_value() == !memory.empty();
}

}  // namespace

int ReadCursorFile(const std::string& path, CursorFile& to) {
  to = {};
  if (!IsOrdinaryOrMissing(path))
    return Refuse(ExitCodeOf(Status::NotAFile), Named(path) + "is not an ordinary file");
  std::string text;
  const Status status = TamLogClient::ReadFileBytes(path, text);
  if (status == Status::NotFound) return kDone;
  if (status != Status::Ok) return Refuse(ExitCodeOf(status), Named(path) + ProblemOf(status));
  if (Parse(text, to)) return kDone;
  return Refuse(kUsage, Named(path) + "is not a cursor file; remove it to begin with the oldest message");
}

int WriteCursorFile(const std::string& path, const TamLogClient::LogSnapshot& snapshot,
                    const TamLogClient::FollowerMemory& memory) {
  const auto order = OrderMessages(snapshot).oldestFirst;
  const std::string cursor =
      order.empty() ? kNone : FormatCursor(CursorOf(snapshot, order, order.size() - 1));
  TamLogClient::AtomicFile file;
  Status status = file.Open(path, true);
  if (status == Status::Ok)
    status = file.Write(cursor + "\n" + FormatMemory(memory)) ? file.Commit() : Status::SystemError;
  if (status == Status::Ok) return kDone;
  return Refuse(TargetExitCode(status), TargetProblem(path, status) +
                                            "; the next run with this --cursor-file repeats these messages");
}

}  // namespace TamLogCtl
