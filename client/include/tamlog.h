/* The client library of the Torvane Log Server, as a C interface that stays binary compatible.
 *
 * - Compiles as C99 and as C++. Needs <stdint.h> and <string.h> only.
 * - Every function returns a tamlog_status, unless its result cannot fail. No exception and no signal comes
 *   out of a function. Output is written only when the status says so; it is never half written.
 * - Handles are made by ..._open and freed by ..._close, which take a null pointer for nothing. All other
 *   memory belongs to the caller: texts are copied into buffers of the caller's.
 * - Structures whose first member is `size` are made ready by TAMLOG_INIT: everything 0, which means "the
 *   usual", and the size set. Later versions may add members at their ends.
 * - Texts are bytes that end with a zero byte, and have no stated encoding; paths of files are UTF-8.
 * - Threads: a client and a sender may be used by any number of threads at once, a reader by one at a time.
 *   No other thread may be in a call when a handle is closed. Functions without a handle have no state.
 * - The pieces that need a server on this machine (client, sender, live reader) give TAMLOG_NOT_SUPPORTED on
 *   systems other than Windows; reading files works everywhere.
 *
 * Programs that use the DLL may define TAMLOG_DLL before including this. */

#ifndef TAMLOG_H
#define TAMLOG_H

/* This is C: NOLINTBEGIN(modernize-use-using,modernize-deprecated-headers) */

#include <stdint.h>
#include <string.h>

#define TAMLOG_VERSION_MAJOR 0
#define TAMLOG_VERSION_MINOR 1
#define TAMLOG_VERSION_PATCH 0
#define TAMLOG_VERSION ((TAMLOG_VERSION_MAJOR << 16) | (TAMLOG_VERSION_MINOR << 8) | TAMLOG_VERSION_PATCH)

/* Raised when something that exists is changed or removed; functions and members at the end are added
 * without. A program that was built with one number works with every library of the same number and at least
 * its version. */
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

/* TAMLOG_VERSION and TAMLOG_ABI of the library that runs; the headers tell those that it was built with. */
TAMLOG_API uint32_t TAMLOG_CALL tamlog_version(void);
TAMLOG_API uint32_t TAMLOG_CALL tamlog_abi(void);

/* One code a cause. */
typedef int32_t tamlog_status;
enum {
  TAMLOG_OK = 0,
  TAMLOG_NOT_RUNNING = 1,    /* no server answers, or nothing is shared */
  TAMLOG_ACCESS_DENIED = 2,  /* the system refused access to the pipe, the mapping or the file */
  TAMLOG_TIMED_OUT = 3,      /* no answer, or nothing new, within the time-out */
  TAMLOG_STUCK = 4,          /* a lock of the shared log was not given back: its holder has probably died */
  TAMLOG_REFUSED = 5,        /* the server answered that the request failed */
  TAMLOG_NO_SUCH_FILTER = 6, /* the index lies behind the last filter */
  TAMLOG_BAD_VALUE = 7,      /* a value that would harm the server; nothing was sent */
  TAMLOG_TOO_LONG = 8,       /* a text does not fit its field; nothing was sent */
  TAMLOG_DISCONNECTED = 9,   /* the connection ended before the answer: carried out or not is not known */
  TAMLOG_DAMAGED = 10,       /* bytes that break the rules of the log file; what could be read was read */
  TAMLOG_IN_PAGE = 11,       /* the system could not read the pages of the shared file */
  TAMLOG_NOT_FOUND = 12,     /* no such file, or the cursor's message is gone */
  TAMLOG_NOT_SUPPORTED = 13, /* not on this operating system */
  TAMLOG_SYSTEM_ERROR = 14,  /* any other failure of a system call */
  TAMLOG_BAD_ARGUMENT = 15,  /* a null pointer, a structure without its size, an unknown number */
  TAMLOG_TOO_SMALL = 16,     /* the buffer; the length needed was told */
  TAMLOG_DROPPED = 17,       /* the sender's queue is full */
  TAMLOG_CLOSED = 18,        /* the sender was finished */
  TAMLOG_END = 19,           /* nothing more will come */
  TAMLOG_NO_MEMORY = 20,
  TAMLOG_INTERNAL = 21,     /* an error of the library itself */
  TAMLOG_EXISTS = 22,       /* something of the output's name is there already, and was left alone */
  TAMLOG_OUTPUT_FAILED = 23 /* the output cannot be written; nothing is left of it */
};

