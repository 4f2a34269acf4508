#pragma once

// The log file as mapped into this process, and the only place that accesses its bytes. Every access runs
// under the fault guard: it is tried up to ten times while the system cannot load a page, then throws
// ExceptionFileMapIO "Failed to access File Map View" (util/fault_guard.h). Every slot index is checked
// against the size of the mapping, because any process may write the header that the index comes from.
//
// It has no lock: MessageFile guards its view by viewLock.

#include <cstddef>
#include <cstdint>
#include <string>

#include "records/log_file_format.h"
#include "util/fault_guard.h"
#include "util/native_handle.h"

class MappedView {
 public:
  MappedView() = default;
  // Closes what is open and ignores failures.
  ~MappedView();
  MappedView(const MappedView&) = delete;
  MappedView& operator=(const MappedView&) = delete;

  // What to do when another process keeps an older mapping of the same name alive, which may be one of
  // another file. A smaller one than the file is refused in either case.
  enum class Older : std::uint8_t { TakeOver, Refuse };

  // Maps the whole of `file` under `name`. `file` must not be empty and stays the caller's; nothing may be
  // mapped yet. Returns false when it took over an older mapping. ExceptionWindows "Failed to open a file
  // mapping, CreateFileMapping() failed", with the code 183 when an older mapping is refused, and "Failed to
  // map a file view, MapViewOfFile() failed".
  bool Map(TamLogUtil::NativeHandle file, const std::string& name, TamLogUtil::SecurityAttributes* attributes,
           Older older);

  // Does nothing when nothing is mapped. Leaves nothing open even if it throws: ExceptionWindows "Failed to
  // close file view, UnmapViewOfFile() failed", "Failed to close file view, CloseHandle() failed".
  void Unmap();

  bool IsMapped() const { return view != nullptr; }

  // The operations below need a mapped view.

  LogFileHeader ReadHeader() const;
  void WriteHeader(const LogFileHeader& header);
  LockNames ReadLockNames() const;
  void WriteLockNames(const LockNames& names);

  std::int64_t SlotCount() const { return slotCount; }
  // Returns whether slot `index` is in the mapping.
  bool HasSlot(std::int64_t index) const { return index >= 0 && index < slotCount; }
  // Returns the slot. ExceptionBase "There is no such slot in the mapped log file".
  LogMessage ReadSlot(std::int64_t index) const;
  // Calls look(slots) with the mapped bytes of the `count` slots from `first` on. It runs under the guard,
  // and again from its start after a fault: it may touch only plain bytes and own nothing.
  template <class Look>
  void LookAtSlots(std::int64_t first, std::size_t count, Look&& look) const {
    const void* const slots = view + SlotOffset(first);
    if (count > 1) SlotOffset(first + static_cast<std::int64_t>(count) - 1);
    TamLogUtil::AccessMappedView([&] { look(static_cast<const LogMessage*>(slots)); });
  }
  void WriteSlot(std::int64_t index, const LogMessage& message) {
    WriteSlot(index, message.sequence, message);
  }
  // Stores `message` with the number `sequence` instead of its own.
  void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message);

  void SetReadCount(std::int32_t count);
  // Adds `difference` to the number of readers and returns the result.
  std::int32_t ChangeReadCount(std::int32_t difference);
  void SetServerRunning(bool running);
  // Ends a write access: adds `changes` to changeCount and sets readCount to 0.
  void PublishChanges(std::uint64_t changes);

  // Forces the first `bytes` bytes to the disk. Returns false with the last error set on failure.
  bool FlushToDisk(std::uint64_t bytes) const;

 private:
  template <class Record>
  Record Read(std::size_t offset) const;
  template <class Record>
  void Write(std::size_t offset, const Record& record);
  std::size_t SlotOffset(std::int64_t index) const;

  TamLogUtil::NativeHandle mapping = nullptr;
  std::uint8_t* view = nullptr;
  std::int64_t slotCount = 0;
};
