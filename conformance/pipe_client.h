/* A client of the pipes in plain C for Windows: docs/pipe_protocol.md as a program.
 *
 * Not thread-safe: one thread at a time uses a connection.
 */
#ifndef TAMLOG_PIPE_CLIENT_H
#define TAMLOG_PIPE_CLIENT_H

#include <stddef.h>
#include <windows.h>

#include "conformance/log_layout.h"

#define ANSWER_MS 5000

typedef struct {
  HANDLE request;
  HANDLE reply;
} Connection;

typedef unsigned char Record[TAMLOG_RECORD_SIZE];

void PutNumber(unsigned char* bytes, size_t offset, DWORD value);
DWORD NumberAt(const unsigned char* bytes, size_t offset);

/* Connects within about `milliseconds`, by the table in "Connecting". Returns 0 when that failed; nothing is
 * open then. The caller ends the connection with Disconnect. */
int Connect(Connection* connection, DWORD milliseconds);
void Disconnect(Connection* connection);

/* Sends `count` bytes in one write. Returns 0 when that failed or took longer than ANSWER_MS. */
int Send(Connection* connection, const void* bytes, DWORD count);

/* Returns the code of the next reply; 0, which no reply has, when none of 1,028 bytes came in time. */
DWORD Receive(Connection* connection, Record reply, DWORD milliseconds);

/* Sends a request, with `code` put into it, and returns the code of its reply or 0. */
DWORD AskWith(Connection* connection, Record request, DWORD code, Record reply);
DWORD Ask(Connection* connection, DWORD code, Record reply);
DWORD AskFilter(Connection* connection, DWORD index, Record reply);

#endif
