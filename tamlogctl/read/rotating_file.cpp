#include "tamlogctl/read/rotating_file.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

#include "client/file/file_path.h"
#include "client/file/windows_names.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/time_arithmetic.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::FileId;
using TamLogClient::FileStatus;
using TamLogClient::PathOf;
using TamLogClient::Status;

constexpr std::int64_t kDayMs = 24LL * 60 * 60 * 1000;
constexpr std::int64_t kFirstMondayMs = 4 * kDayMs;  // 1970 began with a Thursday
constexpr std::int64_t kRetryMs = 1000;

bool Exists(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(PathOf(path), error));
}

// Returns the bytes of a unit (K, M or G in either case, and B after it); 0 for an unknown one.
std::uint64_t BytesOf(std::string unit) {
  std::transform(unit.begin(), unit.end(), unit.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  if (unit.size() == 2 && unit.back() == 'B') unit.pop_back();
  if (unit == "K") return 1U << 10U;
  if (unit == "M") return 1U << 20U;
  return unit == "G" ? 1U << 30U : 0;
}

struct NumberWithUnit {
  std::uint32_t number = 0;
  std::string unit;
};

NumberWithUnit Split(std::string_view text) {
  NumberWithUnit found;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, found.number);
  if (error == std::errc()) found.unit.assign(rest, end);
  return found;
}

}  // namespace

std::string TakeRotationLimit(std::string_view text, RotationLimits& limits) {
  constexpr std::uint32_t kMost = 1000000;
  const auto [number, unit] = Split(text);
  const std::string quoted = "'" + std::string(text) + "': ";
  if (unit == "m") {
    const std::string count = std::to_string(number);
    return quoted + "may mean a size or a time; expected " + count + "M (mebibytes) or " + count +
           "min (minutes)";
  }
  if (const std::uint64_t bytes = BytesOf(unit); bytes > 0 && number > 0 && number <= kMost) {
    limits.bytes = number * bytes;
    return "";
  }
  if (const auto period = ParseDuration(text); period && *period >= std::chrono::seconds(1)) {
    limits.periodMs = period->count();
    return "";
  }
  return quoted + "expected a size such as 500K, 10M or 1G, or a time such as 15min, 1h, 1d or 1w";
}

std::optional<std::uint32_t> RotatingFile::NumberOf(const FileId& id) const {
  if (id == FileId{}) return std::nullopt;
  // An interrupted rotation leaves one number free, an interrupted CutBack several.
  constexpr std::uint32_t kMostFree = 1000;
  for (std::uint32_t number = 0, free = 0; free < kMostFree; ++number) {
    const std::string name = number == 0 ? options.target : Numbered(number);
    if (TamLogClient::IdOf(PathOf(name)) == id) return number;
    free = Exists(name) ? 0 : free + 1;
  }
  return std::nullopt;
}

FileStatus RotatingFile::CutBack(const FilePlace& place, CutResult& result) {
  const auto number = NumberOf(place.file);
  result = number ? CutResult::Nothing : CutResult::Other;
  if (!number) return Status::Ok;
  std::error_code error;
  for (std::uint32_t newer = 0; newer < *number; ++newer) {
    if (fs::remove(PathOf(newer == 0 ? options.target : Numbered(newer)), error)) result = CutResult::Cut;
    if (error) return TamLogClient::FileStatusOf(error);
  }
  for (std::uint32_t older = *number; older > 0 && Exists(Numbered(older)); ++older) {
    const std::uint32_t to = older - *number;
    FileStatus status =
        TamLogClient::RenameToNew(PathOf(Numbered(older)), PathOf(to == 0 ? options.target : Numbered(to)));
    if (status != Status::Ok) return status;
  }
  TamLogClient::SystemFile found;
  if (FileStatus status = found.OpenToAppend(PathOf(options.target), true); status != Status::Ok)
    return status;
  if (found.Id() != place.file) {
    result = CutResult::Other;
    return Status::Ok;
  }
  const std::uint64_t length = found.Length();
  if (length < place.length) result = CutResult::Shorter;
  if (length <= place.length) return Status::Ok;
  result = CutResult::Cut;
  return found.Cut(place.length);
}

