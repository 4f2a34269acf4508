/* Checks a running server against docs/pipe_protocol.md, claim by claim, and shows how a client without our
 * library talks to the pipes. Plain C for Windows; log_layout.h is all it needs:
 *
 *   x86_64-w64-mingw32-gcc -I. -o pipe_claims.exe conformance/pipe_claims.c
 *
 * usage: pipe_claims [--change] [--restart] [--idle]
 *
 *   --change   also claims that change something: submits two messages, and replaces the filters for a moment
 *   --restart  also claims about a restart: sends the present settings again
 *   --idle     also the end of an idle connection, which takes 12 s
 *
 * Prints a line for each claim, and as its last line how many hold. Exit code 0 when all of them do, 1 when
 * one does not, 2 for a usage error, 3 when there is no server.
 */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "conformance/log_layout.h"

#define ANSWER_MS 5000
#define MOST_FILTERS 64

typedef struct {
  HANDLE request;
  HANDLE reply;
} Connection;

typedef unsigned char Record[TAMLOG_RECORD_SIZE];

/* Receives each claim: whether it holds, its name, and what it says. */
typedef void (*ClaimFunction)(void* context, int holds, const char* name, const char* about);

static ClaimFunction receiver = NULL;
static void* receiverContext = NULL;

static void Claim(int holds, const char* name, const char* about) {
  receiver(receiverContext, holds, name, about);
}

static void PutNumber(Record record, size_t offset, DWORD value) {
  memcpy(record + offset, &value, sizeof value); /* Windows is little-endian */
}

static DWORD NumberAt(const unsigned char* record, size_t offset) {
  DWORD value;
  memcpy(&value, record + offset, sizeof value);
  return value;
}

/* Tries to open a pipe until `limit`: 231 and 2 pass. */
static HANDLE OpenPipe(const char* name, DWORD access, ULONGLONG limit) {
  for (;;) {
    const HANDLE pipe = CreateFileA(name, access, 0, NULL, OPEN_EXISTING,
                                    FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, NULL);
    if (pipe != INVALID_HANDLE_VALUE) return pipe;
    if ((GetLastError() != ERROR_PIPE_BUSY && GetLastError() != ERROR_FILE_NOT_FOUND) ||
        GetTickCount64() > limit)
      return INVALID_HANDLE_VALUE;
    Sleep(10);
  }
}

static void Disconnect(Connection* connection) {
  if (connection->request != INVALID_HANDLE_VALUE) CloseHandle(connection->request);
  if (connection->reply != INVALID_HANDLE_VALUE) CloseHandle(connection->reply);
  connection->request = connection->reply = INVALID_HANDLE_VALUE;
}

/* The request pipe first, the reply pipe at once after it. */
static int Connect(Connection* connection, DWORD milliseconds) {
  const ULONGLONG limit = GetTickCount64() + milliseconds;
  DWORD mode = PIPE_READMODE_MESSAGE;
  connection->reply = INVALID_HANDLE_VALUE;
  connection->request = OpenPipe(TAMLOG_REQUEST_PIPE, GENERIC_WRITE, limit);
  if (connection->request == INVALID_HANDLE_VALUE) return 0;
  connection->reply =
      OpenPipe(TAMLOG_REPLY_PIPE, GENERIC_READ | FILE_WRITE_ATTRIBUTES, GetTickCount64() + 1000);
  if (connection->reply != INVALID_HANDLE_VALUE &&
      SetNamedPipeHandleState(connection->reply, &mode, NULL, NULL))
    return 1;
  Disconnect(connection);
  return 0;
}

/* Returns the number of bytes that were moved, -1 when the operation failed or took too long. */
static int Finish(HANDLE pipe, OVERLAPPED* overlapped, BOOL started, DWORD milliseconds) {
  DWORD bytes = 0;
  int moved = -1;
  if (!started && GetLastError() != ERROR_IO_PENDING) {
    CloseHandle(overlapped->hEvent);
    return -1;
  }
  if (WaitForSingleObject(overlapped->hEvent, milliseconds) != WAIT_OBJECT_0) CancelIoEx(pipe, overlapped);
  if (GetOverlappedResult(pipe, overlapped, &bytes, TRUE)) moved = (int)bytes;
  CloseHandle(overlapped->hEvent);
  return moved;
}

