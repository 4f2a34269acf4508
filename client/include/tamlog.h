/* The client library of the Torvane Log Server: submits messages, reads and follows the log, changes the
 * server's settings, and examines and repairs log files. This is its C interface; it stays binary compatible.
 *
 * - Compiles as C99 and as C++. Needs <stdint.h> and <string.h> only.
 * - Functions return a tamlog_status, except those that cannot fail. No exception and no signal leaves a
 *   function. Output parameters are written only with TAMLOG_OK, unless the function states otherwise; they
 *   are never written in part.
 * - ..._open creates a handle, ..._close frees it. ..._close ignores a null pointer. All other memory belongs
 *   to the caller: texts are copied into the caller's buffers.
 * - TAMLOG_INIT initializes structures whose first member is `size`: it sets `size`, and all other members
 *   to 0, which means the default. Later versions may add members at the end.
 * - Texts are bytes up to a zero byte, without a stated encoding. Paths of files that this library opens are
 *   UTF-8.
 * - Durations are in milliseconds where a name ends in _ms, and in microseconds where it ends in _us.
 * - Threads: any number of threads may use a client or a sender at once; one thread at a time may use a
 *   reader. No other thread may be in a call when a handle is closed. Functions without a handle have no
 *   state.
 * - Client, sender and live reader need a server on this machine: on systems other than Windows their
 *   ..._open returns TAMLOG_NOT_SUPPORTED. Reading, verifying and repairing files works everywhere.
 *
 * Programs that use the DLL may define TAMLOG_DLL before they include this header: calls are direct then. */

#ifndef TAMLOG_H
#define TAMLOG_H

/* This is C: NOLINTBEGIN(modernize-use-using,modernize-deprecated-headers) */

#include <stdint.h>
#include <string.h>

#define TAMLOG_VERSION_MAJOR 0
#define TAMLOG_VERSION_MINOR 1
#define TAMLOG_VERSION_PATCH 0
#define TAMLOG_VERSION ((TAMLOG_VERSION_MAJOR << 16) | (TAMLOG_VERSION_MINOR << 8) | TAMLOG_VERSION_PATCH)

/* The number of the binary interface. It rises when an existing function, member or value is changed or
 * removed, and stays when functions are added, or members at the end. A program works with every library that
 * has the number it was built with and at least the version it was built with. */
#define TAMLOG_ABI 1

#if defined(_WIN32)
#define TAMLOG_CALL __cdecl
#if defined(TAMLOG_DLL)
#define TAMLOG_API __declspec(dllimport)
#endif
#else
#define TAMLOG_CALL
#endif
#ifndef TAMLOG_API
#define TAMLOG_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Versions and status ------------------------------------------------------------------------------- */

/* Return TAMLOG_VERSION and TAMLOG_ABI of the loaded library; the macros are those of the header. */
TAMLOG_API uint32_t TAMLOG_CALL tamlog_version(void);
TAMLOG_API uint32_t TAMLOG_CALL tamlog_abi(void);

/* The result of a call: each cause has a code of its own. */
typedef int32_t tamlog_status;
enum {
  TAMLOG_OK = 0,
  TAMLOG_NOT_RUNNING = 1,    /* no server answers, or nothing is shared */
  TAMLOG_ACCESS_DENIED = 2,  /* the system refused access to the pipe, the mapping or the file */
  TAMLOG_TIMED_OUT = 3,      /* no answer, or nothing new, within the time-out */
  TAMLOG_STUCK = 4,          /* the server waits for a reader of another program, which has probably died */
  TAMLOG_REFUSED = 5,        /* the server answered that the request failed */
  TAMLOG_NO_SUCH_FILTER = 6, /* the index is after the last filter */
  TAMLOG_BAD_VALUE = 7,      /* the server or the file does not allow the value; nothing was sent */
  TAMLOG_TOO_LONG = 8,       /* a text does not fit its field; nothing was sent */
  TAMLOG_DISCONNECTED = 9,   /* the connection ended before the answer: the request may have had effect */
  TAMLOG_DAMAGED = 10,       /* some bytes break the rules of the log file; what could be read was read */
  TAMLOG_IN_PAGE = 11,       /* the system could not read the pages of the shared file */
  TAMLOG_NOT_FOUND = 12,     /* no such file, or the cursor's message is gone */
  TAMLOG_NOT_SUPPORTED = 13, /* not on this operating system */
  TAMLOG_SYSTEM_ERROR = 14,  /* any other failure of a system call */
  TAMLOG_BAD_ARGUMENT = 15,  /* a null pointer, a structure without its size, an unknown number */
  TAMLOG_TOO_SMALL = 16,     /* the buffer is too small; `*length` is the length needed */
  TAMLOG_DROPPED = 17,       /* the sender's queue is full */
  TAMLOG_CLOSED = 18,        /* the sender was finished */
  TAMLOG_END = 19,           /* nothing more will come */
  TAMLOG_NO_MEMORY = 20,
  TAMLOG_INTERNAL = 21,      /* an error of the library itself */
  TAMLOG_EXISTS = 22,        /* the output already exists; it was not changed */
  TAMLOG_OUTPUT_FAILED = 23, /* the output could not be written; no part of it is left */
  TAMLOG_NOT_A_LOG = 24,     /* the file holds something else than a log */
  TAMLOG_FOREIGN_EVENTS = 25 /* the shared log names events that are not the server's; none was touched */
};