/* A short English phrase without a full stop, for example "the server is not running". Never null. */
TAMLOG_API const char* TAMLOG_CALL tamlog_status_text(tamlog_status status);

/* ---- Messages ------------------------------------------------------------------------------------------ */

enum { TAMLOG_MOST_TEXT = 256, TAMLOG_TEXT_FIELD = 260 };

/* As written by the sender: without zone, and possibly impossible (month 0, day 40). */
typedef struct tamlog_time {
  int16_t year, month, day, hour, minute, second, millisecond, spare;
} tamlog_time;

/* This machine's local time. */
TAMLOG_API void TAMLOG_CALL tamlog_now(tamlog_time* time);
/* 1 for a date of the calendar and a time of the day, else 0. */
TAMLOG_API int32_t TAMLOG_CALL tamlog_time_is_real(const tamlog_time* time);
/* The number that messages are ordered by. Differences mean nothing. */
TAMLOG_API uint64_t TAMLOG_CALL tamlog_time_key(const tamlog_time* time);

enum {
  TAMLOG_MESSAGE_LATE = 1,   /* dated before a message that was given already */
  TAMLOG_MESSAGE_DAMAGED = 2 /* breaks a rule of the file: a text without end, or a type above 3 */
};

/* A message as read. The texts always end with a zero byte here. */
typedef struct tamlog_message {
  uint32_t size;
  uint32_t type;     /* 0 to 3; the numbers have no fixed meaning */
  uint64_t sequence; /* given by the server, again and again: shows order, identifies nothing */
  tamlog_time time;
  uint32_t flags;
  uint32_t source_length;
  uint32_t text_length;
  uint8_t origin[8]; /* the sender's own */
  uint8_t tail[4];   /* the sender's own */
  char source[TAMLOG_TEXT_FIELD];
  char text[TAMLOG_TEXT_FIELD];
} tamlog_message;

/* A message to be sent. `source` and `text` are read during the call only. */
typedef struct tamlog_entry {
  uint32_t size;
  uint32_t type;          /* 0 to 3 */
  const char* source;     /* at most 256 bytes; null is empty */
  const char* text;       /* at most 256 bytes; of any length for a sender; null is empty */
  uint64_t source_length; /* 0: up to the zero byte */
  uint64_t text_length;   /* 0: up to the zero byte */
  tamlog_time time;       /* all 0: now */
  uint8_t origin[8];      /* carried along; a sender puts numbers of its own into one that is all 0 */
  uint8_t tail[4];
  uint32_t reserved; /* 0 */
} tamlog_entry;

/* Formats of tamlog_format. The data formats (json, tsv, csv) are valid UTF-8 whatever the bytes are. */
enum {
  TAMLOG_FORMAT_SHORT = 0,
  TAMLOG_FORMAT_FULL = 1,
  TAMLOG_FORMAT_CAT = 2, /* the text alone */
  TAMLOG_FORMAT_JSON = 3,
  TAMLOG_FORMAT_TSV = 4,
  TAMLOG_FORMAT_CSV = 5
};
enum { TAMLOG_FORMAT_TERMINAL = 1 /* no control characters */, TAMLOG_FORMAT_COLOR = 2 };

/* Writes one line with its line end, and a zero byte, into `buffer`. `*length` (may be null) is the line's
 * length without the zero byte, also for TAMLOG_TOO_SMALL; 8 KiB are always enough. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_format(const tamlog_message* message, int32_t format,
                                                   uint32_t flags, char* buffer, uint64_t capacity,
                                                   uint64_t* length);

/* ---- Client: one call, one answer ---------------------------------------------------------------------- */

typedef struct tamlog_client tamlog_client;

typedef struct tamlog_client_options {
  uint32_t size;
  uint32_t timeout_ms;   /* of a whole call; 0: 5000 */
  uint32_t absent_ms;    /* no pipe for so long means "not running"; 0: 1000 */
  uint32_t reserved;     /* 0 */
  const char* pipe_name; /* null: the server's own */
} tamlog_client_options;

typedef struct tamlog_settings {
  uint32_t size;
  uint32_t capacity;     /* messages: as asked for last, not necessarily the one in effect */
  uint32_t poll_rate_ms; /* pause between two readings of the driver; not 0 */
  uint32_t types;        /* bit i: messages of type i are kept */
  uint32_t save_rate_s;  /* pause between two forced writes to disk; not 0 */
} tamlog_settings;