static int Send(Connection* connection, const void* bytes, DWORD count) {
  OVERLAPPED overlapped;
  memset(&overlapped, 0, sizeof overlapped);
  overlapped.hEvent = CreateEventA(NULL, TRUE, FALSE, NULL);
  return Finish(connection->request, &overlapped,
                WriteFile(connection->request, bytes, count, NULL, &overlapped), ANSWER_MS) == (int)count;
}

/* Returns the code of the reply; 0, which no reply has, when none of 1,028 bytes came in time. */
static DWORD Receive(Connection* connection, Record reply, DWORD milliseconds) {
  OVERLAPPED overlapped;
  int count;
  memset(&overlapped, 0, sizeof overlapped);
  overlapped.hEvent = CreateEventA(NULL, TRUE, FALSE, NULL);
  count = Finish(connection->reply, &overlapped,
                 ReadFile(connection->reply, reply, TAMLOG_RECORD_SIZE, NULL, &overlapped), milliseconds);
  return count == TAMLOG_RECORD_SIZE ? NumberAt(reply, TAMLOG_RECORD_CODE) : 0;
}

static DWORD AskWith(Connection* connection, Record request, DWORD code, Record reply) {
  PutNumber(request, TAMLOG_RECORD_CODE, code);
  if (!Send(connection, request, TAMLOG_RECORD_SIZE)) return 0;
  return Receive(connection, reply, ANSWER_MS);
}

static DWORD Ask(Connection* connection, DWORD code, Record reply) {
  Record request = {0};
  return AskWith(connection, request, code, reply);
}

static DWORD AskFilter(Connection* connection, DWORD index, Record reply) {
  Record request = {0};
  PutNumber(request, TAMLOG_RECORD_INDEX, index);
  return AskWith(connection, request, TAMLOG_GET_FILTER, reply);
}

static DWORD AddFilter(Connection* connection, const char* text, DWORD kind) {
  Record request = {0};
  Record reply;
  memcpy(request + TAMLOG_RECORD_FILTER_TEXT, text, strlen(text) + 1);
  PutNumber(request, TAMLOG_RECORD_FILTER_KIND, kind);
  return AskWith(connection, request, TAMLOG_ADD_FILTER, reply);
}

static int IsAbsolutePath(const unsigned char* path) {
  return memchr(path, 0, TAMLOG_RECORD_BODY_SIZE) != NULL && path[0] != 0 && path[1] == ':' &&
         path[2] == '\\';
}

static void ClaimQuestions(Connection* connection) {
  Record reply;
  const char* const path = (const char*)reply + TAMLOG_RECORD_PATH;
  Claim(Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE, "ping", "Ping: Alive");
  Claim(Ask(connection, TAMLOG_GET_FILE_MAP_NAME, reply) == TAMLOG_REPLY_FILE_MAP_NAME &&
            strcmp(path, TAMLOG_FILE_MAP) == 0,
        "map-name", "GetFileMapName: the name of the mapping");
  Claim(Ask(connection, TAMLOG_GET_LOG_FILE, reply) == TAMLOG_REPLY_PATH &&
            IsAbsolutePath(reply + TAMLOG_RECORD_PATH),
        "log-file", "GetLogFile: an absolute path with its zero byte");
  Claim(Ask(connection, TAMLOG_GET_DEFAULT_LOG_FILE, reply) == TAMLOG_REPLY_PATH &&
            IsAbsolutePath(reply + TAMLOG_RECORD_PATH) && strlen(path) > 9 &&
            strcmp(path + strlen(path) - 9, "\\Logs.dat") == 0,
        "default-path", "GetDefaultLogFile: Logs.dat in the directory of the executable");
  Claim(Ask(connection, TAMLOG_GET_SETTINGS, reply) == TAMLOG_REPLY_SETTINGS &&
            NumberAt(reply, TAMLOG_RECORD_MAX_MESSAGE) > 0 && NumberAt(reply, TAMLOG_RECORD_TYPE_FILTER) < 16,
        "settings", "GetSettings: a capacity, and only the bits of the four types");
  Claim(AskFilter(connection, 0xFFFFFFFFU, reply) == TAMLOG_REPLY_NO_SUCH_FILTER, "no-such-filter",
        "GetFilter after the last one: NoSuchFilter");
}

