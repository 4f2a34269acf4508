#include "tamlogctl/read/cursor_file.h"

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "client/file/atomic_file.h"
#include "client/file/file_path.h"
#include "client/file/log_file_image.h"
#include "client/message/hex.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::Status;

constexpr const char* kNone = "none";
constexpr std::string_view kPlace = "target";

// A device is not read: it may be unterminated, and could not be replaced.
bool IsOrdinaryOrMissing(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(TamLogClient::PathOf(path), ignored);
  return !fs::exists(status) || fs::is_regular_file(status);
}

std::string Named(const std::string& path) {
  return "--cursor-file '" + path + "': ";
}

// Removes the first line of `text` and returns it without its end.
std::string TakeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  text.erase(0, end == std::string::npos ? end : end + 1);
  return line;
}

bool TakeNumberAfterBlank(std::string_view& text, std::uint64_t& number) {
  if (!text.starts_with(' ')) return false;
  text.remove_prefix(1);
  return TamLogClient::TakeHexNumber(text, number);
}

std::optional<FilePlace> ParsePlace(std::string_view line) {
  FilePlace place;
  line.remove_prefix(kPlace.size());
  const bool good = TakeNumberAfterBlank(line, place.file.volume) &&
                    TakeNumberAfterBlank(line, place.file.number) &&
                    TakeNumberAfterBlank(line, place.length) && line.empty();
  return good ? std::optional(place) : std::nullopt;
}

std::string FormatPlace(const FilePlace& place) {
  std::string line(kPlace);
  for (const std::uint64_t number : {place.file.volume, place.file.number, place.length}) {
    line += ' ';
    TamLogClient::AppendHexNumber(number, line);
  }
  return line + "\n";
}

bool Parse(std::string rest, CursorFile& to, CursorFileText& text) {
  text.cursor = TakeLine(rest);
  to.cursor = TamLogClient::ParseCursor(text.cursor);
  if (!to.cursor && text.cursor != kNone) return false;
  if (rest.starts_with(kPlace)) {
    to.place = text.place = ParsePlace(TakeLine(rest));
    if (!to.place) return false;
  }
  if (!rest.empty()) to.memory = TamLogClient::ParseMemory(rest);
  text.memory = std::move(rest);
  return to.memory.has_value() == !text.memory.empty();
}

}  // namespace

int ReadCursorFile(const std::string& path, CursorFile& to, CursorFileText& text) {
  to = {};
  text = {};
  if (!IsOrdinaryOrMissing(path))
    return Refuse(ExitCodeOf(Status::NotAFile), Named(path) + "is not an ordinary file");
  TamLogClient::RemoveLeftovers(path);
  std::string bytes;
  const auto status = TamLogClient::ReadFileBytes(path, bytes);
  if (status == Status::NotFound) return kDone;
  if (status != Status::Ok) return Refuse(ExitCodeOf(status), Named(path) + ProblemOf(status));
  if (Parse(std::move(bytes), to, text)) return kDone;
  return Refuse(kUsage, Named(path) + "is not a cursor file; remove it to begin with the oldest message");
}

CursorFileText MakeCursorFileText(const TamLogClient::LogSnapshot& snapshot,
                                  const TamLogClient::FollowerMemory& memory) {
  const auto order = OrderMessages(snapshot).oldestFirst;
  return {order.empty() ? kNone : FormatCursor(CursorOf(snapshot, order, order.size() - 1)),
          {},
          FormatMemory(memory)};
}

int WriteCursorFile(const std::string& path, const CursorFileText& text) {
  TamLogClient::AtomicFile file;
  TamLogClient::FileStatus status = file.Open(path, true);
  if (status == Status::Ok) {
    file.Write(text.cursor + "\n" + (text.place ? FormatPlace(*text.place) : "") + text.memory);
    file.SyncAtCommit();
    status = file.Commit();
  }
  if (status == Status::Ok) return kDone;
  return Refuse(TargetExitCode(status), TargetProblem(path, status) +
                                            "; the next run with this --cursor-file repeats these messages");
}

}  // namespace TamLogCtl