typedef struct tamlog_filter {
  uint32_t size;
  uint32_t include; /* 1: include filter, 0: exclude filter */
  char text[128];   /* at most 127 bytes */
} tamlog_filter;

/* Does not connect yet. `options` may be null. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_open(const tamlog_client_options* options,
                                                        tamlog_client** client);
TAMLOG_API void TAMLOG_CALL tamlog_client_close(tamlog_client* client);
/* Ends the connection; the next call connects again. The server ends one after ten silent seconds. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_disconnect(tamlog_client* client);

TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_ping(tamlog_client* client);
/* TAMLOG_OK says that the server took the message, not that its filters kept it. After TAMLOG_DISCONNECTED
 * and TAMLOG_TIMED_OUT it may have been stored. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_submit(tamlog_client* client, const tamlog_entry* entry);

/* A change restarts the server after a second. Setting writes all members: get, change, set. A change of the
 * capacity usually empties the log. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_settings(tamlog_client* client,
                                                                tamlog_settings* settings);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_set_settings(tamlog_client* client,
                                                                const tamlog_settings* settings);

/* Include filters come first. No request removes one filter: read all, clear, add the rest. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_filter(tamlog_client* client, uint32_t index,
                                                              tamlog_filter* filter);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_add_filter(tamlog_client* client,
                                                              const tamlog_filter* filter);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_clear_filters(tamlog_client* client);

/* `*length` (may be null) as for tamlog_format; 1024 bytes are always enough. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_log_file(tamlog_client* client, char* buffer,
                                                                uint64_t capacity, uint64_t* length);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_get_default_log_file(tamlog_client* client, char* buffer,
                                                                        uint64_t capacity, uint64_t* length);
/* An absolute path of at most 255 bytes. Takes effect at the next stop of the server. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_set_log_file(tamlog_client* client, const char* path);

/* Empties the log and restarts the server after a second. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_client_clear_log(tamlog_client* client);

/* ---- Sender: messages from a queue, without waiting ---------------------------------------------------- */

typedef struct tamlog_sender tamlog_sender;

/* When the queue is full. */
enum {
  TAMLOG_OVERFLOW_BLOCK = 0, /* the caller waits; while the server is away: as DROP_NEWEST */
  TAMLOG_OVERFLOW_DROP_NEWEST = 1,
  TAMLOG_OVERFLOW_DROP_OLDEST = 2
};
/* For texts of more than 256 bytes. */
enum { TAMLOG_LONG_SPLIT = 0, TAMLOG_LONG_TRUNCATE = 1, TAMLOG_LONG_REFUSE = 2 };

enum {
  TAMLOG_SENDER_NO_FALLBACK = 1, /* nothing beyond the queue is kept while the server is away */
  TAMLOG_SENDER_NO_RESEND = 2    /* a message whose answer did not come is counted, not sent again */
};

typedef struct tamlog_sender_options {
  uint32_t size;
  int32_t overflow;
  int32_t long_text;
  uint32_t flags;
  uint32_t queue_capacity;    /* messages; 0: 1024 */
  uint32_t fallback_capacity; /* more messages while the server is away; 0: 10000 */
  uint32_t close_ms;          /* time of tamlog_sender_close for sending the rest; 0: 2000 */
  uint32_t timeout_ms;        /* for one message; 0: 2000 */
  uint32_t notice_type;       /* of the message "N messages dropped" */
  uint32_t reserved;          /* 0 */
  const char* notice_source;  /* likewise; null: "tamlog" */
  const char* pipe_name;      /* null: the server's own */
} tamlog_sender_options;

/* Each message ends in exactly one of sent, dropped, refused and doubtful; at any moment
 *   submitted = waiting + sent + dropped + refused + doubtful.
 * A text that was split counts as often as it has pieces. */
