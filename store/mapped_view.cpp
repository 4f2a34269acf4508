#include "store/mapped_view.h"

#include <cstring>

#include "util/exceptions.h"
#include "util/fault_guard.h"

using TamLogUtil::AccessMappedView;
using TamLogUtil::Exceptions::ExceptionBase;

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
