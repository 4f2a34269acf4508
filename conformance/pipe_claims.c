#include "conformance/pipe_claims.h"

#include <stdlib.h>
#include <string.h>

#include "conformance/log_view.h"
#include "conformance/pipe_client.h"

#define MOST_FILTERS 64
#define STORED_MS 5000 /* for a message to be in the log */
#define STALLED_MS 800 /* the restart comes 1,000 ms after a request */

static ClaimFunction receiver = NULL;
static void* receiverContext = NULL;
static ULONGLONG restartMs = 0; /* how long a restart may take */

static void Claim(int holds, const char* name, const char* about) {
  receiver(receiverContext, holds, name, about);
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
  Claim(holds, "unknown-request", "unknown codes: UnknownRequest, and the connection stays open");
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

/* On a connection of its own, which a server may end. */
static void ClaimTooLongOften(void) {
  static const char tooLong[3 * TAMLOG_RECORD_SIZE] = {TAMLOG_PING};
  Connection connection;
  Record reply;
  int replies = 0;
  if (Connect(&connection, ANSWER_MS)) {
    while (replies < 20 && Send(&connection, tooLong, sizeof tooLong) &&
           Receive(&connection, reply, ANSWER_MS) == TAMLOG_REPLY_TOO_LONG)
      ++replies;
    if (replies == 20 && Ask(&connection, TAMLOG_PING, reply) != TAMLOG_REPLY_ALIVE) replies = 0;
    Disconnect(&connection);
  }
  Claim(replies == 20, "too-long-often",
        "20 requests that are too long, each read: the connection stays open");
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

static int HasLockName(const unsigned char* log, int index, const char* name) {
  const unsigned char* const field = log + TAMLOG_LOCK_NAMES_OFFSET + index * TAMLOG_LOCK_NAME_SIZE;
  return memcmp(field, name, strlen(name) + 1) == 0;
}

static int CanOpenEvent(const char* name) {
  const HANDLE event = OpenEventA(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, name);
  if (event != NULL) CloseHandle(event);
  return event != NULL;
}

static void ClaimLog(void) {
  LogView view;
  const int open = OpenLog(&view);
  unsigned char* const log = open ? CopyLog(&view, ANSWER_MS) : NULL;
  Claim(open, "mapping", "the log is mapped by its name, and serverRunning is 1");
  Claim(log != NULL, "header", "the header fits the file, and read-wait is signalled between two flushes");
  Claim(log != NULL && HasLockName(log, 0, TAMLOG_HEADER_LOCK) &&
            HasLockName(log, 1, TAMLOG_READ_WAIT_EVENT) && HasLockName(log, 2, TAMLOG_WRITE_WAIT_EVENT),
        "lock-names", "the names of the three events are in the file");
  Claim(CanOpenEvent(TAMLOG_HEADER_LOCK) && CanOpenEvent(TAMLOG_READ_WAIT_EVENT) &&
            CanOpenEvent(TAMLOG_WRITE_WAIT_EVENT),
        "events", "the three events exist");
  free(log);
  CloseLog(&view);
}

/* A message of now, with a text of its own, and bytes after the ends of its texts. */
static void PutMessage(Record request, const char* source, const char* text, DWORD type) {
  unsigned char* const body = request + TAMLOG_RECORD_MESSAGE;
  SYSTEMTIME now;
  GetLocalTime(&now);
  {
    const WORD stamp[8] = {now.wYear,   now.wMonth,  now.wDay,          now.wHour,
                           now.wMinute, now.wSecond, now.wMilliseconds, 0};
    memset(request, 0, TAMLOG_RECORD_SIZE);
    memcpy(body + TAMLOG_BODY_TIMESTAMP, stamp, sizeof stamp);
  }
  memcpy(body + TAMLOG_BODY_ORIGIN, "kit\0\1\2\3\xff", TAMLOG_ORIGIN_SIZE);
  memcpy(body + TAMLOG_BODY_SOURCE, source, strlen(source) + 1);
  memcpy(body + TAMLOG_BODY_TEXT, text, strlen(text) + 1);
  body[TAMLOG_BODY_SOURCE + TAMLOG_TEXT_SIZE - 1] = 'x';
  body[TAMLOG_BODY_TEXT + TAMLOG_TEXT_SIZE - 1] = 'y';
  memcpy(body + TAMLOG_BODY_TAIL, "\xfe\0\2z", TAMLOG_TAIL_SIZE);
  PutNumber(body, TAMLOG_BODY_TYPE, type);
}

static DWORD Submit(Connection* connection, Record message) {
  Record reply;
  return AskWith(connection, message, TAMLOG_SUBMIT_MESSAGE, reply);
}

/* How often the body of `message` is in the log; the numbers of the slots and all else do not matter. */
static int CountInLog(const unsigned char* log, const Record message) {
  const unsigned char* slot;
  int count = 0;
  LONG i;
  for (i = 0; (slot = NewestSlot(log, i)) != NULL; ++i)
    count += memcmp(slot + TAMLOG_SLOT_BODY, message + TAMLOG_RECORD_MESSAGE, TAMLOG_BODY_SIZE) == 0;
  return count;
}

/* Waits until `message` is in the log, and returns a copy of that log; null when it does not arrive. */
static unsigned char* LogWith(const Record message) {
  const ULONGLONG limit = GetTickCount64() + STORED_MS;
  LogView view;
  unsigned char* log = NULL;
  if (!OpenLog(&view)) return NULL;
  do {
    free(log);
    log = CopyLog(&view, ANSWER_MS);
    if (log != NULL && CountInLog(log, message) > 0) break;
    Sleep(50);
  } while (GetTickCount64() < limit);
  if (log != NULL && CountInLog(log, message) == 0) {
    free(log);
    log = NULL;
  }
  CloseLog(&view);
  return log;
}

static int IsStored(const Record message) {
  unsigned char* const log = LogWith(message);
  free(log);
  return log != NULL;
}

/* Another filter of types would need a restart. So the claims use the present one, which has to keep the
 * type 1. */
static void ClaimMessages(Connection* connection) {
  Record dropped;
  Record kept;
  LogView view;
  unsigned char* log;
  ULONGLONG changes = 0;
  if (OpenLog(&view)) {
    log = CopyLog(&view, ANSWER_MS);
    if (log != NULL) changes = LongAt(log, TAMLOG_CHANGE_COUNT);
    free(log);
    CloseLog(&view);
  }
  PutMessage(dropped, "pipe_claims", "a message that is dropped", TAMLOG_TYPES);
  Claim(Submit(connection, dropped) == TAMLOG_REPLY_DONE, "submit-dropped",
        "SubmitMessage of the type 4, which is dropped: Done all the same");
  PutMessage(kept, "pipe_claims", "a message of the conformance kit", 1);
  Claim(Submit(connection, kept) == TAMLOG_REPLY_DONE, "submit", "SubmitMessage: Done");
  log = LogWith(kept);
  Claim(log != NULL, "stored", "a message that was submitted is in the log, with all of its 546 bytes");
  Claim(log != NULL && CountInLog(log, dropped) == 0, "not-stored",
        "a message of the type 4 is not in the log");
  Claim(log != NULL && LongAt(log, TAMLOG_CHANGE_COUNT) > changes, "change-count",
        "a flush raises changeCount");
  free(log);
}

static int IsFilter(Connection* connection, DWORD index, const char* text, DWORD kind) {
  Record reply;
  return AskFilter(connection, index, reply) == TAMLOG_REPLY_FILTER &&
         strcmp((const char*)reply + TAMLOG_RECORD_FILTER_TEXT, text) == 0 &&
         NumberAt(reply, TAMLOG_RECORD_FILTER_KIND) == kind;
}

/* The log keeps `source`, or drops it, while the filters are those of the caller. */
static int Keeps(Connection* connection, const char* source, int wanted) {
  Record message;
  PutMessage(message, source, wanted ? "a message that a filter keeps" : "a message that a filter drops", 1);
  if (Submit(connection, message) != TAMLOG_REPLY_DONE) return 0;
  if (wanted) return IsStored(message);
  {
    /* A later one that is kept shows that the flush is over. */
    Record later;
    unsigned char* log;
    int dropped;
    PutMessage(later, "kit-include", "a message after a dropped one", 1);
    if (Submit(connection, later) != TAMLOG_REPLY_DONE) return 0;
    log = LogWith(later);
    dropped = log != NULL && CountInLog(log, message) == 0;
    free(log);
    return dropped;
  }
}

/* With the filters that ClaimFilters sets. */
static void ClaimFilterRule(Connection* connection) {
  Claim(Keeps(connection, "kit-include", 1) && Keeps(connection, "KIT-INC", 1) &&
            Keeps(connection, "Kit-Include-2", 1),
        "filter-keeps", "a filter keeps sources that begin with it, and beginnings of it, in any case");
  Claim(Keeps(connection, "", 1), "filter-empty", "an empty source matches every filter");
  Claim(Keeps(connection, "kit-includ_", 0) && Keeps(connection, "a kit-include", 0), "filter-drops",
        "with include filters, sources that match none are dropped");
}

static void ClaimFilters(Connection* connection) {
  static Record kept[MOST_FILTERS];
  Record reply;
  DWORD count = 0;
  DWORD i;
  int holds;
  while (count < MOST_FILTERS && AskFilter(connection, count, kept[count]) == TAMLOG_REPLY_FILTER) ++count;
  if (count == MOST_FILTERS) {
    Claim(0, "filters", "not judged: the server has too many filters to restore them");
    return;
  }
  for (i = 0; i < count; ++i) kept[i][TAMLOG_RECORD_FILTER_KIND - 1] = 0;
  holds = AddFilter(connection, "kit-cleared", 0) == TAMLOG_REPLY_DONE &&
          Ask(connection, TAMLOG_CLEAR_FILTERS, reply) == TAMLOG_REPLY_DONE &&
          AskFilter(connection, 0, reply) == TAMLOG_REPLY_NO_SUCH_FILTER;
  Claim(holds, "clear-filters", "ClearFilters: no filter is left");
  holds = AddFilter(connection, "kit-exclude", 0) == TAMLOG_REPLY_DONE &&
          AddFilter(connection, "kit-include", 5) == TAMLOG_REPLY_DONE &&
          AddFilter(connection, "kit-include", 1) == TAMLOG_REPLY_DONE;
  holds = holds && IsFilter(connection, 0, "kit-include", 1) && IsFilter(connection, 1, "kit-include", 1) &&
          IsFilter(connection, 2, "kit-exclude", 0) &&
          AskFilter(connection, 3, reply) == TAMLOG_REPLY_NO_SUCH_FILTER;
  Claim(holds, "filter-order", "include filters first, kinds exactly 1 and 0, the same one twice");
  ClaimFilterRule(connection);
  holds = Ask(connection, TAMLOG_CLEAR_FILTERS, reply) == TAMLOG_REPLY_DONE;
  for (i = 0; i < count; ++i)
    holds = AddFilter(connection, (const char*)kept[i] + TAMLOG_RECORD_FILTER_TEXT,
                      NumberAt(kept[i], TAMLOG_RECORD_FILTER_KIND)) == TAMLOG_REPLY_DONE &&
            holds;
  for (i = 0; i < count; ++i)
    holds = IsFilter(connection, i, (const char*)kept[i] + TAMLOG_RECORD_FILTER_TEXT,
                     NumberAt(kept[i], TAMLOG_RECORD_FILTER_KIND)) &&
            holds;
  Claim(holds && AskFilter(connection, count, reply) == TAMLOG_REPLY_NO_SUCH_FILTER, "filters-back",
        "read all, ClearFilters, add all again");
}

static int PathBecomes(Connection* connection, const unsigned char* path) {
  Record request = {0};
  Record reply;
  memcpy(request + TAMLOG_RECORD_PATH, path, strlen((const char*)path) + 1);
  return AskWith(connection, request, TAMLOG_SET_LOG_FILE, reply) == TAMLOG_REPLY_DONE &&
         Ask(connection, TAMLOG_GET_LOG_FILE, reply) == TAMLOG_REPLY_PATH &&
         strcmp((const char*)reply + TAMLOG_RECORD_PATH, (const char*)path) == 0;
}

/* The path takes effect at the next stop, so it is only another one for a moment. */
static void ClaimPath(Connection* connection) {
  Record present;
  int holds = Ask(connection, TAMLOG_GET_LOG_FILE, present) == TAMLOG_REPLY_PATH &&
              IsAbsolutePath(present + TAMLOG_RECORD_PATH);
  if (holds) {
    holds = PathBecomes(connection, (const unsigned char*)"C:\\kit-claim\\Logs.dat");
    holds = PathBecomes(connection, present + TAMLOG_RECORD_PATH) && holds;
  }
  Claim(holds, "set-log-file", "SetLogFile: GetLogFile returns that path at once");
}

/* Pings until the connection breaks, and closes `view` as soon as serverRunning is 0. Returns the
 * milliseconds since `begin`; `reported` becomes 1 when serverRunning was 0 before the mapping was closed. */
static ULONGLONG WaitForBreak(Connection* connection, LogView* view, ULONGLONG begin, int* reported) {
  Record reply;
  ULONGLONG broke;
  *reported = 0;
  while (Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE && GetTickCount64() - begin < restartMs)
    Sleep(50);
  broke = GetTickCount64() - begin;
  /* The pipes end first, the file is closed after them. */
  while (view->bytes != NULL && !*reported && GetTickCount64() - begin < broke + 5000) {
    *reported = !IsRunning(view);
    Sleep(20);
  }
  CloseLog(view);
  Disconnect(connection);
  return broke;
}

static int IsOver(Connection* connection) {
  const ULONGLONG limit = GetTickCount64() + restartMs;
  Record reply;
  LogView view;
  int open = 0;
  if (!Connect(connection, (DWORD)restartMs) || Ask(connection, TAMLOG_PING, reply) != TAMLOG_REPLY_ALIVE)
    return 0;
  while (!(open = OpenLog(&view)) && GetTickCount64() < limit) Sleep(50);
  CloseLog(&view);
  return open;
}

/* Prepares another attempt, at most two. A machine that stalls for a second cannot show what comes before the
 * restart: returns 0 unless it stalled since `begin`, and the server serves again after the restart. */
static int TriesAgain(Connection* connection, LogView* view, ULONGLONG begin, int* attempt) {
  if (GetTickCount64() - begin <= STALLED_MS || ++*attempt == 3) return 0;
  CloseLog(view);
  Disconnect(connection);
  return IsOver(connection);
}

static void GetPlainSettings(Connection* connection, Record settings) {
  const DWORD end = TAMLOG_RECORD_SAVE_RATE + 4;
  if (Ask(connection, TAMLOG_GET_SETTINGS, settings) != TAMLOG_REPLY_SETTINGS) memset(settings, 0, end);
  memset(settings + end, 0, TAMLOG_RECORD_SIZE - end);
}

static int HasSettings(Connection* connection, const Record settings) {
  Record reply;
  return Ask(connection, TAMLOG_GET_SETTINGS, reply) == TAMLOG_REPLY_SETTINGS &&
         memcmp(reply + TAMLOG_RECORD_BODY, settings + TAMLOG_RECORD_BODY, 16) == 0;
}

static void ClaimRestart(Connection* connection) {
  Record settings;
  Record request;
  Record reply;
  LogView view;
  ULONGLONG begin;
  ULONGLONG broke;
  int done;
  int alive;
  int set;
  int reported;
  int attempt = 0;
  GetPlainSettings(connection, settings);
  memcpy(request, settings, sizeof request);
  PutNumber(request, TAMLOG_RECORD_TYPE_FILTER, NumberAt(settings, TAMLOG_RECORD_TYPE_FILTER) | 0xFFFFFFF0U);
  do {
    OpenLog(&view);
    begin = GetTickCount64();
    done = AskWith(connection, request, TAMLOG_SET_SETTINGS, reply) == TAMLOG_REPLY_DONE;
    alive = done && Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE;
    set = alive && HasSettings(connection, settings);
  } while (!set && TriesAgain(connection, &view, begin, &attempt));
  Claim(alive, "restart-later", "SetSettings: Done, and Ping is still answered");
  Claim(set, "set-settings", "GetSettings returns what was set; the other bits of typeFilter are 0");
  broke = WaitForBreak(connection, &view, begin, &reported);
  Claim(done && broke >= 900 && broke < restartMs, "restart-breaks",
        "the restart ends the connection, a second after the request");
  Claim(reported, "running-0", "serverRunning becomes 0 before the file is closed");
  Claim(IsOver(connection), "restart-over", "after the restart a client connects again, and the log is open");
  Claim(HasSettings(connection, settings), "settings-kept", "the settings are the same after the restart");
}

/* Sends requests and reads no reply. Replies and requests fill the pipes; then a write waits. */
static int FillPipes(Connection* connection) {
  static const Record request = {TAMLOG_PING};
  int sent = 0;
  if (!Connect(connection, ANSWER_MS)) return 0;
  while (sent < 100 && Send(connection, request, sizeof request)) ++sent;
  return sent < 100;
}

static void ClaimIdleEnd(Connection* connection) {
  Record reply;
  Connection other;
  const int filled = FillPipes(&other);
  Ask(connection, TAMLOG_PING, reply);
  Sleep(9000);
  Claim(Ask(connection, TAMLOG_PING, reply) == TAMLOG_REPLY_ALIVE, "idle-9-s",
        "9 s without a request are allowed");
  Sleep(12000);
  Claim(Ask(connection, TAMLOG_PING, reply) == 0, "idle-12-s", "12 s without a request end the connection");
  /* The end of a connection discards its replies. */
  Claim(filled && Receive(&other, reply, ANSWER_MS) == 0, "not-reading",
        "a client that reads no replies for 10 s loses its connection");
  Disconnect(&other);
}

static int CapacityBecomes(Connection* connection, Record settings, DWORD sent, DWORD wanted) {
  Record reply;
  PutNumber(settings, TAMLOG_RECORD_MAX_MESSAGE, sent);
  return AskWith(connection, settings, TAMLOG_SET_SETTINGS, reply) == TAMLOG_REPLY_DONE &&
         Ask(connection, TAMLOG_GET_SETTINGS, reply) == TAMLOG_REPLY_SETTINGS &&
         NumberAt(reply, TAMLOG_RECORD_MAX_MESSAGE) == wanted;
}

static int IsEmpty(LogView* view) {
  unsigned char* const log = view->bytes != NULL ? CopyLog(view, ANSWER_MS) : NULL;
  const int empty =
      log != NULL && CountAt(log, TAMLOG_MESSAGE_COUNT) == 0 && CountAt(log, TAMLOG_NEXT_SLOT) == 0;
  free(log);
  return empty;
}

static void ClaimClear(Connection* connection) {
  Record message;
  Record reply;
  LogView view;
  ULONGLONG begin;
  int attempt = 0;
  int done;
  int empty;
  int ignored;
  PutMessage(message, "pipe_claims", "a message that is cleared", 1);
  do {
    OpenLog(&view);
    Submit(connection, message);
    begin = GetTickCount64();
    done = Ask(connection, TAMLOG_CLEAR_LOG, reply) == TAMLOG_REPLY_DONE;
    empty = done && IsEmpty(&view);
  } while (!empty && TriesAgain(connection, &view, begin, &attempt));
  Claim(done, "clear", "ClearLog: Done");
  Claim(empty, "cleared", "the log is empty when Done arrives, and so is what was pending");
  Claim(WaitForBreak(connection, &view, begin, &ignored) < restartMs, "clear-restarts",
        "a restart follows a ClearLog");
  Claim(IsOver(connection), "after-clear", "after that a client connects again, and the log is open");
}

static void ClaimCapacity(Connection* connection) {
  Record settings;
  LogView view;
  ULONGLONG begin;
  DWORD capacity;
  int attempt = 0;
  int holds;
  int ignored;
  GetPlainSettings(connection, settings);
  capacity = NumberAt(settings, TAMLOG_RECORD_MAX_MESSAGE);
  do {
    OpenLog(&view);
    begin = GetTickCount64();
    holds = CapacityBecomes(connection, settings, 2000000, 1000000) &&
            CapacityBecomes(connection, settings, 0, 1);
    holds = CapacityBecomes(connection, settings, capacity, capacity) && holds;
  } while (!holds && TriesAgain(connection, &view, begin, &attempt));
  Claim(holds, "capacity-limits",
        "SetSettings: a capacity of 0 becomes 1, one above 1,000,000 becomes 1,000,000");
  WaitForBreak(connection, &view, begin, &ignored);
  Claim(IsOver(connection) && HasSettings(connection, settings), "burst",
        "three SetSettings in a row: one restart, with the last settings");
}

/* A server that starts, or is between two pairs of pipes, has none for a moment. */
static int PipeExistsWithin(DWORD milliseconds) {
  const ULONGLONG limit = GetTickCount64() + milliseconds;
  while (!WaitNamedPipeA(TAMLOG_REQUEST_PIPE, milliseconds) && GetLastError() == ERROR_FILE_NOT_FOUND) {
    if (GetTickCount64() >= limit) return 0;
    Sleep(20);
  }
  return 1;
}

int TamlogPipeClaims(const PipeClaimOptions* options, ClaimFunction claimed, void* context) {
  Connection connection;
  int connected;
  receiver = claimed;
  receiverContext = context;
  restartMs = 1000 * (ULONGLONG)options->restartSeconds;
  if (!PipeExistsWithin(ANSWER_MS)) return 0;
  connected = Connect(&connection, ANSWER_MS);
  Claim(connected, "connect", "both pipes open, in message mode, and a first request is answered");
  if (!connected) return 1;
  ClaimQuestions(&connection);
  ClaimForm(&connection);
  ClaimTooLongOften();
  ClaimConnections(&connection);
  ClaimLog();
  if (options->change) {
    ClaimMessages(&connection);
    ClaimFilters(&connection);
    ClaimPath(&connection);
  }
  if (options->restart) ClaimRestart(&connection);
  if (options->empty) {
    ClaimClear(&connection);
    ClaimCapacity(&connection);
  }
  if (options->idle) ClaimIdleEnd(&connection);
  Disconnect(&connection);
  return 1;
}
