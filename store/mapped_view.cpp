#include "store/mapped_view.h"

#include <cstring>

#include "util/exceptions.h"
#include "util/fault_guard.h"
#include "util/win32.h"

using TamLogUtil::AccessMappedView;
using TamLogUtil::NativeHandle;
using TamLogUtil::SecurityAttributes;
using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

constexpr char kMappingFailed[] = "Failed to open a file mapping, CreateFileMapping() failed";

// What is really mapped from `view` on, in whole pages; 0 when the system does not tell.
std::uint64_t MappedSize(const void* view) {
  MEMORY_BASIC_INFORMATION region = {};
  return VirtualQuery(view, &region, sizeof region) == 0 ? 0 : region.RegionSize;
}

std::uint64_t FileSize(NativeHandle file) {
  LARGE_INTEGER size = {};
  return GetFileSizeEx(file, &size) == 0 ? 0 : static_cast<std::uint64_t>(size.QuadPart);
}

}  // namespace

MappedView::~MappedView() {
  if (view != nullptr) UnmapViewOfFile(view);
  if (mapping != nullptr) CloseHandle(mapping);
}

void MappedView::Map(NativeHandle file, const std::string& name, SecurityAttributes* attributes) {
  void* const newMapping = CreateFileMappingA(file, attributes, PAGE_READWRITE, 0, 0, name.c_str());
  const DWORD created = GetLastError();
  if (newMapping == nullptr) throw ExceptionWindows(kMappingFailed, nullptr, created);

  void* const newView = MapViewOfFile(newMapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  if (newView == nullptr) {
    const ExceptionWindows failure("Failed to map a file view, MapViewOfFile() failed");
    CloseHandle(newMapping);
    throw ExceptionWindows(failure);
  }

  // A reader may keep an older mapping of this name alive; it is what we get then, with the size it had.
  // Going on with less than the file would mean to write behind it.
  const std::uint64_t size = MappedSize(newView);
  if (size < kSlotsOffset || size < FileSize(file)) {
    UnmapViewOfFile(newView);
    CloseHandle(newMapping);
    throw ExceptionWindows(kMappingFailed, nullptr, ERROR_ALREADY_EXISTS);
  }
  mapping = newMapping;
  view = static_cast<std::uint8_t*>(newView);
  slotCount = static_cast<std::int64_t>((size - kSlotsOffset) / sizeof(LogMessage));
}

void MappedView::Unmap() {
  if (view == nullptr) return;
  const BOOL unmapped = UnmapViewOfFile(view);
  const DWORD unmapError = GetLastError();
  const BOOL closed = CloseHandle(mapping);
  const DWORD closeError = GetLastError();
  view = nullptr;
  mapping = nullptr;
  slotCount = 0;
  if (unmapped == 0) {
    throw ExceptionWindows("Failed to close file view, UnmapViewOfFile() failed", nullptr, unmapError);
  }
  if (closed == 0) {
    throw ExceptionWindows("Failed to close file view, CloseHandle() failed", nullptr, closeError);
  }
}

template <class Record>
Record MappedView::Read(std::size_t offset) const {
  Record record;
  AccessMappedView([&] { std::memcpy(&record, view + offset, sizeof record); });
  return record;
}

template <class Record>
void MappedView::Write(std::size_t offset, const Record& record) {
  AccessMappedView([&] { std::memcpy(view + offset, &record, sizeof record); });
}

LogFileHeader MappedView::ReadHeader() const {
  return Read<LogFileHeader>(0);
}

void MappedView::WriteHeader(const LogFileHeader& header) {
  Write(0, header);
}

LockNames MappedView::ReadLockNames() const {
  return Read<LockNames>(kLockNamesOffset);
}

void MappedView::WriteLockNames(const LockNames& names) {
  Write(kLockNamesOffset, names);
}

std::size_t MappedView::SlotOffset(std::int64_t index) const {
  if (!HasSlot(index)) throw ExceptionBase("There is no such slot in the mapped log file");
  return kSlotsOffset + sizeof(LogMessage) * static_cast<std::size_t>(index);
}

LogMessage MappedView::ReadSlot(std::int64_t index) const {
  return Read<LogMessage>(SlotOffset(index));
}

void MappedView::WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) {
  std::uint8_t* const slot = view + SlotOffset(index);
  AccessMappedView([&] {
    std::memcpy(slot, &message, sizeof message);
    std::memcpy(slot + offsetof(LogMessage, sequence), &sequence, sizeof sequence);
  });
}

void MappedView::SetReadCount(std::int32_t count) {
  Write(offsetof(LogFileHeader, readCount), count);
}

// Read and stored in two guarded steps: repeating one step as a whole after a fault would count twice.
std::int32_t MappedView::ChangeReadCount(std::int32_t difference) {
  const auto count = Read<std::uint32_t>(offsetof(LogFileHeader, readCount));
  const std::uint32_t changed = count + static_cast<std::uint32_t>(difference);
  Write(offsetof(LogFileHeader, readCount), changed);
  return static_cast<std::int32_t>(changed);
}

void MappedView::SetServerRunning(bool running) {
  Write(offsetof(LogFileHeader, serverRunning), static_cast<std::uint8_t>(running ? 1 : 0));
}

void MappedView::PublishChanges(std::uint64_t changes) {
  const auto changeCount = Read<std::uint64_t>(offsetof(LogFileHeader, changeCount));
  Write(offsetof(LogFileHeader, changeCount), changeCount + changes);
  SetReadCount(0);
}

bool MappedView::FlushToDisk(std::uint64_t bytes) const {
  return FlushViewOfFile(view, bytes) != 0;
}