typedef struct tamlog_sender_counters {
  uint32_t size;
  uint32_t away;        /* 1: the last attempt did not reach the server */
  int32_t last_failure; /* a tamlog_status: why the server was not reached the last time */
  uint32_t reserved;
  uint64_t submitted;
  uint64_t waiting;  /* in the queue, or on their way */
  uint64_t sent;     /* the server took them */
  uint64_t dropped;  /* no room, or left over at the end */
  uint64_t refused;  /* too long, bad value, sender finished; or refused by the server */
  uint64_t doubtful; /* sent, but the answer did not come */
  uint64_t resent;   /* attempts after an answer that did not come; may be stored twice, same origin */
  uint64_t notices;  /* "N messages dropped": in none of the numbers above */
  uint64_t connects; /* connections that stood; all but the first are reconnections */
  uint64_t failures; /* attempts that did not reach the server */
  uint64_t most_waiting;
} tamlog_sender_counters;

/* Succeeds whether the server is there or not. `options` may be null. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_open(const tamlog_sender_options* options,
                                                        tamlog_sender** sender);
/* tamlog_sender_finish with the options' time, and frees. Not while DLLs are unloaded (no DllMain). */
TAMLOG_API void TAMLOG_CALL tamlog_sender_close(tamlog_sender* sender);

/* TAMLOG_OK: queued. TAMLOG_DROPPED: no room. Waits only with TAMLOG_OVERFLOW_BLOCK. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_submit(tamlog_sender* sender, const tamlog_entry* entry);
/* Waits until all that was submitted before has left the queue; TAMLOG_TIMED_OUT when something has not. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_flush(tamlog_sender* sender, uint32_t timeout_ms);
/* Takes nothing more, sends what waits for `timeout_ms`, and drops the rest; then the counters are final.
 * TAMLOG_TIMED_OUT when something was left over. Can take longer by the time of one message. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_finish(tamlog_sender* sender, uint32_t timeout_ms);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_sender_get_counters(tamlog_sender* sender,
                                                                tamlog_sender_counters* counters);

/* ---- Reader: the log of the running server, or a file -------------------------------------------------- */

typedef struct tamlog_reader tamlog_reader;

typedef struct tamlog_reader_options {
  uint32_t size;
  uint32_t timeout_ms;  /* for getting in, 0: 5000 */
  uint32_t interval_ms; /* between two looks at the log while waiting, 0: 100 */
  uint32_t ordered;     /* 1: next holds messages back for about 1.5 s and then gives them in order of time */
  const char* pipe_name; /* null: the server's own */
  const char* map_name;  /* null: the server's own */
} tamlog_reader_options;

/* What tamlog_reader_wait saw. */
enum {
  TAMLOG_NOP = 0,
  TAMLOG_APPEND = 1,  /* messages were added behind all others */
  TAMLOG_REWRITE = 2, /* messages were inserted among others, or the whole log was written again */
  TAMLOG_CLEARED = 3, /* the log was emptied */
  TAMLOG_STOPPED = 4, /* the server closed the log; the reader has let go of it, and waits for it */
  TAMLOG_REOPENED = 5 /* the log is back */
};

/* What tamlog_reader_next gave. */
enum {
  TAMLOG_ITEM_MESSAGE = 0,
  TAMLOG_ITEM_LOST = 1, /* messages were gone before they could be read: lost_least to lost_most */
  TAMLOG_ITEM_CLEARED = 2,
  TAMLOG_ITEM_STOPPED = 3,
  TAMLOG_ITEM_REOPENED = 4,
  TAMLOG_ITEM_BLOCKED = 5 /* the log could not be entered in time; the reader goes on trying */
};

typedef struct tamlog_item {
  uint32_t size;
  int32_t kind;
  uint64_t lost_least;
  uint64_t lost_most;     /* UINT64_MAX: no limit is known */
  tamlog_message message; /* of TAMLOG_ITEM_MESSAGE; its size does not need to be set */
} tamlog_item;

typedef struct tamlog_log_info {
  uint32_t size;
  uint32_t server_running;
  uint32_t message_count;
  uint32_t capacity;      /* in effect */
  uint64_t change_count;  /* raised with every change */
  uint64_t rewrite_count; /* raised when slots that held messages were written again */
  uint64_t next_sequence;
  uint32_t damaged;   /* messages that break a rule of the file */
  uint32_t reordered; /* 1: the ring's order was not the order of time */
} tamlog_log_info;

