// Files and their views: the native counterpart of store/mapped_view_system.cpp,
// store/message_file_server_disk.cpp and pipe/security_attributes.cpp.

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "pipe/security_attributes.h"
#include "store/mapped_view.h"
#include "store/message_file_server.h"
#include "tests/native/handles.h"
#include "tests/native/machine.h"
#include "util/exceptions.h"
#include "util/fault_guard.h"
#include "util/helpers.h"
#include "util/sync.h"

namespace {

using NativeMachine::kPage;
using TamLogUtil::AutoHandle;
using TamLogUtil::NativeHandle;
using TamLogUtil::Exceptions::ExceptionWindows;

constexpr std::uint32_t kPathNotFound = 3;
constexpr std::uint32_t kDiskFull = 112;
constexpr std::uint32_t kMappingOfEmptyFile = 1006;
constexpr std::uint32_t kMappedFile = 1224;
constexpr std::size_t kMostPathCharacters = 259;

// Zeroed pages that take no memory until they are touched, followed by a page that must not be touched.
class Pages {
 public:
  explicit Pages(std::size_t pageBytes) : length(pageBytes) {
    void* const mapped = mmap(nullptr, length + kPage, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) std::abort();
    bytes = static_cast<std::uint8_t*>(mapped);
    if (mprotect(bytes + length, kPage, PROT_NONE) != 0) std::abort();
  }
  ~Pages() { munmap(bytes, length + kPage); }
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  std::uint8_t* Bytes() { return bytes; }
  std::size_t Length() const { return length; }

 private:
  std::size_t length;
  std::uint8_t* bytes;
};

// The bytes are stored in whole pages, as a view shows them: the rest of the last one is zero.
struct DiskFile {
  std::uint64_t size = 0;
  std::unique_ptr<Pages> pages = std::make_unique<Pages>(0);
  bool mapped = false;

  void Resize(std::uint64_t newSize) {
    auto resized = std::make_unique<Pages>((newSize + kPage - 1) / kPage * kPage);
    std::memcpy(resized->Bytes(), pages->Bytes(), std::min(size, newSize));
    pages = std::move(resized);
    size = newSize;
  }
};

struct FileObject final : NativeMachine::Object {
  explicit FileObject(std::shared_ptr<DiskFile> opened) : file(std::move(opened)) {}
  std::shared_ptr<DiskFile> file;
};

struct Disk {
  std::mutex lock;
  std::map<std::string, std::shared_ptr<DiskFile>> files;
};

Disk& TheDisk() {
  static Disk disk;
  return disk;
}

std::shared_ptr<DiskFile> Find(const std::string& path) {
  Disk& disk = TheDisk();
  const std::lock_guard guard(disk.lock);
  const auto found = disk.files.find(path);
  return found == disk.files.end() ? nullptr : found->second;
}

// Reads the bytes as another process would, at any moment. It is not synchronized with the server's threads,
// so ThreadSanitizer is switched off.
__attribute__((no_sanitize("thread"))) std::string BytesSeenFromOutside(DiskFile& file) {
  std::string bytes(file.size, '\0');
  const volatile std::uint8_t* const source = file.pages->Bytes();
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(source[i]);
  return bytes;
}

bool IsPath(const std::string& path) {
  const auto refused = [](char c) {
    return static_cast<unsigned char>(c) < ' ' || std::strchr("<>\"|?*", c) != nullptr;
  };
  return !path.empty() && path.size() <= kMostPathCharacters && path.back() != '\\' &&
         std::none_of(path.begin(), path.end(), refused);
}

}  // namespace

namespace NativeMachine {

void ResetDisk() {
  Disk& disk = TheDisk();
  const std::lock_guard guard(disk.lock);
  disk.files.clear();
}

void WriteFile(const std::string& path, const std::string& bytes, std::uint64_t size) {
  auto file = std::make_shared<DiskFile>();
  file->Resize(std::max<std::uint64_t>(bytes.size(), size));
  std::copy(bytes.begin(), bytes.end(), file->pages->Bytes());
  Disk& disk = TheDisk();
  const std::lock_guard guard(disk.lock);
  disk.files[path] = std::move(file);
}

bool FileExists(const std::string& path) {
  return Find(path) != nullptr;
}

std::string ReadFile(const std::string& path) {
  const auto file = Find(path);
  if (file == nullptr) return {};
  return BytesSeenFromOutside(*file);
}

std::uint8_t* BytesOf(const std::string& path, std::size_t& size) {
  const auto file = Find(path);
  size = file == nullptr ? 0 : file->pages->Length();
  return file == nullptr ? nullptr : file->pages->Bytes();
}

}  // namespace NativeMachine

