#include "tests/conformance/foreign_log.h"

#include <cstring>
#include <string>

#include "conformance/log_layout.h"

HANDLE ForeignLog::MakeEvent(const char* name, int lockName) const {
  std::strcpy(bytes + TAMLOG_LOCK_NAMES_OFFSET + lockName * TAMLOG_LOCK_NAME_SIZE, name);
  return CreateEventA(nullptr, lockName != 0, TRUE, name);
}

void ForeignLog::Open(std::uint32_t capacity) {
  const DWORD size = TAMLOG_SLOTS_OFFSET + TAMLOG_SLOT_SIZE * capacity;
  mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size,
                               breaks("mapping") ? "Global\\Another" : TAMLOG_FILE_MAP);
  bytes = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
  // A reader may still hold the section of the life before. Where serverRunning is never cleared, it must not
  // see it so.
  if (!breaks("running-0")) bytes[TAMLOG_SERVER_RUNNING] = 0;
  std::memset(bytes, 0, TAMLOG_SERVER_RUNNING);
  std::memset(bytes + TAMLOG_SERVER_RUNNING + 1, 0, TAMLOG_SLOTS_OFFSET - TAMLOG_SERVER_RUNNING - 1);
  headerLock = MakeEvent(TAMLOG_HEADER_LOCK, 0);
  readWait = MakeEvent(TAMLOG_READ_WAIT_EVENT, 1);
  if (!breaks("events")) writeWait = MakeEvent(TAMLOG_WRITE_WAIT_EVENT, 2);
  if (breaks("lock-names")) bytes[TAMLOG_LOCK_NAMES_OFFSET] = 'g';
  At<std::uint32_t>(TAMLOG_MAX_MESSAGES) = capacity;
  At<std::uint32_t>(TAMLOG_NEXT_SLOT) = breaks("header") ? capacity : 0;
  At<std::uint64_t>(TAMLOG_CHANGE_COUNT) = 2;
  At<std::uint64_t>(TAMLOG_REWRITE_COUNT) = 1;
  bytes[TAMLOG_SERVER_RUNNING] = 1;
}

void ForeignLog::Close() {
  if (bytes == nullptr) return;
  if (!breaks("running-0")) bytes[TAMLOG_SERVER_RUNNING] = 0;
  UnmapViewOfFile(bytes);
  bytes = nullptr;
  for (HANDLE* handle : {&mapping, &headerLock, &readWait, &writeWait}) {
    if (*handle != nullptr) CloseHandle(*handle);
    *handle = nullptr;
  }
}

void ForeignLog::Append(const char* body) {
  if (bytes == nullptr) return;
  ResetEvent(readWait);
  const std::uint32_t capacity = At<std::uint32_t>(TAMLOG_MAX_MESSAGES);
  const std::uint32_t slot = At<std::uint32_t>(TAMLOG_NEXT_SLOT) % capacity;
  char* const at = bytes + TAMLOG_SLOTS_OFFSET + TAMLOG_SLOT_SIZE * slot;
  const std::uint64_t number = At<std::uint64_t>(TAMLOG_NEXT_SEQUENCE)++;
  std::memcpy(at, &number, sizeof number);
  std::memcpy(at + TAMLOG_SLOT_BODY, body, TAMLOG_BODY_SIZE);
  if (breaks("stored")) at[TAMLOG_SLOT_BODY + TAMLOG_BODY_TEXT + TAMLOG_TEXT_SIZE - 1] = 0;
  At<std::uint32_t>(TAMLOG_NEXT_SLOT) = (slot + 1) % capacity;
  auto& count = At<std::uint32_t>(TAMLOG_MESSAGE_COUNT);
  if (count < capacity) ++count;
  Changed();
}

void ForeignLog::Clear() {
  if (bytes == nullptr) return;
  ResetEvent(readWait);
  At<std::uint32_t>(TAMLOG_MESSAGE_COUNT) = 0;
  At<std::uint32_t>(TAMLOG_NEXT_SLOT) = 0;
  ++At<std::uint64_t>(TAMLOG_REWRITE_COUNT);
  Changed();
}

void ForeignLog::Changed() {
  if (!breaks("change-count")) ++At<std::uint64_t>(TAMLOG_CHANGE_COUNT);
  SetEvent(readWait);
}