/* Copies the running server's log. A reader that only takes snapshots holds nothing between its calls; from
 * its first wait or next on it does, and has a thread that lets go of the log when the server stops, which
 * waits for its readers. `options` may be null. TAMLOG_DAMAGED opens all the
 * same. Never end a process or thread that is inside a call: a reader that dies there stops the server's
 * writing. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_open_live(const tamlog_reader_options* options,
                                                             tamlog_reader** reader);
/* Reads a file as a whole; nothing is locked or kept open. TAMLOG_DAMAGED opens all the same: the messages
 * that could be read are there. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_open_file(const char* path, tamlog_reader** reader);
TAMLOG_API void TAMLOG_CALL tamlog_reader_close(tamlog_reader* reader);

/* Copies the log anew: one short access to the shared file, then no lock. Index 0 is the oldest message. A
 * file is read again. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_snapshot(tamlog_reader* reader, uint32_t timeout_ms);
TAMLOG_API uint32_t TAMLOG_CALL tamlog_reader_count(const tamlog_reader* reader);
/* TAMLOG_END behind the last message. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_get_message(const tamlog_reader* reader, uint32_t index,
                                                               tamlog_message* message);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_get_info(const tamlog_reader* reader,
                                                            tamlog_log_info* info);
/* What is wrong with a damaged file; empty when nothing is. Belongs to the reader until its next call. */
TAMLOG_API const char* TAMLOG_CALL tamlog_reader_remark(const tamlog_reader* reader);

/* Gives the next message or event, in the order in which they come: losses are items, with their size. A live
 * reader begins behind the messages of the last snapshot before its first wait or next, and goes on over
 * stops of the server; a file begins with its oldest message and ends with TAMLOG_END. TAMLOG_TIMED_OUT:
 * nothing yet, call again. Any other status is an error that does not go away by itself: close the reader. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_next(tamlog_reader* reader, uint32_t timeout_ms,
                                                        tamlog_item* item);
/* Waits until the log changes, and says how; what came is left for next. TAMLOG_NOP: nothing in that time. A
 * file gives TAMLOG_END. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_wait(tamlog_reader* reader, uint32_t timeout_ms,
                                                        int32_t* change);

/* The log in place; valid inside the function that tamlog_reader_with_view calls. Slot i is the 560 bytes at
 * slots + 560 * i, as docs/log_file_format.md describes them; the newest message lies before next_slot. */
typedef struct tamlog_view {
  uint32_t size;
  uint32_t capacity;
  uint32_t message_count;
  uint32_t next_slot;
  const uint8_t* slots;
  const void* internal;
} tamlog_view;

typedef void(TAMLOG_CALL* tamlog_view_function)(void* context, const tamlog_view* view);

/* DANGEROUS; tamlog_reader_snapshot is the normal way to read. Calls `look` with the log in place, on this
 * thread. While it runs the server cannot write, and if it never returns, never again: it must not print,
 * wait, allocate, throw, or call this library but for tamlog_view_is_spent, and has to return within
 * `budget_us`. It may be called again, with a fresh view, when the server wrote meanwhile: each call begins
 * anew. TAMLOG_TIMED_OUT also when it overran its budget. Live readers only. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_with_view(tamlog_reader* reader, uint32_t budget_us,
                                                             tamlog_view_function look, void* context);
/* 1 when the time that was asked for is over, else 0. */
TAMLOG_API int32_t TAMLOG_CALL tamlog_view_is_spent(const tamlog_view* view);

/* Cursors: a message remembered as text, over restarts, rewrites and moved files. `capacity` of 128 is always
 * enough. Of message `index` of the snapshot, or of the message that next gave last (TAMLOG_END before the
 * first). */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_get_cursor(const tamlog_reader* reader, uint32_t index,
                                                              char* buffer, uint64_t capacity,
                                                              uint64_t* length);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_last_cursor(const tamlog_reader* reader, char* buffer,
                                                               uint64_t capacity, uint64_t* length);
/* Takes a snapshot and lets next go on behind the cursor's message. TAMLOG_NOT_FOUND: that message is gone;
 * next goes on with the first that is dated later. TAMLOG_BAD_ARGUMENT: no cursor. A null cursor: next begins
 * with the oldest message. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_seek(tamlog_reader* reader, const char* cursor);
/* Whether the cursor's message is in the snapshot: TAMLOG_OK or TAMLOG_NOT_FOUND. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_reader_test_cursor(const tamlog_reader* reader,
                                                               const char* cursor);

/* ---- Verifying and repairing files ----------------------------------------------------------------------
 */