static void ClaimForm(Connection* connection) {
  static const DWORD strange[] = {0, 1, 14, 15, 100, 0xFFFFFFFFU};
  static const DWORD ahead[] = {TAMLOG_PING, TAMLOG_GET_FILE_MAP_NAME, TAMLOG_GET_SETTINGS};
  static const DWORD answers[] = {TAMLOG_REPLY_ALIVE, TAMLOG_REPLY_FILE_MAP_NAME, TAMLOG_REPLY_SETTINGS};
  static const char tooLong[3 * TAMLOG_RECORD_SIZE] = {TAMLOG_PING};
  Record request = {0};
  Record reply;
  int holds = 1;
  size_t i;
  for (i = 0; i < sizeof strange / sizeof *strange; ++i)
    holds = holds && Ask(connection, strange[i], reply) == TAMLOG_REPLY_UNKNOWN_REQUEST;
  Claim(holds, "unknown-request", "codes that are none: UnknownRequest, and the connection stays open");
  for (holds = 1, i = 0; i < 3; ++i) {
    PutNumber(request, TAMLOG_RECORD_CODE, ahead[i]);
    holds = holds && Send(connection, request, sizeof request);
  }
  for (i = 0; i < 3; ++i) holds = holds && Receive(connection, reply, ANSWER_MS) == answers[i];
  Claim(holds, "in-order", "three requests sent ahead: their replies in the same order");
  holds =
      Send(connection, request, 0) && Receive(connection, reply, ANSWER_MS) == TAMLOG_REPLY_UNKNOWN_REQUEST;
  Claim(holds, "empty", "a request of 0 bytes: UnknownRequest");
  PutNumber(request, TAMLOG_RECORD_CODE, TAMLOG_PING);
  holds = Send(connection, request, 4) && Receive(connection, reply, ANSWER_MS) == TAMLOG_REPLY_ALIVE;
  Claim(holds, "short", "a request of 4 bytes is served");
  holds = Send(connection, tooLong, sizeof tooLong) &&
          Receive(connection, reply, ANSWER_MS) == TAMLOG_REPLY_TOO_LONG &&
          Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE;
  Claim(holds, "too-long", "a request of 3,084 bytes: one TooLong, and the connection stays open");
}

static void ClaimConnections(Connection* connection) {
  Connection other;
  Record reply;
  const int second = Connect(&other, ANSWER_MS);
  Claim(second && Ask(&other, TAMLOG_GET_SETTINGS, reply) == TAMLOG_REPLY_SETTINGS &&
            Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE,
        "two-clients", "a second connection while the first one is open");
  if (second) Disconnect(&other);
  Claim(Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE, "other-leaves",
        "the first connection stays open when the second one ends");
}