/* Returns a short English phrase without a full stop, for example "the server is not running". Never null: an
 * unknown code is "unknown status". */
TAMLOG_API const char* TAMLOG_CALL tamlog_status_text(tamlog_status status);

/* ---- Messages ------------------------------------------------------------------------------------------ */

/* The longest text, in bytes, and the size of a text member of tamlog_message. */
enum { TAMLOG_MOST_TEXT = 256, TAMLOG_TEXT_FIELD = 260 };

/* A local time without a zone, as the sender wrote it. It may be impossible (month 0, day 40). Month and day
 * begin with 1; `spare` belongs to the sender. */
typedef struct tamlog_time {
  int16_t year, month, day, hour, minute, second, millisecond, spare;
} tamlog_time;

/* Sets `*time` to this machine's local time. */
TAMLOG_API void TAMLOG_CALL tamlog_now(tamlog_time* time);
/* Returns 1 for a date of the calendar and a time of the day, else 0. */
TAMLOG_API int32_t TAMLOG_CALL tamlog_time_is_real(const tamlog_time* time);
/* Returns the number by which messages are ordered in time. Its differences are no durations. */
TAMLOG_API uint64_t TAMLOG_CALL tamlog_time_key(const tamlog_time* time);

enum {
  TAMLOG_MESSAGE_LATE = 1,   /* dated before the message returned just before it */
  TAMLOG_MESSAGE_DAMAGED = 2 /* breaks a rule of the file: an unterminated text, or a type above 3 */
};

/* A message as read. Its texts always end with a zero byte. */
typedef struct tamlog_message {
  uint32_t size;
  uint32_t type;     /* 0 to 3; the numbers have no fixed meaning */
  uint64_t sequence; /* the server's number; it may be reused, so it shows order and identifies nothing */
  tamlog_time time;
  uint32_t flags;         /* TAMLOG_MESSAGE_... */
  uint32_t source_length; /* bytes */
  uint32_t text_length;   /* bytes */
  uint8_t origin[8];      /* set by the sender */
  uint8_t tail[4];        /* set by the sender */
  char source[TAMLOG_TEXT_FIELD];
  char text[TAMLOG_TEXT_FIELD];
} tamlog_message;

/* A message to be submitted. `source` and `text` are read during the call only. */
typedef struct tamlog_entry {
  uint32_t size;
  uint32_t type;          /* 0 to 3 */
  const char* source;     /* at most 256 bytes; null is empty */
  const char* text;       /* at most 256 bytes; any length for a sender; null is empty */
  uint64_t source_length; /* bytes; 0: up to the zero byte */
  uint64_t text_length;   /* bytes; 0: up to the zero byte */
  tamlog_time time;       /* all 0: now */
  uint8_t origin[8];      /* stored unchanged; a sender replaces one that is all 0 by numbers of its own */
  uint8_t tail[4];        /* stored unchanged */
  uint32_t reserved;      /* 0 */
} tamlog_entry;

/* Formats of tamlog_format. JSON, TSV and CSV lines are valid UTF-8 whatever the bytes of the message are. */
enum {
  TAMLOG_FORMAT_SHORT = 0,
  TAMLOG_FORMAT_FULL = 1,
  TAMLOG_FORMAT_CAT = 2, /* the text alone */
  TAMLOG_FORMAT_JSON = 3,
  TAMLOG_FORMAT_TSV = 4,
  TAMLOG_FORMAT_CSV = 5
};
/* Flags of tamlog_format. */
enum { TAMLOG_FORMAT_TERMINAL = 1 /* escapes control characters */, TAMLOG_FORMAT_COLOR = 2 };

/* Writes a message as one line with its line end, and a zero byte, into `buffer`. Sets `*length` (may be
 * null) to the line's length without the zero byte, also with TAMLOG_TOO_SMALL. 8 KiB are always enough. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_format(const tamlog_message* message, int32_t format,
                                                   uint32_t flags, char* buffer, uint64_t capacity,
                                                   uint64_t* length);

/* ---- Client: one call, one answer ---------------------------------------------------------------------- */

