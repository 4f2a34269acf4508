// The system calls of MappedView: mapping, unmapping and forcing to the disk.

#include "store/mapped_view.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::NativeHandle;
using TamLogUtil::SecurityAttributes;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

constexpr char kMappingFailed[] = "Failed to open a file mapping, CreateFileMapping() failed";

// The size of the mapping that begins at `view`, in whole pages; 0 on failure, and with the last error of an
// existing section for one of reserved memory: another program may have created that under our name, and its
// first touch would end the process.
std::uint64_t MappedSize(const void* view) {
  MEMORY_BASIC_INFORMATION region = {};
  if (VirtualQuery(view, &region, sizeof region) == 0) return 0;
  if (region.State == MEM_COMMIT) return region.RegionSize;
  SetLastError(ERROR_ALREADY_EXISTS);
  return 0;
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

bool MappedView::Map(NativeHandle file, const std::string& name, SecurityAttributes* attributes,
                     Older older) {
  void* const newMapping = CreateFileMappingA(file, attributes, PAGE_READWRITE, 0, 0, name.c_str());
  const DWORD result = GetLastError();
  if (newMapping == nullptr) throw ExceptionWindows(kMappingFailed, nullptr, result);
  const bool existed = result == ERROR_ALREADY_EXISTS;
  if (existed && older == Older::Refuse) {
    CloseHandle(newMapping);
    throw ExceptionWindows(kMappingFailed, nullptr, ERROR_ALREADY_EXISTS);
  }

  void* const newView = MapViewOfFile(newMapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  if (newView == nullptr) {
    const ExceptionWindows failure("Failed to map a file view, MapViewOfFile() failed");
    CloseHandle(newMapping);
    throw ExceptionWindows(failure);
  }

  // A reader may keep an older mapping of this name alive; then the system returns that one, with its old
  // size. With less than the whole file mapped, writes would go past the end of the view.
  const std::uint64_t size = MappedSize(newView);
  const DWORD error = size == 0 ? GetLastError() : ERROR_ALREADY_EXISTS;
  if (size < kSlotsOffset || size < FileSize(file)) {
    UnmapViewOfFile(newView);
    CloseHandle(newMapping);
    throw ExceptionWindows(kMappingFailed, nullptr, error);
  }
  mapping = newMapping;
  view = static_cast<std::uint8_t*>(newView);
  slotCount = static_cast<std::int64_t>((size - kSlotsOffset) / sizeof(LogMessage));
  return !existed;
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

bool MappedView::FlushToDisk(std::uint64_t bytes) const {
  return FlushViewOfFile(view, bytes) != 0;
}