bool RotatingFile::GoesOn(const FilePlace& place) const {
  const auto number = NumberOf(place.file);
  std::error_code error;
  return number && (*number > 0 || fs::file_size(PathOf(options.target), error) > place.length);
}

bool RotatingFile::GoesOnWith(const FilePlace& place, std::string_view text) const {
  const auto number = NumberOf(place.file);
  if (!number) return true;
  std::ifstream existing(PathOf(*number == 0 ? options.target : Numbered(*number)), std::ios::binary);
  existing.seekg(static_cast<std::streamoff>(place.length));
  std::string bytes(text.size(), '\0');
  existing.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(existing.gcount()));
  return text.starts_with(bytes);
}

FileStatus RotatingFile::Open(std::int64_t nowMs) {
  std::error_code error;
  const fs::path path = PathOf(options.target);
  const auto kind = fs::status(path, error).type();
  regular = kind == fs::file_type::regular || kind == fs::file_type::not_found;
  if (TamLogClient::kWindowsNames && TamLogClient::NamesNoOrdinaryFile(options.target)) regular = false;
  if (kind == fs::file_type::directory || (!regular && options.limits.Any())) return Status::NotAFile;
  if (FileStatus status = Begin(false); status != Status::Ok) return status;
  if (options.replace && size > 0) {
    if (FileStatus status = file.Cut(0); status != Status::Ok) return status;
    size = written = 0;
  }
  noted = {file.Id(), size};
  if (size == 0) return Status::Ok;
  const auto age = fs::file_time_type::clock::now() - fs::last_write_time(path, error);
  period = PeriodOf(nowMs - std::chrono::duration_cast<std::chrono::milliseconds>(age).count());
  if (EndsWithAMessage()) return Status::Ok;
  if (!Rotate(nowMs)) return failure;
  return blocked ? blockStatus : FileStatus();
}

// After a rotation nothing has the file's name. A file or a link that is there all the same was planted.
FileStatus RotatingFile::Begin(bool isNew) {
  const fs::path path = PathOf(options.target);
  FileStatus status = isNew ? file.Create(path) : file.OpenToAppend(path);
  size = written = status == Status::Ok && regular ? file.Length() : 0;
  return status;
}

std::optional<FilePlace> RotatingFile::Note() {
  if (!regular || failed) return std::nullopt;
  if (FileStatus status = file.Sync(); status != Status::Ok) {
    Fail(std::move(status));
    return std::nullopt;
  }
  noted = {file.Id(), written};
  return noted;
}

bool RotatingFile::Fail(FileStatus status) {
  failed = true;
  failure = std::move(status);
  return false;
}

bool RotatingFile::EndsWithAMessage() const {
  std::ifstream existing(PathOf(options.target), std::ios::binary);
  std::string begin(options.head.size(), '\0');
  existing.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  std::string end(options.ending.size(), '\0');
  existing.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end);
  existing.read(end.data(), static_cast<std::streamsize>(end.size()));
  return existing.good() && begin == options.head && end == options.ending &&
         (size - begin.size()) % options.unit == 0;
}

std::int64_t RotatingFile::PeriodOf(std::int64_t ms) const {
  if (!options.limits.periodMs) return 0;
  const std::int64_t length = *options.limits.periodMs;
  const std::int64_t since = ms - kFirstMondayMs;
  return since >= 0 ? since / length : (since + 1) / length - 1;
}

bool RotatingFile::IsDue(std::size_t more, std::int64_t nowMs) const {
  if (size == 0 || !options.limits.Any()) return false;
  if (blocked && nowMs >= blockedAt && nowMs - blockedAt < kRetryMs) return false;
  return PeriodOf(nowMs) != period || (options.limits.bytes && size + more > *options.limits.bytes);
}

