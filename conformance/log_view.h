/* Reads the running log without access, in plain C for Windows: docs/reader_protocol.md, "Reading without
 * access". */
#ifndef TAMLOG_LOG_VIEW_H
#define TAMLOG_LOG_VIEW_H

#include <stddef.h>
#include <windows.h>

#include "conformance/log_layout.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
  HANDLE mapping;
  HANDLE readWait;
  const unsigned char* bytes; /* the mapped file; null: not open */
  size_t size;                /* of the view, in whole pages */
} LogView;

/* Opens the running log. Returns 0 when no server has one open, or its view is larger than that of 1,000,000
 * slots; nothing is open then. */
int OpenLog(LogView* view);
void CloseLog(LogView* view);

/* Returns the log at one moment, from the header to the last slot; null when it could not be read within
 * `milliseconds`, or the server has closed it. The caller frees it. */
unsigned char* CopyLog(const LogView* view, DWORD milliseconds);

/* Copies mapped bytes. Returns 0 where touching them would fault, as when the disk fails under the mapping: a
 * C program without structured exceptions cannot catch that. */
int CopyMapped(void* to, const void* from, size_t size);

int IsRunning(const LogView* view);
LONG CountAt(const unsigned char* log, size_t offset);
ULONGLONG LongAt(const unsigned char* log, size_t offset);

/* Returns the i-th newest slot of a copied log, null when the ring has fewer. */
const unsigned char* NewestSlot(const unsigned char* log, LONG i);

#ifdef __cplusplus
}
#endif

#endif
