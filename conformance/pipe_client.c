#include "conformance/pipe_client.h"

#include <stdlib.h>
#include <string.h>

#define OTHER_HALF_MS 1000 /* for the second pipe of a pair */
#define SLOW_SERVER_MS 10000
#define QUESTION_MS 2000
#define QUESTIONS 4

void PutNumber(unsigned char* bytes, size_t offset, DWORD value) {
  memcpy(bytes + offset, &value, sizeof value); /* Windows is little-endian */
}

DWORD NumberAt(const unsigned char* bytes, size_t offset) {
  DWORD value;
  memcpy(&value, bytes + offset, sizeof value);
  return value;
}

static HANDLE OpenRequest(void) {
  return CreateFileA(TAMLOG_REQUEST_PIPE, GENERIC_WRITE, 0, NULL, OPEN_EXISTING,
                     FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, NULL);
}

static HANDLE OpenReply(void) {
  return CreateFileA(TAMLOG_REPLY_PIPE, GENERIC_READ | FILE_WRITE_ATTRIBUTES, 0, NULL, OPEN_EXISTING,
                     FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, NULL);
}

static int IsTransient(DWORD error) {
  return error == ERROR_PIPE_BUSY || error == ERROR_FILE_NOT_FOUND;
}

/* Tries to open a pipe for `milliseconds`, every `pause` ms. `attempts` becomes the number of attempts. */
static HANDLE OpenWithin(HANDLE (*open)(void), DWORD milliseconds, DWORD pause, int* attempts) {
  const ULONGLONG limit = GetTickCount64() + milliseconds;
  for (*attempts = 1;; ++*attempts) {
    const HANDLE pipe = open();
    if (pipe != INVALID_HANDLE_VALUE || !IsTransient(GetLastError()) || GetTickCount64() >= limit)
      return pipe;
    Sleep(pause);
  }
}

static void CloseHalf(HANDLE* pipe) {
  if (*pipe != INVALID_HANDLE_VALUE) CloseHandle(*pipe);
  *pipe = INVALID_HANDLE_VALUE;
}

void Disconnect(Connection* connection) {
  CloseHalf(&connection->request);
  CloseHalf(&connection->reply);
}

/* Returns the error; 0 when the operation moved `*bytes` bytes in time. */
static DWORD Finish(HANDLE pipe, OVERLAPPED* overlapped, BOOL started, DWORD milliseconds, DWORD* bytes) {
  DWORD error = started ? 0 : GetLastError();
  *bytes = 0;
  if (error == 0 || error == ERROR_IO_PENDING || error == ERROR_MORE_DATA) {
    if (WaitForSingleObject(overlapped->hEvent, milliseconds) != WAIT_OBJECT_0) CancelIoEx(pipe, overlapped);
    error = GetOverlappedResult(pipe, overlapped, bytes, TRUE) ? 0 : GetLastError();
  }
  CloseHandle(overlapped->hEvent);
  return error;
}

static DWORD Write(HANDLE pipe, const void* bytes, DWORD count, DWORD milliseconds) {
  OVERLAPPED overlapped;
  DWORD written;
  DWORD error;
  memset(&overlapped, 0, sizeof overlapped);
  overlapped.hEvent = CreateEventA(NULL, TRUE, FALSE, NULL);
  error = Finish(pipe, &overlapped, WriteFile(pipe, bytes, count, NULL, &overlapped), milliseconds, &written);
  return error == 0 && written != count ? ERROR_WRITE_FAULT : error;
}

int Send(Connection* connection, const void* bytes, DWORD count) {
  return Write(connection->request, bytes, count, ANSWER_MS) == 0;
}

DWORD Receive(Connection* connection, Record reply, DWORD milliseconds) {
  OVERLAPPED overlapped;
  DWORD count;
  memset(&overlapped, 0, sizeof overlapped);
  overlapped.hEvent = CreateEventA(NULL, TRUE, FALSE, NULL);
  if (Finish(connection->reply, &overlapped,
             ReadFile(connection->reply, reply, TAMLOG_RECORD_SIZE, NULL, &overlapped), milliseconds,
             &count) != 0)
    return 0;
  return count == TAMLOG_RECORD_SIZE ? NumberAt(reply, TAMLOG_RECORD_CODE) : 0;
}

/* State 4: do the two pipes belong to one connection? The questions are chosen at random, because a client
 * that holds the other halves asks, too. */
