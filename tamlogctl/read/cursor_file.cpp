#include "tamlogctl/read/cursor_file.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "client/file/atomic_file.h"
#include "client/file/file_path.h"
#include "client/file/log_file_image.h"
#include "client/file/windows_names.h"
#include "client/message/hex.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::Status;

constexpr const char* kNone = "none";
// More than the memory and the held messages of a large log need; other users may be able to write the file.
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30U;
constexpr std::string_view kPlace = "target";
constexpr std::string_view kHeld = "held";
constexpr std::string_view kFirstMemory = "memory1 ";  // of earlier versions: then the cursor counts

// A device is not read: it may be unterminated, and could not be replaced.
bool IsOrdinaryOrMissing(const std::string& path) {
  if (TamLogClient::kWindowsNames && TamLogClient::NamesNoOrdinaryFile(path)) return false;
  std::error_code ignored;
  const fs::file_status status = fs::status(TamLogClient::PathOf(path), ignored);
  return !fs::exists(status) || fs::is_regular_file(status);
}

std::string Named(const std::string& path) {
  return "--cursor-file '" + path + "': ";
}

// Removes the first line of `text` and returns it without its end.
std::string TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string line(text.substr(0, end));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
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

bool TakeHeld(std::string_view& rest, CursorFile& to, CursorFileText& text) {
  while (rest.size() > kHeld.size() && rest.starts_with(kHeld)) {
    const std::string line = TakeLine(rest);
    std::string_view left = line;
    left.remove_prefix(kHeld.size());
    std::uint64_t twin = 0;
    if (!TakeNumberAfterBlank(left, twin) || !left.starts_with(' ')) return false;
    const auto bytes = TamLogClient::FromHex(left.substr(1));
    auto& entry = to.held.emplace_back();
    if (!bytes || bytes->size() != sizeof(entry.message)) return false;
    std::memcpy(&entry.message, bytes->data(), bytes->size());
    entry.twin = static_cast<std::uint32_t>(twin);
    text.held += line + "\n";
  }
  return true;
}

std::string FormatHeld(const HeldMessages& held) {
  std::string text;
  for (const auto& entry : held) {
    text.append(kHeld).append(" ");
    TamLogClient::AppendHexNumber(entry.twin, text);
    text += ' ';
    TamLogClient::AppendHex({reinterpret_cast<const char*>(&entry.message), sizeof(entry.message)}, text);
    text += '\n';
  }
  return text;
}

bool Parse(std::string_view rest, CursorFile& to, CursorFileText& text) {
  text.cursor = TakeLine(rest);
  to.cursor = TamLogClient::ParseCursor(text.cursor);
  if (!to.cursor && text.cursor != kNone) return false;
  if (rest.starts_with(kPlace)) {
    to.place = text.place = ParsePlace(TakeLine(rest));
    if (!to.place) return false;
  }
  if (!TakeHeld(rest, to, text)) return false;
  if (to.cursor && rest.starts_with(kFirstMemory)) rest = {};
  if (!rest.empty()) to.memory = TamLogClient::ParseMemory(rest);
  text.memory = rest;
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
  const auto status = TamLogClient::ReadFileBytes(path, bytes, kMostBytes);
  if (status == Status::NotFound) return kDone;
  if (status != Status::Ok) return Refuse(ExitCodeOf(status), Named(path) + ProblemOf(status));
  if (Parse(bytes, to, text)) return kDone;
  return Refuse(
      kUsage,
      Named(path) +
          "is not a cursor file; name another, and one that does not exist to begin with the oldest message");
}

CursorFileText MakeCursorFileText(const TamLogClient::LogSnapshot& snapshot,
                                  const TamLogClient::FollowerMemory& memory, const HeldMessages& held) {
  const auto order = OrderMessages(snapshot).oldestFirst;
  return {order.empty() ? kNone : FormatCursor(CursorOf(snapshot, order, order.size() - 1)),
          {},
          FormatHeld(held),
          FormatMemory(memory)};
}

int WriteCursorFile(const std::string& path, const CursorFileText& text) {
  TamLogClient::AtomicFile file;
  TamLogClient::FileStatus status = file.Open(path, true);
  if (status == Status::Ok) {
    file.Write(text.cursor + "\n" + (text.place ? FormatPlace(*text.place) : "") + text.held + text.memory);
    file.SyncAtCommit();
    status = file.Commit();
  }
  if (status == Status::Ok) return kDone;
  return Refuse(TargetExitCode(status), TargetProblem(path, status) +
                                            "; the next run with this --cursor-file repeats these messages");
}

}  // namespace TamLogCtl