/* A connection to the server. The first call connects; a call after the connection ended connects again.
 * Every call ends within its time-out and may return TAMLOG_NOT_RUNNING, TAMLOG_ACCESS_DENIED,
 * TAMLOG_TIMED_OUT, TAMLOG_REFUSED, TAMLOG_DISCONNECTED or TAMLOG_SYSTEM_ERROR; other codes are stated at the
 * functions. */
typedef struct tamlog_client tamlog_client;

typedef struct tamlog_client_options {
  uint32_t size;
  uint32_t timeout_ms;   /* for a whole call, connecting included; 0: 5000 */
  uint32_t absent_ms;    /* no pipe for this long: TAMLOG_NOT_RUNNING; 0: 1000 */
  uint32_t reserved;     /* 0 */
  const char* pipe_name; /* null: the server's default */
} tamlog_client_options;

typedef struct tamlog_settings {
  uint32_t size;
  uint32_t capacity;     /* messages; as requested last, which may not be in effect; not 0 */
  uint32_t poll_rate_ms; /* pause between two reads of the driver; not 0 */
  uint32_t types;        /* bit i: messages of type i are kept */
  uint32_t save_rate_s;  /* seconds between two forced writes to disk; not 0 */
} tamlog_settings;

typedef struct tamlog_filter {
  uint32_t size;
  uint32_t include; /* 1: include filter, 0: exclude filter */
  char text[128];   /* at most 127 bytes */
} tamlog_filter;

/* Creates a client; does not connect. `options` may be null. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_open(const tamlog_client_options* options,
                                                        tamlog_client** client);
TAMLOG_API void TAMLOG_CALL tamlog_client_close(tamlog_client* client);
/* Ends the connection; the next call connects again. The server does so after ten silent seconds. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_disconnect(tamlog_client* client);

/* Asks whether the server answers. TAMLOG_OK: it does. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_ping(tamlog_client* client);

/* Submits a message and waits for the answer. TAMLOG_OK: the server accepted it; its filters may still drop
 * it. TAMLOG_TOO_LONG: source or text; TAMLOG_BAD_VALUE: a type above 3, or a zero byte in a text. After
 * TAMLOG_DISCONNECTED and TAMLOG_TIMED_OUT the message may have been stored. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_submit(tamlog_client* client, const tamlog_entry* entry);

/* Read and write the settings. Writing replaces all of them: get, change, set. The server restarts a second
 * after a write, and a changed capacity usually empties the log. TAMLOG_BAD_VALUE: a member that must not be
 * 0 is 0. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_settings(tamlog_client* client,
                                                                tamlog_settings* settings);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_set_settings(tamlog_client* client,
                                                                const tamlog_settings* settings);

/* Read one filter, add one, remove all. Reading returns TAMLOG_NO_SUCH_FILTER after the last filter; include
 * filters come first. The server cannot remove a single filter: read all, remove all, add the rest. Adding
 * returns TAMLOG_TOO_LONG for a text without a zero byte. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_filter(tamlog_client* client, uint32_t index,
                                                              tamlog_filter* filter);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_add_filter(tamlog_client* client,
                                                              const tamlog_filter* filter);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_clear_filters(tamlog_client* client);

/* Copy the path of the log file, and the path that the server uses when none is set, into `buffer`. Paths of
 * the server are in the code page of its machine. The first is the path of the server's next start. `length`
 * as for tamlog_format; 1024 bytes are always enough. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_log_file(tamlog_client* client, char* buffer,
                                                                uint64_t capacity, uint64_t* length);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_default_log_file(tamlog_client* client, char* buffer,
                                                                        uint64_t capacity, uint64_t* length);
/* Sets the path of the log file: absolute, at most 255 bytes, in the code page of the server's machine. Takes
 * effect at the next stop of the server. TAMLOG_TOO_LONG; TAMLOG_BAD_VALUE: the path is empty. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_set_log_file(tamlog_client* client, const char* path);

/* Empties the log and restarts the server after a second. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_clear_log(tamlog_client* client);

/* ---- Sender: messages from a queue, without waiting ---------------------------------------------------- */

/* A queue of messages and a thread that sends them, so that callers do not wait for the server. While the
 * server cannot be reached, messages are kept. Dropped messages are reported by a message "N messages
 * dropped". */
typedef struct tamlog_sender tamlog_sender;