/* What a file is examined for. A server that finds damage at its start empties the whole log. Remarks are
 * what a server or a sender does write, although it is odd; only a reversed block costs the log as well. */
enum {
  /* Damage. */
  TAMLOG_RULE_HEADER_COMPLETE = 0, /* the file is long enough for header and lock names */
  TAMLOG_RULE_NOT_NEGATIVE = 1,    /* the header's count, capacity and next slot are 0 or more */
  TAMLOG_RULE_INSIDE_RING = 2,     /* the count is at most the capacity, the next slot less than it */
  TAMLOG_RULE_SLOTS_IN_FILE = 3,   /* every slot that holds a message lies in the file */
  TAMLOG_RULE_NEWEST_FIRST = 4,    /* from the newest message to the oldest the times never rise */
  TAMLOG_RULE_TEXT_ENDS = 5,       /* the text ends with a zero byte inside its field */
  TAMLOG_RULE_SOURCE_ENDS = 6,     /* and so does the source */
  TAMLOG_RULE_KNOWN_TYPE = 7,      /* the type is one of the four */
  /* Remarks. */
  TAMLOG_RULE_REVERSED_BLOCK = 8,    /* the oldest part of the ring lies newest first */
  TAMLOG_RULE_IMPOSSIBLE_DATE = 9,   /* no date of the calendar or time of the day */
  TAMLOG_RULE_DUPLICATE = 10,        /* all bytes of another message once more */
  TAMLOG_RULE_SEQUENCE = 11,         /* a number that is there twice, or was not given yet */
  TAMLOG_RULE_BYTES_AFTER_END = 12,  /* the file is longer than its capacity asks for */
  TAMLOG_RULE_EMPTY_SLOTS_GONE = 13, /* it is shorter, but only slots without messages are missing */
  TAMLOG_RULE_READERS_INSIDE = 14,   /* the count of readers is not 0 */
  TAMLOG_RULE_NOT_CLOSED = 15,       /* the mark of a running server is set */
  TAMLOG_RULE_LOCK_NAMES = 16,       /* a lock name without end; a server writes them anew */
  TAMLOG_RULE_EMPTY_FILE = 17,       /* no bytes: a server makes a new log of it */
  TAMLOG_RULES = 18                  /* grows when rules are added */
};
enum { TAMLOG_MOST_RULES = 24 };

/* The rule's name in reports, for example "newest-first"; it never changes. Never null: "unknown-rule". */
TAMLOG_API const char* TAMLOG_CALL tamlog_rule_name(int32_t rule);

#define TAMLOG_NO_SLOT UINT32_MAX

/* A rule that is broken; valid inside the function that it is given to, with its texts. */
typedef struct tamlog_finding {
  uint32_t size;
  int32_t rule;
  uint32_t damage; /* 1: damage, 0: a remark */
  uint32_t slot;   /* TAMLOG_NO_SLOT: about the file as a whole */
  uint64_t offset; /* of the field, in the file */
  const char* name;
  const char* seen;    /* the value, for example "type 77" */
  const char* allowed; /* for example "0 to 3" */
} tamlog_finding;

/* 0: go on; anything else: give no more (all are counted nevertheless). */
typedef int32_t(TAMLOG_CALL* tamlog_finding_function)(void* context, const tamlog_finding* finding);

typedef struct tamlog_verify_options {
  uint32_t size;
  uint32_t live; /* 1: the image of a running server's log: readers inside and its mark are as usual */
  uint64_t most; /* findings of one rule that are given; 0: 20 */
  tamlog_finding_function found; /* null: only count */
  void* context;
} tamlog_verify_options;

typedef struct tamlog_verify_result {
  uint32_t size;
  uint32_t accepted;   /* 1: a server with the file's capacity keeps the messages */
  uint64_t file_bytes; /* the size of the file */
  uint64_t slots;      /* whole ones that are there, whatever the header says */
  uint64_t damage;     /* findings, given or not */
  uint64_t remarks;
  uint64_t count[TAMLOG_MOST_RULES]; /* findings by rule */
} tamlog_verify_result;