static void ClaimMessages(Connection* connection) {
  Record request = {0};
  Record reply;
  SYSTEMTIME now;
  GetLocalTime(&now);
  {
    const WORD stamp[8] = {now.wYear,   now.wMonth,  now.wDay,          now.wHour,
                           now.wMinute, now.wSecond, now.wMilliseconds, 0};
    memcpy(request + TAMLOG_RECORD_MESSAGE + TAMLOG_BODY_TIMESTAMP, stamp, sizeof stamp);
  }
  memcpy(request + TAMLOG_RECORD_MESSAGE + TAMLOG_BODY_SOURCE, "pipe_claims", 12);
  memcpy(request + TAMLOG_RECORD_MESSAGE + TAMLOG_BODY_TEXT, "a message of the conformance kit", 33);
  PutNumber(request, TAMLOG_RECORD_MESSAGE + TAMLOG_BODY_TYPE, 1);
  Claim(AskWith(connection, request, TAMLOG_SUBMIT_MESSAGE, reply) == TAMLOG_REPLY_DONE, "submit",
        "SubmitMessage: Done");
  PutNumber(request, TAMLOG_RECORD_MESSAGE + TAMLOG_BODY_TYPE, TAMLOG_TYPES);
  Claim(AskWith(connection, request, TAMLOG_SUBMIT_MESSAGE, reply) == TAMLOG_REPLY_DONE, "submit-dropped",
        "SubmitMessage of the type 4, which is dropped: Done all the same");
}

static int IsFilter(Connection* connection, DWORD index, const char* text, DWORD kind) {
  Record reply;
  return AskFilter(connection, index, reply) == TAMLOG_REPLY_FILTER &&
         strcmp((const char*)reply + TAMLOG_RECORD_FILTER_TEXT, text) == 0 &&
         NumberAt(reply, TAMLOG_RECORD_FILTER_KIND) == kind;
}

static void ClaimFilters(Connection* connection) {
  static Record kept[MOST_FILTERS];
  Record reply;
  DWORD count = 0;
  DWORD i;
  int holds;
  while (count < MOST_FILTERS && AskFilter(connection, count, kept[count]) == TAMLOG_REPLY_FILTER) ++count;
  if (count == MOST_FILTERS) {
    Claim(0, "filters", "not judged: the server has too many filters to put them back");
    return;
  }
  for (i = 0; i < count; ++i) kept[i][TAMLOG_RECORD_FILTER_KIND - 1] = 0;
  holds = Ask(connection, TAMLOG_CLEAR_FILTERS, reply) == TAMLOG_REPLY_DONE &&
          AskFilter(connection, 0, reply) == TAMLOG_REPLY_NO_SUCH_FILTER;
  Claim(holds, "clear-filters", "ClearFilters: no filter is left");
  holds = AddFilter(connection, "kit-exclude", 0) == TAMLOG_REPLY_DONE &&
          AddFilter(connection, "kit-include", 5) == TAMLOG_REPLY_DONE &&
          AddFilter(connection, "kit-include", 1) == TAMLOG_REPLY_DONE;
  holds = holds && IsFilter(connection, 0, "kit-include", 1) && IsFilter(connection, 1, "kit-include", 1) &&
          IsFilter(connection, 2, "kit-exclude", 0) &&
          AskFilter(connection, 3, reply) == TAMLOG_REPLY_NO_SUCH_FILTER;
  Claim(holds, "filter-order", "include filters first, kinds exactly 1 and 0, the same one twice");
  holds = Ask(connection, TAMLOG_CLEAR_FILTERS, reply) == TAMLOG_REPLY_DONE;
  for (i = 0; i < count; ++i)
    holds = AddFilter(connection, (const char*)kept[i] + TAMLOG_RECORD_FILTER_TEXT,
                      NumberAt(kept[i], TAMLOG_RECORD_FILTER_KIND)) == TAMLOG_REPLY_DONE &&
            holds;
  Claim(holds, "filters-back", "read all, ClearFilters, add all again");
}

static void ClaimPath(Connection* connection) {
  Record request = {0};
  Record reply;
  int holds = Ask(connection, TAMLOG_GET_LOG_FILE, reply) == TAMLOG_REPLY_PATH;
  memcpy(request + TAMLOG_RECORD_PATH, reply + TAMLOG_RECORD_PATH, TAMLOG_RECORD_BODY_SIZE);
  holds = holds && AskWith(connection, request, TAMLOG_SET_LOG_FILE, reply) == TAMLOG_REPLY_DONE &&
          Ask(connection, TAMLOG_GET_LOG_FILE, reply) == TAMLOG_REPLY_PATH &&
          strcmp((const char*)reply + TAMLOG_RECORD_PATH, (const char*)request + TAMLOG_RECORD_PATH) == 0;
  Claim(holds, "set-log-file", "SetLogFile with the present path: GetLogFile returns it");
}

