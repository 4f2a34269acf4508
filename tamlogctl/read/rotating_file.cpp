#include "tamlogctl/read/rotating_file.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <limits>
#include <system_error>

#include "client/file/file_path.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/time_arithmetic.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;
using TamLogClient::PathOf;
using TamLogClient::Status;

constexpr std::int64_t kDayMs = 24LL * 60 * 60 * 1000;
constexpr std::int64_t kFirstMondayMs = 4 * kDayMs;  // 1970 began with a Thursday
constexpr std::int64_t kRetryMs = 1000;

bool Exists(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(PathOf(path), error));
}

// Returns the bytes of a unit; 0 for an unknown one.
std::uint64_t BytesOf(char unit) {
  switch (unit) {
    case 'K':
      return 1U << 10U;
    case 'M':
      return 1U << 20U;
    case 'G':
      return 1U << 30U;
    default:
      return 0;
  }
}

// "500K", "10M" or "1G".
std::optional<std::uint64_t> ParseBytes(std::string_view text) {
  constexpr std::uint32_t kMost = 1000000;
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest + 1 != end || number > kMost) return std::nullopt;
  const std::uint64_t unit = BytesOf(*rest);
  return unit > 0 ? std::optional(number * unit) : std::nullopt;
}

}  // namespace

bool TakeRotationLimit(std::string_view text, RotationLimits& limits) {
  if (const auto bytes = ParseBytes(text); bytes && *bytes > 0) {
    limits.bytes = *bytes;
    return true;
  }
  if (const auto period = ParseDuration(text); period && *period >= std::chrono::seconds(1)) {
    limits.periodMs = period->count();
    return true;
  }
  return false;
}

Status RotatingFile::Open(std::int64_t nowMs) {
  std::error_code error;
  const fs::path path = PathOf(options.target);
  const auto kind = fs::status(path, error).type();
  regular = kind == fs::file_type::regular || kind == fs::file_type::not_found;
  if (kind == fs::file_type::directory || (!regular && options.limits.Any())) return Status::NotAFile;
  const bool empty = options.replace || !regular;
  errno = 0;
  if (!Begin(empty)) return errno == EACCES || errno == EPERM ? Status::AccessDenied : Status::SystemError;
  if (size == 0) return Status::Ok;
  const auto age = fs::file_time_type::clock::now() - fs::last_write_time(path, error);
  period = PeriodOf(nowMs - std::chrono::duration_cast<std::chrono::milliseconds>(age).count());
  if (EndsWithAMessage()) return Status::Ok;
  if (!Rotate(nowMs)) return Status::SystemError;
  return blocked ? Status::AccessDenied : Status::Ok;
}

bool RotatingFile::Begin(bool empty) {
  file.clear();
  file.open(PathOf(options.target), std::ios::binary | (empty ? std::ios::trunc : std::ios::app));
  std::error_code error;
  const auto bytes = regular ? fs::file_size(PathOf(options.target), error) : 0;
  size = written = error ? 0 : bytes;
  return file.is_open();
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
  file.write(pending.data(), static_cast<std::streamsize>(pending.size()));
  file.flush();
  if (file.good()) {
    written += pending.size();
    pending.clear();
    return true;
  }
  failed = true;
  file.close();
  std::error_code ignored;
  if (regular) fs::resize_file(PathOf(options.target), written, ignored);
  return false;
}

bool RotatingFile::Rotate(std::int64_t nowMs) {
  if (!WritePending()) return false;
  file.close();
  blocked = !Shift();
  if (blocked) {
    blockedAt = nowMs;
  } else {
    ++rotated;
    RemoveBeyondKeep();
  }
  failed = !Begin(false);
  return !failed;
}

std::string RotatingFile::Numbered(std::uint32_t number) const {
  return options.target + "." + std::to_string(number);
}

// Moves files only up to the first free number, so that an attempt that was interrupted or refused can be
// repeated: no file is ever overwritten.
bool RotatingFile::Shift() const {
  const std::uint32_t most = options.limits.keep.value_or(std::numeric_limits<std::int32_t>::max());
  std::uint32_t free = 1;
  while (free <= most && Exists(Numbered(free))) ++free;
  if (free > most) {
    std::error_code error;
    if (!fs::remove(PathOf(Numbered(most)), error)) return false;
    free = most;
  }
  for (; free > 1; --free) {
    if (!Rename(Numbered(free - 1), Numbered(free))) return false;
  }
  return Rename(options.target, Numbered(1));
}

bool RotatingFile::Rename(const std::string& from, const std::string& to) const {
  std::error_code error;
  fs::rename(PathOf(from), PathOf(to), error);
  return !error;
}

// Removes the files of earlier runs that kept more.
void RotatingFile::RemoveBeyondKeep() const {
  if (!options.limits.keep) return;
  std::error_code error;
  for (std::uint32_t number = *options.limits.keep + 1; fs::remove(PathOf(Numbered(number)), error);)
    ++number;
}

}  // namespace TamLogCtl
