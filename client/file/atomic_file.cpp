#include "client/file/atomic_file.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <system_error>
#include <vector>

#include "client/file/file_path.h"
#include "client/file/windows_names.h"
#include "client/message/hex.h"

namespace TamLogClient {

namespace {

namespace fs = std::filesystem;

constexpr const char* kMark = ".new-";
constexpr std::size_t kRandomLength = 16;
constexpr std::size_t kBuffer = std::size_t{1} << 16U;

bool IsThere(const fs::path& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

bool IsRandomName(const std::string& text) {
  return text.size() == kRandomLength && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

std::string RandomName() {
  std::random_device device;
  const std::uint64_t number = (std::uint64_t{device()} << 32U) | device();
  std::string name;
  AppendHexNumber(number, name);
  return name.insert(0, kRandomLength - name.size(), '0');
}

AtomicFile::~AtomicFile() {
  if (temporary.empty()) return;
  file.Close();
  std::error_code ignored;
  fs::remove(temporary, ignored);
}

FileStatus AtomicFile::Open(const std::string& path, bool overwrite) {
  // There the system would open a device for the temporary name, too.
  if (kWindowsNames && NamesNoOrdinaryFile(path)) return Status::NotAFile;
  target = PathOf(path);
  mayOverwrite = overwrite;
  std::error_code error;
  const auto kind = fs::status(target, error).type();
  const bool known = kind != fs::file_type::none && kind != fs::file_type::unknown;
  const bool isFile = kind == fs::file_type::regular || kind == fs::file_type::not_found;
  // Renaming over a device would replace it, not write to it.
  if (known && !isFile) return Status::NotAFile;
  if (!overwrite && IsThere(target)) return Status::Exists;
  return Create();
}

// A name that is taken was planted: nobody meets a random one by chance.
FileStatus AtomicFile::Create() {
  constexpr int kTries = 100;
  FileStatus status;
  for (int i = 0; i < kTries; ++i) {
    fs::path name = target;
    name += kMark + naming();
    status = file.Create(name);
    if (status == Status::Ok) temporary = std::move(name);
    if (status != Status::Exists) return status;
  }
  return status;
}

bool AtomicFile::Write(std::string_view bytes) {
  buffered += bytes;
  return buffered.size() < kBuffer || WriteBuffered();
}

bool AtomicFile::WriteBuffered() {
  if (failure == Status::Ok) failure = file.Write(buffered);
  buffered.clear();
  return failure == Status::Ok;
}

FileStatus AtomicFile::Commit() {
  WriteBuffered();
  if (failure == Status::Ok && sync) failure = file.Sync();
  const FileStatus closed = file.Close();
  if (failure == Status::Ok) failure = closed;
  if (failure != Status::Ok) return failure;
  failure = mayOverwrite ? RenameOver(temporary, target) : RenameToNew(temporary, target);
  if (failure == Status::Ok) temporary.clear();
  return failure;
}

void RemoveLeftovers(const std::string& path) {
  const fs::path target = PathOf(path);
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  const std::u8string ours = target.filename().u8string();
  const std::string begin = std::string(ours.begin(), ours.end()) + kMark;
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
       at.increment(error)) {
    const std::u8string wide = at->path().filename().u8string();
    const std::string name(wide.begin(), wide.end());
    if (name.starts_with(begin) && IsRandomName(name.substr(begin.size()))) found.push_back(at->path());
  }
  for (const fs::path& each : found) RemoveAbandoned(each);
}

}  // namespace TamLogClient