/* How submitting handles a full queue. */
enum {
  TAMLOG_OVERFLOW_BLOCK = 0,       /* waits for room; while the server cannot be reached: as DROP_NEWEST */
  TAMLOG_OVERFLOW_DROP_NEWEST = 1, /* drops the submitted message */
  TAMLOG_OVERFLOW_DROP_OLDEST = 2  /* drops the message that has waited longest */
};
/* How submitting handles a text of more than 256 bytes. */
enum {
  TAMLOG_LONG_SPLIT = 0,    /* sends several messages of the same time */
  TAMLOG_LONG_TRUNCATE = 1, /* sends its beginning and the mark "..." */
  TAMLOG_LONG_REFUSE = 2    /* returns TAMLOG_TOO_LONG */
};

/* Flags of a sender. */
enum {
  TAMLOG_SENDER_NO_FALLBACK = 1, /* keeps no more than the queue while the server cannot be reached */
  TAMLOG_SENDER_NO_RESEND = 2    /* counts a message whose answer did not come, instead of sending it again */
};

typedef struct tamlog_sender_options {
  uint32_t size;
  int32_t overflow;           /* TAMLOG_OVERFLOW_... */
  int32_t long_text;          /* TAMLOG_LONG_... */
  uint32_t flags;             /* TAMLOG_SENDER_... */
  uint32_t queue_capacity;    /* messages; 0: 1024 */
  uint32_t fallback_capacity; /* more messages while the server cannot be reached; 0: 10000 */
  uint32_t close_ms;          /* how long tamlog_sender_close sends what still waits; 0: 2000 */
  uint32_t timeout_ms;        /* for one message; 0: 2000 */
  uint32_t notice_type;       /* type of the message "N messages dropped"; 0 to 3 */
  uint32_t reserved;          /* 0 */
  const char* notice_source;  /* its source; at most 256 bytes; null: "tamlog" */
  const char* pipe_name;      /* null: the server's default */
} tamlog_sender_options;

/* Counts of the messages by outcome. Each message ends in exactly one of sent, dropped, refused and doubtful:
 *
 *   submitted = waiting + sent + dropped + refused + doubtful     at any moment
 *
 * A text that was split counts as often as it has pieces. */
typedef struct tamlog_sender_counters {
  uint32_t size;
  uint32_t away;        /* 1: the last attempt did not reach the server */
  int32_t last_failure; /* a tamlog_status: why the server was not reached the last time */
  uint32_t reserved;
  uint64_t submitted;
  uint64_t waiting;      /* in the queue or being sent */
  uint64_t sent;         /* accepted by the server */
  uint64_t dropped;      /* no room, or still waiting when the sender was finished */
  uint64_t refused;      /* too long, bad value, sender finished; or refused by the server */
  uint64_t doubtful;     /* left this process, but the answer did not come */
  uint64_t resent;       /* attempts after an answer that did not come; the message may be stored twice */
  uint64_t notices;      /* messages "N messages dropped"; in none of the numbers above */
  uint64_t connects;     /* connections over which the server answered; all but the first are reconnections */
  uint64_t failures;     /* attempts that did not reach the server */
  uint64_t most_waiting; /* the longest that the queue has been */
} tamlog_sender_counters;

/* Creates a sender and its thread. Succeeds whether the server runs or not. `options` may be null.
 * TAMLOG_TOO_LONG: notice_source. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_open(const tamlog_sender_options* options,
                                                        tamlog_sender** sender);
/* Finishes the sender within `close_ms` and frees it. Must not be called in DllMain. */
TAMLOG_API void TAMLOG_CALL tamlog_sender_close(tamlog_sender* sender);

/* Queues a message. Waits only with TAMLOG_OVERFLOW_BLOCK. TAMLOG_DROPPED: no room. TAMLOG_CLOSED: the sender
 * was finished. TAMLOG_TOO_LONG: the source, or with TAMLOG_LONG_REFUSE the text. TAMLOG_BAD_VALUE: a type
 * above 3, or a zero byte in a text. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_submit(tamlog_sender* sender, const tamlog_entry* entry);
/* Waits until all messages submitted before have left the queue. TAMLOG_TIMED_OUT: some are still waiting. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_flush(tamlog_sender* sender, uint32_t timeout_ms);
/* Accepts no more messages, sends what is waiting for `timeout_ms` at most, and drops the rest; then the
 * counters are final. TAMLOG_TIMED_OUT: some were dropped. Can take longer by the time of one message. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_finish(tamlog_sender* sender, uint32_t timeout_ms);
/* Copies the counters. Works after tamlog_sender_finish, too. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_get_counters(tamlog_sender* sender,
                                                                tamlog_sender_counters* counters);

/* ---- Reader: the log of the running server, or a file -------------------------------------------------- */

/* A copy of the log (snapshot, count, get_message), and a position from which it is followed (next, wait). */
typedef struct tamlog_reader tamlog_reader;