static int AnswersQuestions(Connection* connection) {
  static const DWORD questions[] = {TAMLOG_PING, TAMLOG_GET_FILE_MAP_NAME, TAMLOG_GET_DEFAULT_LOG_FILE};
  static const DWORD answers[] = {TAMLOG_REPLY_ALIVE, TAMLOG_REPLY_FILE_MAP_NAME, TAMLOG_REPLY_PATH};
  int i;
  for (i = 0; i < QUESTIONS; ++i) {
    const int chosen = rand() % 3;
    Record request = {0};
    Record reply;
    PutNumber(request, TAMLOG_RECORD_CODE, questions[chosen]);
    if (Write(connection->request, request, sizeof request, QUESTION_MS) != 0 ||
        Receive(connection, reply, QUESTION_MS) != answers[chosen])
      return 0;
  }
  return 1;
}

static int SetMessageMode(Connection* connection) {
  DWORD mode = PIPE_READMODE_MESSAGE;
  return SetNamedPipeHandleState(connection->reply, &mode, NULL, NULL);
}

/* State 2. Closing the request pipe of a server that is slow would keep every client out: it waits for the
 * reply pipe of that pair. Whether the server still has its end of it, only a write shows. */
static int OpenReplyHalf(Connection* connection, int* attempts) {
  Record request = {0};
  Record reply;
  connection->reply = OpenWithin(OpenReply, OTHER_HALF_MS, 3, attempts);
  if (connection->reply != INVALID_HANDLE_VALUE) return SetMessageMode(connection);
  PutNumber(request, TAMLOG_RECORD_CODE, TAMLOG_PING);
  if (Write(connection->request, request, sizeof request, QUESTION_MS) != 0) return 0;
  connection->reply = OpenWithin(OpenReply, SLOW_SERVER_MS, 3, attempts);
  ++*attempts;
  return connection->reply != INVALID_HANDLE_VALUE && SetMessageMode(connection) &&
         Receive(connection, reply, QUESTION_MS) == TAMLOG_REPLY_ALIVE;
}

/* States 5 and 6: the server dropped the pair of the request handle, and the reply handle belongs to the next
 * one. */
static int KeepReplyHalf(Connection* connection) {
  HANDLE other;
  int attempts;
  CloseHalf(&connection->request);
  connection->request = OpenWithin(OpenRequest, OTHER_HALF_MS, 3, &attempts);
  if (connection->request == INVALID_HANDLE_VALUE) return 0;
  if (AnswersQuestions(connection)) return 1;
  other = OpenWithin(OpenReply, OTHER_HALF_MS, 3, &attempts);
  if (other == INVALID_HANDLE_VALUE) return 0;
  CloseHalf(&connection->reply);
  connection->reply = other;
  return SetMessageMode(connection) && AnswersQuestions(connection);
}

/* States 1 to 4, and a first request. Returns 0 when all has to be closed. */
static int ConnectOnce(Connection* connection, DWORD milliseconds) {
  Record request = {0};
  Record reply;
  DWORD error;
  int attempts;
  connection->reply = INVALID_HANDLE_VALUE;
  connection->request = OpenWithin(OpenRequest, milliseconds, 10 + (DWORD)rand() % 40, &attempts);
  if (connection->request == INVALID_HANDLE_VALUE) return 0;
  if (!OpenReplyHalf(connection, &attempts)) return 0;
  if (attempts > 1) return AnswersQuestions(connection);
  PutNumber(request, TAMLOG_RECORD_CODE, TAMLOG_PING);
  error = Write(connection->request, request, sizeof request, ANSWER_MS);
  if (error == ERROR_PIPE_NOT_CONNECTED || error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE)
    return KeepReplyHalf(connection);
  return error == 0 && Receive(connection, reply, ANSWER_MS) != 0;
}

int Connect(Connection* connection, DWORD milliseconds) {
  const ULONGLONG limit = GetTickCount64() + milliseconds;
  srand((unsigned)GetTickCount64() ^ (unsigned)GetCurrentProcessId());
  for (;;) {
    const ULONGLONG now = GetTickCount64();
    if (ConnectOnce(connection, now < limit ? (DWORD)(limit - now) : 0)) return 1;
    Disconnect(connection);
    if (GetTickCount64() >= limit) return 0;
    Sleep(20);
  }
}

DWORD AskWith(Connection* connection, Record request, DWORD code, Record reply) {
  PutNumber(request, TAMLOG_RECORD_CODE, code);
  if (!Send(connection, request, TAMLOG_RECORD_SIZE)) return 0;
  return Receive(connection, reply, ANSWER_MS);
}

DWORD Ask(Connection* connection, DWORD code, Record reply) {
  Record request = {0};
  return AskWith(connection, request, code, reply);
}

DWORD AskFilter(Connection* connection, DWORD index, Record reply) {
  Record request = {0};
  PutNumber(request, TAMLOG_RECORD_INDEX, index);
  return AskWith(connection, request, TAMLOG_GET_FILTER, reply);
}
