#include "client/file/log_file_writer.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>

#include "client/file/file_path.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

namespace {

namespace fs = std::filesystem;

bool IsThere(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(PathOf(path), error));
}

// A name that nothing has yet. Two programs that write the same target at once are kept apart by the second
// finding the first one's file.
std::string TemporaryName(const std::string& target) {
  constexpr int kTries = 1000;
  for (int i = 0; i < kTries; ++i) {
    std::string name = target + ".new" + std::to_string(i);
    if (!IsThere(name)) return name;
  }
  return {};
}

template <typename Record>
std::string_view BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

}  // namespace

AtomicFile::~AtomicFile() {
  if (temporary.empty()) return;
  file.close();
  std::error_code ignored;
  fs::remove(PathOf(temporary), ignored);
}

Status AtomicFile::Open(const std::string& path, bool overwrite) {
  std::error_code error;
  const auto kind = fs::status(PathOf(path), error).type();
  const bool known = kind != fs::file_type::none && kind != fs::file_type::unknown;
  const bool isFile = kind == fs::file_type::regular || kind == fs::file_type::not_found;
  // A device would not be written but lose its name.
  if (known && !isFile) return Status::NotAFile;
  if (!overwrite && IsThere(path)) return Status::Exists;
  target = path;
  mayOverwrite = overwrite;
  std::string name = TemporaryName(path);
  if (name.empty()) return Status::SystemError;
  errno = 0;
  file.open(PathOf(name), std::ios::binary | std::ios::trunc);
  if (!file) return StatusOfErrno(errno);
  temporary = std::move(name);
  return Status::Ok;
}

bool AtomicFile::Write(std::string_view bytes) {
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file.good();
}

Status AtomicFile::Commit() {
  file.flush();
  const bool whole = file.good();
  file.close();
  if (!whole || file.fail()) return Status::SystemError;
  if (!mayOverwrite && IsThere(target)) return Status::Exists;
  std::error_code error;
  fs::rename(PathOf(temporary), PathOf(target), error);
  if (error) return error == std::errc::permission_denied ? Status::AccessDenied : Status::SystemError;
  temporary.clear();
  return Status::Ok;
}

Status WriteLogFile(const std::string& path, std::uint64_t count, const MessageAt& messageAt,
                    std::uint32_t capacity, bool overwrite, const GoOn& goOn) {
  constexpr std::uint32_t kMostSlots = std::numeric_limits<std::int32_t>::max();
  if (capacity == 0 || capacity > kMostSlots || count > capacity) return Status::BadValue;
  AtomicFile file;
  if (const Status status = file.Open(path, overwrite); status != Status::Ok) return status;
  LogFileHeader header{};
  header.messageCount = static_cast<std::int32_t>(count);
  header.maxMessages = static_cast<std::int32_t>(capacity);
  header.nextSlot = static_cast<std::int32_t>(count % capacity);
  header.changeCount = 2;  // like a new file's
  header.rewriteCount = 1;
  header.nextSequence = count;
  const LockNames names{};  // a server writes them when it opens the file
  bool good = file.Write(BytesOf(header)) && file.Write(BytesOf(names));
  std::uint64_t key = 0;
  for (std::uint64_t i = 0; good && i < count; ++i) {
    if (goOn && !goOn(i)) return Status::Interrupted;
    LogMessage message = messageAt(i);
    const LogMessageView view(message);
    if (view.Damaged() || view.Key() < key) return Status::BadValue;
    key = view.Key();
    message.sequence = i;
    good = file.Write(BytesOf(message));
  }
  const LogMessage empty{};
  for (std::uint64_t i = count; good && i < capacity; ++i) {
    if (goOn && !goOn(i)) return Status::Interrupted;
    good = file.Write(BytesOf(empty));
  }
  return good ? file.Commit() : Status::SystemError;
}

}  // namespace TamLogClient