/* Examines a file, or the bytes of one, and goes on after each finding. Nothing is locked or changed.
 * TAMLOG_OK: no damage (look at `accepted`). TAMLOG_DAMAGED: there is; `result` is filled as well. `options`
 * may be null. `found` is called on this thread when everything has been examined, header first, then oldest
 * slot first. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_verify_file(const char* path,
                                                        const tamlog_verify_options* options,
                                                        tamlog_verify_result* result);
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_verify_image(const void* bytes, uint64_t length,
                                                         const tamlog_verify_options* options,
                                                         tamlog_verify_result* result);

enum {
  TAMLOG_REPAIR_CARVE =
      1, /* also messages outside the ring (after a clear) and at places that are no slots */
  TAMLOG_REPAIR_UNIQUE = 2, /* leave out what is there twice, byte for byte */
  TAMLOG_REPAIR_REPLACE = 4 /* replace an output that exists already */
};

/* Of tamlog_repair_note. */
enum {
  TAMLOG_NOTE_BLANK = 0,      /* lost: zeros where a message should be */
  TAMLOG_NOTE_TEXT_ENDS = 1,  /* lost: a text has no end, and the time is no date */
  TAMLOG_NOTE_KNOWN_TYPE = 2, /* lost: the type does not exist, and nothing else says that it was a message */
  TAMLOG_NOTE_MISSING = 3,    /* lost: behind the end of the file */
  TAMLOG_NOTE_NOT_MESSAGE = 4, /* lost: bytes between messages that are none */
  TAMLOG_NOTE_TEXT_CUT = 5,    /* saved: a text without end was given one */
  TAMLOG_NOTE_TYPE_CHANGED = 6 /* saved: of a type that does not exist the two lowest bits were kept */
};

/* What could not be saved, or only changed; valid inside the function that it is given to, with its text. */
typedef struct tamlog_repair_note {
  uint32_t size;
  int32_t kind;
  uint32_t saved;  /* 1: the message is in the output, changed; 0: it is lost */
  uint32_t slot;   /* TAMLOG_NO_SLOT: not at a slot's place */
  uint64_t offset; /* in the damaged file */
  uint64_t bytes;
  uint64_t messages; /* at most that many; 1 for a message that was saved */
  const char* text;  /* the kind in words, for example "type 77 became 1" */
} tamlog_repair_note;

/* 0: go on; anything else: give no more. */
typedef int32_t(TAMLOG_CALL* tamlog_repair_function)(void* context, const tamlog_repair_note* note);

typedef struct tamlog_repair_options {
  uint32_t size;
  uint32_t flags;
  uint32_t capacity;           /* of the output; 0: the damaged file's own, and room for all */
  uint32_t reserved;           /* 0 */
  uint64_t most;               /* notes of losses, and as many of changes, that are given; 0: 20 */
  tamlog_repair_function note; /* null: only count */
  void* context;
} tamlog_repair_options;

typedef struct tamlog_repair_result {
  uint32_t size;
  uint32_t capacity;      /* of the output: a server keeps the messages when it is set to this */
  uint64_t saved;         /* messages in the output */
  uint64_t carved;        /* of those that were found: outside the ring */
  uint64_t texts_cut;     /* of those that were found: saved with a text that was given an end */
  uint64_t types_changed; /* of those that were found: saved with another type */
  uint64_t repeated;      /* left out: there twice (TAMLOG_REPAIR_UNIQUE) */
  uint64_t left_out;      /* the oldest, for which the capacity asked for has no room */
  uint64_t outside; /* not touched without TAMLOG_REPAIR_CARVE: messages that the header does not count */
  uint64_t lost;    /* messages at most */
  uint32_t header_trusted; /* 0: it made no sense, and every slot was looked at */
  uint32_t reserved;
} tamlog_repair_result;

/* Writes what can be saved of the file at `path` into a new one at `output`, in order of time, so that a
 * server accepts it. Never in place: the damaged file is only read, and an output that is the same file is a
 * TAMLOG_BAD_ARGUMENT. The output comes into being as a whole or not at all. TAMLOG_OK also when messages
 * were lost: `result` and `note` tell; `note` is called on this thread when the output stands, losses first.
 * TAMLOG_EXISTS and TAMLOG_OUTPUT_FAILED are about the output, all other codes about the damaged file. */
TAMLOG_API tamlog_status TAMLOG_CALL tamlog_repair_file(const char* path, const char* output,
                                                        const tamlog_repair_options* options,
                                                        tamlog_repair_result* result);

#ifdef __cplusplus
}
#endif

/* TAMLOG_INIT(&options): sets all members to 0, and `size`. */
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