// The store ---------------------------------------------------------------------------------------------

MappedView::~MappedView() {
  if (view != nullptr) Unmap();
}

bool MappedView::Map(NativeHandle file, const std::string& /*name*/,
                     TamLogUtil::SecurityAttributes* /*attributes*/, Older /*older*/) {
  auto& opened = NativeMachine::As<FileObject>(file);
  if (opened.file->size == 0) {
    throw ExceptionWindows("Failed to open a file mapping, CreateFileMapping() failed", nullptr,
                           kMappingOfEmptyFile);
  }
  opened.file->mapped = true;
  mapping = NativeMachine::NewHandle(NativeMachine::ObjectOf(file));
  view = opened.file->pages->Bytes();
  slotCount = static_cast<std::int64_t>((opened.file->pages->Length() - kSlotsOffset) / sizeof(LogMessage));
  return true;
}

void MappedView::Unmap() {
  if (view == nullptr) return;
  NativeMachine::As<FileObject>(mapping).file->mapped = false;
  TamLogUtil::CloseQuietly(mapping);
  mapping = nullptr;
  view = nullptr;
  slotCount = 0;
}

bool MappedView::FlushToDisk(std::uint64_t /*bytes*/) const {
  return true;
}

bool MessageFileServer::OpenLogFile(const std::string& path, std::uint32_t& lowFileSize) {
  if (!IsPath(path)) {
    throw ExceptionWindows("Failed to open log file, CreateFile() failed", nullptr, kPathNotFound);
  }
  Disk& disk = TheDisk();
  const std::lock_guard guard(disk.lock);
  const bool existed = disk.files.contains(path);
  auto& entry = disk.files[path];
  if (entry == nullptr) entry = std::make_shared<DiskFile>();
  AutoHandle opened(NativeMachine::NewHandle(std::make_shared<FileObject>(entry)), AutoHandle::From::Take);
  KeepFile(opened);
  lowFileSize = static_cast<std::uint32_t>(entry->size);
  return existed;
}

void MessageFileServer::ResizeFile(std::uint32_t maxMessage) {
  const std::uint64_t size = LogFileSize(maxMessage);
  UseFile([size](NativeHandle opened) {
    DiskFile& resized = *NativeMachine::As<FileObject>(opened).file;
    const std::uint32_t error = size > NativeMachine::kDiskSize ? kDiskFull
                                : resized.mapped                ? kMappedFile
                                                                : 0;
    if (error != 0) {
      throw ExceptionWindows("Failed to resize file, SetEndOfFile() failed in ResizeFile()", nullptr, error);
    }
    resized.Resize(size);
  });
}

// There are no other processes.
bool MessageFileServer::WaitUntilFree(TamLogUtil::Timeout& timeout) {
  return !timeout.Expired();
}

// There are no other users.
struct EveryoneSecurity::Parts {};

EveryoneSecurity::EveryoneSecurity(std::uint32_t /*accessMask*/) {}
EveryoneSecurity::~EveryoneSecurity() = default;

TamLogUtil::SecurityAttributes* EveryoneSecurity::GetSecurityAttributes() {
  return nullptr;
}

// util ---------------------------------------------------------------------------------------------------

// Faults on mapped bytes are left to the sanitizers: none is expected.
extern "C" std::uint32_t TamLogUtil::RunUnderFaultGuard(void (*function)(void*), void* argument) {
  function(argument);
  return 0;
}

void TamLogUtil::ThrowMappedAccessFailed() {
  throw Exceptions::ExceptionFileMapIO("Failed to access File Map View");
}

std::string TamLogUtil::PathBesideExecutable(const std::string& fileName) {
  return PathBeside("C:\\Program Files\\Torvane\\TamLogServer.exe", fileName);
}

void TamLogUtil::MoveFileIfPossible(const std::string& from, const std::string& to) {
  Disk& disk = TheDisk();
  const std::lock_guard guard(disk.lock);
  if (!IsPath(to) || !disk.files.contains(from) || disk.files.contains(to)) return;
  disk.files[to] = std::move(disk.files[from]);
  disk.files.erase(from);
}

void TamLogUtil::CopyBoundedOrEndProcess(char* target, std::size_t size, std::string_view text) {
  if (text.size() >= size) throw NativeMachine::ProcessEnded();
  std::copy(text.begin(), text.end(), target);
  target[text.size()] = '\0';
}