static void ClaimRestart(Connection* connection) {
  Record settings;
  Record reply;
  ULONGLONG begin;
  ULONGLONG broke;
  int holds = Ask(connection, TAMLOG_GET_SETTINGS, settings) == TAMLOG_REPLY_SETTINGS;
  memset(settings + TAMLOG_RECORD_SAVE_RATE + 4, 0, TAMLOG_RECORD_SIZE - TAMLOG_RECORD_SAVE_RATE - 4);
  begin = GetTickCount64();
  holds = holds && AskWith(connection, settings, TAMLOG_SET_SETTINGS, reply) == TAMLOG_REPLY_DONE;
  Claim(holds && Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE, "restart-later",
        "SetSettings: Done, and Ping is still answered");
  while (Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE && GetTickCount64() - begin < 30000)
    Sleep(50);
  broke = GetTickCount64() - begin;
  Disconnect(connection);
  Claim(holds && broke >= 900 && broke < 30000, "restart-breaks",
        "the restart ends the connection, a second after the request");
  holds = Connect(connection, 30000) && Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE;
  Claim(holds, "restart-over", "after the restart a client connects again");
}

static void ClaimIdleEnd(Connection* connection) {
  Record reply;
  Ask(connection, TAMLOG_PING, reply);
  Sleep(9000);
  Claim(Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE, "idle-9-s",
        "9 s without a request are allowed");
  Sleep(12000);
  Claim(Ask(connection, TAMLOG_PING, reply) == 0, "idle-12-s", "12 s without a request end the connection");
}

/* Tries all claims, for a program that contains this file (with TAMLOG_CLAIMS_ONLY). Returns 0 when there is
 * no server. */
int TamlogPipeClaims(int change, int restart, int idle, ClaimFunction claimed, void* context);

int TamlogPipeClaims(int change, int restart, int idle, ClaimFunction claimed, void* context) {
  Connection connection;
  receiver = claimed;
  receiverContext = context;
  if (!Connect(&connection, ANSWER_MS)) return 0;
  ClaimQuestions(&connection);
  ClaimForm(&connection);
  ClaimConnections(&connection);
  if (change) {
    ClaimMessages(&connection);
    ClaimFilters(&connection);
    ClaimPath(&connection);
  }
  if (restart) ClaimRestart(&connection);
  if (idle) ClaimIdleEnd(&connection);
  Disconnect(&connection);
  return 1;
}

#ifndef TAMLOG_CLAIMS_ONLY
static int claims = 0;
static int failed = 0;

static void Print(void* context, int holds, const char* name, const char* about) {
  (void)context;
  ++claims;
  if (!holds) ++failed;
  printf("%-6s  pipe    %-16s  %s\n", holds ? "holds" : "FAILS", name, about);
}

int main(int count, char** arguments) {
  int change = 0;
  int restart = 0;
  int idle = 0;
  int i;
  for (i = 1; i < count; ++i) {
    if (strcmp(arguments[i], "--change") == 0) {
      change = 1;
    } else if (strcmp(arguments[i], "--restart") == 0) {
      restart = 1;
    } else if (strcmp(arguments[i], "--idle") == 0) {
      idle = 1;
    } else {
      fprintf(stderr, "usage: pipe_claims [--change] [--restart] [--idle]\n");
      return 2;
    }
  }
  if (!TamlogPipeClaims(change, restart, idle, Print, NULL)) {
    fprintf(stderr, "pipe_claims: no server has its pipes open\n");
    return 3;
  }
  printf("%d claims hold, %d fail\n", claims - failed, failed);
  return failed > 0 ? 1 : 0;
}
#endif