bool RotatingFile::Append(std::string_view message, std::int64_t nowMs) {
  if (failed || (IsDue(message.size(), nowMs) && !Rotate(nowMs))) return false;
  if (size == 0) {
    pending += options.head;
    period = PeriodOf(nowMs);
  }
  pending += message;
  size = written + pending.size();
  return pending.size() < kWriteSize || WritePending();
}

bool RotatingFile::Flush(std::int64_t nowMs) {
  if (!WritePending()) return false;
  return !IsDue(0, nowMs) || Rotate(nowMs);
}

// The part of a message that a full disk accepted is cut off again.
bool RotatingFile::WritePending() {
  if (failed) return false;
  if (pending.empty()) return true;
  FileStatus status = file.Write(pending);
  if (status == Status::Ok) {
    written += pending.size();
    pending.clear();
    return true;
  }
  if (regular) file.Cut(written);
  file.Close();
  return Fail(std::move(status));
}

bool RotatingFile::Rotate(std::int64_t nowMs) {
  if (!WritePending()) return false;
  const FileId id = file.Id();
  if (FileStatus status = file.Close(); status != Status::Ok) return Fail(std::move(status));
  const FileStatus shifted = Shift();
  blocked = shifted != Status::Ok;
  if (blocked) {
    blockStatus = shifted;
    blockedAt = nowMs;
  } else {
    ++rotated;
    RemoveBeyondKeep();
  }
  FileStatus status = Begin(!blocked);
  if (status == Status::Ok && blocked && file.Id() != id) status = Status::Exists;  // replaced meanwhile
  return status == Status::Ok || Fail(std::move(status));
}

std::string RotatingFile::Numbered(std::uint32_t number) const {
  return options.target + "." + std::to_string(number);
}

// Moves files only up to the first free number, so that an attempt that was interrupted or refused can be
// repeated: no file is ever overwritten.
FileStatus RotatingFile::Shift() {
  const std::uint32_t most = options.limits.keep.value_or(std::numeric_limits<std::int32_t>::max());
  std::uint32_t free = 1;
  while (free <= most && Exists(Numbered(free))) ++free;
  if (free > most) {
    std::error_code error;
    if (!MovePlaceFrom(most)) return Block(Numbered(most), {Status::SystemError, "the cursor file names it"});
    if (!fs::remove(PathOf(Numbered(most)), error))
      return Block(Numbered(most), TamLogClient::FileStatusOf(error));
    free = most;
  }
  for (; free > 1; --free) {
    if (FileStatus status = Rename(Numbered(free - 1), Numbered(free)); status != Status::Ok) return status;
  }
  return Rename(options.target, Numbered(1));
}

// All files that are newer than the noted one were begun after its place.
bool RotatingFile::MovePlaceFrom(std::uint32_t number) {
  if (noted.file == FileId{} || TamLogClient::IdOf(PathOf(Numbered(number))) != noted.file) return true;
  const std::string newer = number == 1 ? options.target : Numbered(number - 1);
  const FilePlace place{TamLogClient::IdOf(PathOf(newer)), 0};
  if (!options.placeMoves(place)) return false;
  noted = place;
  return true;
}

FileStatus RotatingFile::Rename(const std::string& from, const std::string& to) {
  FileStatus status = TamLogClient::RenameToNew(PathOf(from), PathOf(to));
  return status == Status::Ok ? status : Block(from, std::move(status));
}

FileStatus RotatingFile::Block(const std::string& name, FileStatus status) {
  blocker = name + ": " + status.Reason();
  return status;
}

// Removes the files of earlier runs that kept more.
void RotatingFile::RemoveBeyondKeep() const {
  if (!options.limits.keep) return;
  std::error_code error;
  for (std::uint32_t number = *options.limits.keep + 1; fs::remove(PathOf(Numbered(number)), error);)
    ++number;
}

}  // namespace TamLogCtl