typedef struct tamlog_reader_options {
  uint32_t size;
  uint32_t timeout_ms;   /* for one copy of the shared log; 0: 5000 */
  uint32_t interval_ms;  /* between two copies of the log while following; 0: 100 */
  uint32_t ordered;      /* 1: next holds messages back for about 1.5 s and returns them in order of time */
  const char* pipe_name; /* null: the server's default */
  const char* map_name;  /* name of the shared log's mapping; null: the server's default */
} tamlog_reader_options;

/* Changes that tamlog_reader_wait reports. Where several fit, the last of them in this order is reported. */
enum {
  TAMLOG_NOP = 0,     /* no change */
  TAMLOG_APPEND = 1,  /* messages were added after all others */
  TAMLOG_REWRITE = 2, /* messages were inserted between others, or the whole log was written again */
  TAMLOG_CLEARED = 3, /* the log was emptied */
  TAMLOG_STOPPED = 4, /* the server closed the log; the reader has closed it too, and waits for the server */
  TAMLOG_REOPENED = 5 /* the log is back */
};

/* Kinds of item that tamlog_reader_next returns. */
enum {
  TAMLOG_ITEM_MESSAGE = 0,
  TAMLOG_ITEM_LOST = 1,     /* lost_least to lost_most messages were overwritten before they could be read */
  TAMLOG_ITEM_CLEARED = 2,  /* the log was emptied */
  TAMLOG_ITEM_STOPPED = 3,  /* the server closed the log; the reader waits for it */
  TAMLOG_ITEM_REOPENED = 4, /* the log is back */
  TAMLOG_ITEM_BLOCKED = 5   /* the log could not be copied in time; the reader tries again */
};

typedef struct tamlog_item {
  uint32_t size;
  int32_t kind;           /* TAMLOG_ITEM_... */
  uint64_t lost_least;    /* messages; of TAMLOG_ITEM_LOST */
  uint64_t lost_most;     /* messages; UINT64_MAX: no upper limit is known */
  tamlog_message message; /* of TAMLOG_ITEM_MESSAGE; the caller need not set its size */
} tamlog_item;

typedef struct tamlog_log_info {
  uint32_t size;
  uint32_t server_running; /* 1: a server had the log open */
  uint32_t message_count;  /* messages in the copy */
  uint32_t capacity;       /* messages; the one in effect */
  uint64_t change_count;   /* raised with every change */
  uint64_t rewrite_count;  /* raised when slots that held messages were written again */
  uint64_t next_sequence;  /* number of the next message appended */
  uint32_t damaged;        /* messages that break a rule of the file */
  uint32_t reordered;      /* 1: the ring's order was not the order of time */
} tamlog_log_info;

/* Opens a reader of the running server's log and copies the log. `options` may be null. TAMLOG_OK and
 * TAMLOG_DAMAGED open the reader. TAMLOG_NOT_RUNNING: no server has its log open.
 *
 * Reading takes no lock and writes nothing, so a process may be killed or suspended at any moment: the server
 * never waits for it. TAMLOG_STUCK: the server waits for a reader of another program, which has taken read
 * access and has probably died. TAMLOG_TIMED_OUT: the server was writing, or changed the log faster than it
 * can be copied, for all of the time.
 *
 * A reader that only takes snapshots holds nothing between its calls. From its first wait or next on it keeps
 * the log open, and a thread of its own closes it when the server stops, because a server that stops waits
 * for its readers. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_open_live(const tamlog_reader_options* options,
                                                             tamlog_reader** reader);
/* Opens a reader of a log file and reads the file as a whole. Locks nothing and keeps nothing open. TAMLOG_OK
 * and TAMLOG_DAMAGED open the reader; with the latter it has the messages that could be read. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_open_file(const char* path, tamlog_reader** reader);
TAMLOG_API void TAMLOG_CALL tamlog_reader_close(tamlog_reader* reader);

/* Copies the log again: the shared log, as it was at one moment of the call, or the file. TAMLOG_OK and
 * TAMLOG_DAMAGED replace the copy; after any other status it may be empty. Does not move the position of
 * next. TAMLOG_TIMED_OUT: the server was writing, or changed the log faster than it can be copied, for
 * `timeout_ms`. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_snapshot(tamlog_reader* reader, uint32_t timeout_ms);
/* Returns the number of messages in the copy. */
TAMLOG_API uint32_t TAMLOG_CALL tamlog_reader_count(const tamlog_reader* reader);
/* Copies a message out of the copy. Index 0 is the oldest in time. TAMLOG_END: the index is after the last
 * message. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_get_message(const tamlog_reader* reader, uint32_t index,
                                                               tamlog_message* message);
/* Describes the log as of the copy. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_get_info(const tamlog_reader* reader,
                                                            tamlog_log_info* info);
/* Returns what is wrong with the log, or an empty text. Valid until the reader's next call. */
TAMLOG_API const char* TAMLOG_CALL tamlog_reader_remark(const tamlog_reader* reader);

