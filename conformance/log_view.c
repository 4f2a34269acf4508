#include "conformance/log_view.h"

#include <stdlib.h>
#include <string.h>

#define LONGEST_COPY_MS 150
#define WATCH_MS 250 /* how often serverRunning is read */
/* A view of the largest log that a server can be set to. A larger mapping was created by another process. */
#define PAGE 4096
#define MOST_BYTES ((TAMLOG_SLOTS_OFFSET + (size_t)TAMLOG_SLOT_SIZE * 1000000 + PAGE - 1) / PAGE * PAGE)

LONG CountAt(const unsigned char* log, size_t offset) {
  LONG value;
  memcpy(&value, log + offset, sizeof value);
  return value;
}

ULONGLONG LongAt(const unsigned char* log, size_t offset) {
  ULONGLONG value;
  memcpy(&value, log + offset, sizeof value);
  return value;
}

int CopyMapped(void* to, const void* from, size_t size) {
  SIZE_T copied = 0;
  return ReadProcessMemory(GetCurrentProcess(), from, to, size, &copied) && copied == size;
}

int IsRunning(const LogView* view) {
  unsigned char running = 0;
  return view->bytes != NULL && CopyMapped(&running, view->bytes + TAMLOG_SERVER_RUNNING, 1) && running != 0;
}

void CloseLog(LogView* view) {
  if (view->readWait != NULL) CloseHandle(view->readWait);
  if (view->bytes != NULL) UnmapViewOfFile(view->bytes);
  if (view->mapping != NULL) CloseHandle(view->mapping);
  memset(view, 0, sizeof *view);
}

int OpenLog(LogView* view) {
  MEMORY_BASIC_INFORMATION region;
  memset(view, 0, sizeof *view);
  view->mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, TAMLOG_FILE_MAP);
  if (view->mapping != NULL)
    view->bytes = (const unsigned char*)MapViewOfFile(view->mapping, FILE_MAP_READ, 0, 0, 0);
  if (view->bytes != NULL && VirtualQuery(view->bytes, &region, sizeof region) != 0)
    view->size = region.RegionSize;
  if (view->size >= TAMLOG_SLOTS_OFFSET && view->size <= MOST_BYTES && IsRunning(view))
    view->readWait = OpenEventA(SYNCHRONIZE, FALSE, TAMLOG_READ_WAIT_EVENT);
  if (view->readWait != NULL) return 1;
  CloseLog(view);
  return 0;
}

/* Step 1. Returns 0 when the time is over or the server has closed the file. */
static int WaitUntilNotWritten(const LogView* view, ULONGLONG limit) {
  while (WaitForSingleObject(view->readWait, 0) != WAIT_OBJECT_0) {
    if (!IsRunning(view) || GetTickCount64() >= limit) return 0;
    WaitForSingleObject(view->readWait, WATCH_MS);
  }
  return IsRunning(view);
}

/* Returns the size of the log, 0 when the header does not fit the view. */
static size_t SizeOf(const unsigned char* header, size_t viewSize) {
  const LONG count = CountAt(header, TAMLOG_MESSAGE_COUNT);
  const LONG capacity = CountAt(header, TAMLOG_MAX_MESSAGES);
  const LONG next = CountAt(header, TAMLOG_NEXT_SLOT);
  if (capacity < 1 || count < 0 || count > capacity || next < 0 || next >= capacity) return 0;
  if ((viewSize - TAMLOG_SLOTS_OFFSET) / TAMLOG_SLOT_SIZE < (size_t)capacity) return 0;
  return TAMLOG_SLOTS_OFFSET + TAMLOG_SLOT_SIZE * (size_t)capacity;
}

/* Steps 5 to 7: nothing was written since `header` was copied. */
static int IsUnchanged(const LogView* view, const unsigned char* header) {
  unsigned char now[TAMLOG_HEADER_SIZE];
  MemoryBarrier();
  if (WaitForSingleObject(view->readWait, 0) != WAIT_OBJECT_0) return 0;
  MemoryBarrier();
  if (!CopyMapped(now, view->bytes, sizeof now) || now[TAMLOG_SERVER_RUNNING] == 0) return 0;
  /* readCount and the padding do not count. */
  return memcmp(now + TAMLOG_MESSAGE_COUNT, header + TAMLOG_MESSAGE_COUNT, 12) == 0 &&
         memcmp(now + TAMLOG_CHANGE_COUNT, header + TAMLOG_CHANGE_COUNT, 24) == 0;
}

/* Steps 2 to 8; null: begin again. */
static unsigned char* TryToCopy(const LogView* view) {
  const ULONGLONG begin = GetTickCount64();
  ULONGLONG changeCount;
  unsigned char header[TAMLOG_HEADER_SIZE];
  unsigned char* log;
  size_t size;
  if (!CopyMapped(&changeCount, view->bytes + TAMLOG_CHANGE_COUNT, sizeof changeCount)) return NULL;
  MemoryBarrier();
  if (!CopyMapped(header, view->bytes, sizeof header)) return NULL;
  size = SizeOf(header, view->size);
  if (size == 0 || LongAt(header, TAMLOG_CHANGE_COUNT) != changeCount) return NULL;
  log = (unsigned char*)malloc(size);
  if (log == NULL) return NULL;
  if (CopyMapped(log, view->bytes, size) && IsUnchanged(view, header) &&
      GetTickCount64() - begin <= LONGEST_COPY_MS) {
    memcpy(log, header, sizeof header);
    return log;
  }
  free(log);
  return NULL;
}

unsigned char* CopyLog(const LogView* view, DWORD milliseconds) {
  const ULONGLONG limit = GetTickCount64() + milliseconds;
  while (WaitUntilNotWritten(view, limit)) {
    unsigned char* const log = TryToCopy(view);
    if (log != NULL || GetTickCount64() >= limit) return log;
    Sleep(1);
  }
  return NULL;
}

const unsigned char* NewestSlot(const unsigned char* log, LONG i) {
  const LONG capacity = CountAt(log, TAMLOG_MAX_MESSAGES);
  const LONG slot = (CountAt(log, TAMLOG_NEXT_SLOT) - 1 - i + capacity) % capacity;
  if (i >= CountAt(log, TAMLOG_MESSAGE_COUNT)) return NULL;
  return log + TAMLOG_SLOTS_OFFSET + TAMLOG_SLOT_SIZE * (size_t)slot;
}