/* Returns the next message or event in the order of arrival; a loss is an item with its size. A live reader
 * begins after the messages of the last snapshot before its first wait or next, and continues after stops of
 * the server. A file begins with its oldest message and ends with TAMLOG_END. TAMLOG_TIMED_OUT: nothing
 * within `timeout_ms`; call again. Any other status is permanent: close the reader. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_next(tamlog_reader* reader, uint32_t timeout_ms,
                                                        tamlog_item* item);
/* Waits until the log changes, `timeout_ms` at most, and sets `*change` to how, or to TAMLOG_NOP. Messages
 * and events are left for next. A file returns TAMLOG_END. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_wait(tamlog_reader* reader, uint32_t timeout_ms,
                                                        int32_t* change);

/* The log in place; valid inside the function that tamlog_reader_with_view calls. Slot i is the 560 bytes at
 * slots + 560 * i, as docs/log_file_format.md describes them. The ring's newest slot is the one before
 * next_slot. */
typedef struct tamlog_view {
  uint32_t size;
  uint32_t capacity;
  uint32_t message_count;
  uint32_t next_slot;
  const uint8_t* slots; /* read-only */
  const void* internal; /* of the library */
} tamlog_view;

typedef void(TAMLOG_CALL* tamlog_view_function)(void* context, const tamlog_view* view);

/* Calls `look` with the log in place, on this thread, while the server continues to write. What `look` saw
 * counts only when TAMLOG_OK is returned; otherwise the server may have written meanwhile. `look` is called
 * again with a new view until a call was not disturbed, so each call begins from nothing and keeps its result
 * apart until then. The slots may change while `look` reads them: it copies what it needs, once, checks the
 * copy, and bounds every index and every text. `look` must not throw or call this library, except
 * tamlog_view_is_spent. Its budget is `budget_us`, at most 150 ms; a server that stops waits for it.
 * TAMLOG_TIMED_OUT: a call exceeded the budget, or no call counted within the reader's time-out. A reader of
 * a file returns TAMLOG_NOT_SUPPORTED. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_with_view(tamlog_reader* reader, uint32_t budget_us,
                                                             tamlog_view_function look, void* context);
/* Returns 1 when the budget's time is over, else 0. */
TAMLOG_API int32_t TAMLOG_CALL tamlog_view_is_spent(const tamlog_view* view);

/* A cursor is a text that identifies a message: the same text as long as the message is in the log, also
 * after restarts, rewrites of the log and moves of the file. (The cursor in a text of tamlog_format is that
 * of the first of several equal messages.) These return the cursor of message `index` of the copy (TAMLOG_END
 * after the last), and of the message that next returned last (TAMLOG_END before the first). `length` as for
 * tamlog_format; 128 bytes are always enough. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_get_cursor(const tamlog_reader* reader, uint32_t index,
                                                              char* buffer, uint64_t capacity,
                                                              uint64_t* length);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_last_cursor(const tamlog_reader* reader, char* buffer,
                                                               uint64_t capacity, uint64_t* length);
/* Copies the log again and lets next continue after the cursor's message; with a null cursor, at the oldest
 * message. TAMLOG_NOT_FOUND: the message is gone, and next continues with the first that is dated later.
 * TAMLOG_BAD_ARGUMENT: the text is not a cursor. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_seek(tamlog_reader* reader, const char* cursor);
/* Returns whether the cursor's message is in the copy: TAMLOG_OK or TAMLOG_NOT_FOUND. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_test_cursor(const tamlog_reader* reader,
                                                               const char* cursor);

/* ---- Verifying and repairing files --------------------------------------------------------------------- */

/* The rules that a file is checked against. Damage is what no running server writes. A remark is odd, but a
 * server or a sender may write it. A server empties the whole log at its start when it finds one of the first
 * nine rules broken. */
enum {
  /* Damage. */
  TAMLOG_RULE_HEADER_COMPLETE = 0, /* the file holds the whole header and the lock names */
  TAMLOG_RULE_NOT_NEGATIVE = 1,    /* the header's count, capacity and next slot are 0 or more */
  TAMLOG_RULE_INSIDE_RING = 2,     /* the count is at most the capacity, the next slot less than it */
  TAMLOG_RULE_SLOTS_IN_FILE = 3,   /* every slot that holds a message is in the file */
  TAMLOG_RULE_NEWEST_FIRST = 4,    /* from the newest message to the oldest the times never rise */
  TAMLOG_RULE_TEXT_ENDS = 5,       /* the text ends with a zero byte inside its field */
  TAMLOG_RULE_SOURCE_ENDS = 6,     /* the source ends with a zero byte inside its field */
  TAMLOG_RULE_KNOWN_TYPE = 7,      /* the type is one of the four */
  /* Remarks. */
  TAMLOG_RULE_REVERSED_BLOCK = 8,   /* the oldest part of the ring is newest first */
  TAMLOG_RULE_IMPOSSIBLE_DATE = 9,  /* the time is no date of the calendar or no time of the day */
  TAMLOG_RULE_DUPLICATE = 10,       /* the message repeats all bytes of another one */
  TAMLOG_RULE_SEQUENCE = 11,        /* a number occurs twice, or was not assigned yet */
  TAMLOG_RULE_BYTES_AFTER_END = 12, /* damage: the file is longer than its capacity requires */
  TAMLOG_RULE_EMPTY_SLOTS_GONE =
      13,                          /* damage: the file is shorter; only slots without messages are missing */
  TAMLOG_RULE_READERS_INSIDE = 14, /* the count of readers is not 0 */
  TAMLOG_RULE_NOT_CLOSED = 15,     /* the mark of a running server is set */
  TAMLOG_RULE_LOCK_NAMES = 16,     /* a lock name is unterminated; a server rewrites the names */
  TAMLOG_RULE_EMPTY_FILE = 17,     /* the file has no bytes; a server makes a new log of it */
  /* Damage. */
  TAMLOG_RULE_SHIFTED_SLOTS = 18, /* bytes are missing or were added: slots do not follow each other */
  TAMLOG_RULE_ANOTHER_LOG = 19,   /* a second log begins in the file */
  TAMLOG_RULES = 20               /* the number of rules; rises when rules are added */
};
/* The number of rules that tamlog_verify_result has room for. */
enum { TAMLOG_MOST_RULES = 24 };

/* Returns the rule's name in reports, for example "newest-first"; a name never changes. Never null: an
 * unknown rule is "unknown-rule". */
TAMLOG_API const char* TAMLOG_CALL tamlog_rule_name(int32_t rule);

#define TAMLOG_NO_SLOT UINT32_MAX

/* A violation of a rule. It and its texts are valid inside the function that receives it. */
typedef struct tamlog_finding {
  uint32_t size;
  int32_t rule;        /* TAMLOG_RULE_... */
  uint32_t damage;     /* 1: damage, 0: a remark */
  uint32_t slot;       /* TAMLOG_NO_SLOT: about the file as a whole */
  uint64_t offset;     /* of the field in the file, in bytes */
  const char* name;    /* as of tamlog_rule_name */
  const char* seen;    /* the value in the file, for example "type 77" */
  const char* allowed; /* for example "0 to 3" */
} tamlog_finding;

/* Receives a finding. Returns 0 to continue; any other value ends the reports, but everything is counted. */
typedef int32_t(TAMLOG_CALL* tamlog_finding_function)(void* context, const tamlog_finding* finding);

typedef struct tamlog_verify_options {
  uint32_t size;
  uint32_t live; /* 1: the image of a running server's log, whose mark and readers are no remarks */
  uint64_t most; /* the most findings of one rule that are reported; 0: 20 */
  tamlog_finding_function found; /* null: findings are only counted */
  void* context;                 /* passed to `found` */
} tamlog_verify_options;

typedef struct tamlog_verify_result {
  uint32_t size;
  uint32_t accepted;                 /* 1: a server with the file's capacity keeps the messages */
  uint64_t file_bytes;               /* the size of the file */
  uint64_t slots;                    /* whole slots in the file, whatever the header says */
  uint64_t damage;                   /* findings of damage, reported or not */
  uint64_t remarks;                  /* remarks, reported or not */
  uint64_t count[TAMLOG_MOST_RULES]; /* findings by rule */
} tamlog_verify_result;

/* Checks a file, or the bytes of one, against all rules. Locks and changes nothing. TAMLOG_OK: no damage; see
 * `accepted`. TAMLOG_DAMAGED: damage; `result` is filled, too. TAMLOG_NOT_A_LOG: the file holds something
 * else. `options` may be null. `found` is called on this thread after the whole check: the header's findings
 * first, then those of the slots, oldest first. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_verify_file(const char* path,
                                                        const tamlog_verify_options* options,
                                                        tamlog_verify_result* result);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_verify_image(const void* bytes, uint64_t length,
                                                         const tamlog_verify_options* options,
                                                         tamlog_verify_result* result);

/* Flags of a repair. */
enum {
  TAMLOG_REPAIR_CARVE = 1,  /* also saves messages outside the ring: after a clear, after the end */
  TAMLOG_REPAIR_UNIQUE = 2, /* saves one of several messages whose bytes are the same */
  TAMLOG_REPAIR_REPLACE = 4 /* replaces an output that already exists */
};

/* Kinds of tamlog_repair_note. */
enum {
  TAMLOG_NOTE_BLANK = 0,       /* lost: zeros where a message should be */
  TAMLOG_NOTE_TEXT_ENDS = 1,   /* lost: a text is unterminated, and the time is no date */
  TAMLOG_NOTE_KNOWN_TYPE = 2,  /* lost: the type does not exist, and nothing else shows a message */
  TAMLOG_NOTE_MISSING = 3,     /* lost: after the end of the file */
  TAMLOG_NOTE_NOT_MESSAGE = 4, /* lost: bytes between messages that are no message */
  TAMLOG_NOTE_TEXT_CUT = 5,    /* saved: an unterminated text was cut to fit */
  TAMLOG_NOTE_TYPE_CHANGED = 6 /* saved: of a type that does not exist, the two lowest bits were kept */
};

/* A message that was lost or changed. It and its text are valid inside the function that receives it. */
typedef struct tamlog_repair_note {
  uint32_t size;
  int32_t kind;      /* TAMLOG_NOTE_... */
  uint32_t saved;    /* 1: the message is in the output, changed; 0: it is lost */
  uint32_t slot;     /* TAMLOG_NO_SLOT: the bytes do not begin at a slot */
  uint64_t offset;   /* in the damaged file, in bytes */
  uint64_t bytes;    /* of the damaged file */
  uint64_t messages; /* the most messages that these can have been; 1 for a message that was saved */
  const char* text;  /* the kind in words, for example "type 77 became 1" */
} tamlog_repair_note;

/* Receives a note. Returns 0 to continue; any other value ends the reports, not the repair. */
typedef int32_t(TAMLOG_CALL* tamlog_repair_function)(void* context, const tamlog_repair_note* note);

typedef struct tamlog_repair_options {
  uint32_t size;
  uint32_t flags;    /* TAMLOG_REPAIR_... */
  uint32_t capacity; /* of the output; 0: the damaged file's, or more to save all, up to 1,000,000 */
  uint32_t reserved; /* 0 */
  uint64_t most;     /* the most notes of losses, and the most of changes; 0: 20 */
  tamlog_repair_function note; /* null: losses and changes are only counted */
  void* context;               /* passed to `note` */
} tamlog_repair_options;

typedef struct tamlog_repair_result {
  uint32_t size;
  uint32_t capacity;      /* of the output, in messages: a server set to it keeps them */
  uint64_t saved;         /* messages in the output */
  uint64_t carved;        /* of the messages found: outside the ring */
  uint64_t texts_cut;     /* of the messages found: with a text that was cut */
  uint64_t types_changed; /* of the messages found: with a type that was changed */
  uint64_t repeated;      /* repetitions that were not saved (TAMLOG_REPAIR_UNIQUE) */
  uint64_t left_out;      /* the oldest, for which the requested capacity has no room */
  uint64_t outside;       /* messages that the header does not count, not saved without TAMLOG_REPAIR_CARVE */
  uint64_t lost;          /* messages that were lost, at most */
  uint32_t header_trusted; /* 0: the header was not valid, and every slot was examined */
  uint32_t reserved;
} tamlog_repair_result;

/* Writes what can be saved of the file at `path` into a new file at `output`, in order of time, so that a
 * server accepts it. Only reads the damaged file. The output is written as a whole or not at all. TAMLOG_OK
 * also when messages were lost: `result` and `note` report them. `note` is called on this thread after the
 * output is written, losses first. TAMLOG_BAD_ARGUMENT: both names are the same file. TAMLOG_EXISTS and
 * TAMLOG_OUTPUT_FAILED are about the output, other codes about the damaged file; TAMLOG_NOT_A_LOG when it
 * holds something else than a log. `options` may be null. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_repair_file(const char* path, const char* output,
                                                        const tamlog_repair_options* options,
                                                        tamlog_repair_result* result);

#ifdef __cplusplus
}
#endif

/* TAMLOG_INIT(&options) sets `size` to the structure's size, and all other members to 0. */
static inline void tamlog_init_struct(void* structure, uint32_t size) {
  memset(structure, 0, size);
  memcpy(structure, &size, sizeof(size));
}
#ifdef __cplusplus
#define TAMLOG_INIT(structure) tamlog_init_struct((structure), static_cast<uint32_t>(sizeof(*(structure))))
#else
#define TAMLOG_INIT(structure) tamlog_init_struct((structure), (uint32_t)sizeof(*(structure)))
#endif

/* NOLINTEND(modernize-use-using,modernize-deprecated-headers) */

#endif
