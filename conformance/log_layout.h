/* The bytes of the log file and of the pipe records as plain C, for programs that read and write them.
 *
 * docs/log_file_format.md and docs/pipe_protocol.md describe the fields. Include this file, or translate it:
 * it stands alone, and nothing in it depends on a compiler's packing. Every offset is in bytes from the
 * beginning of what the comment above it names. All integers are little-endian; s16, s32: signed; u8, u32,
 * u64: unsigned. A test compares each number with the layout of the server.
 */
#ifndef TAMLOG_LOG_LAYOUT_H
#define TAMLOG_LOG_LAYOUT_H

/* The file: header, three lock names, slots. */
#define TAMLOG_HEADER_OFFSET 0
#define TAMLOG_HEADER_SIZE 48
#define TAMLOG_LOCK_NAMES_OFFSET 48
#define TAMLOG_LOCK_NAME_SIZE 64 /* with the terminating zero */
#define TAMLOG_LOCK_NAMES 3      /* header lock, read-wait, write-wait */
#define TAMLOG_SLOTS_OFFSET 240
#define TAMLOG_SLOT_SIZE 560

/* The header. */
#define TAMLOG_READ_COUNT 0     /* s32: readers that hold read access */
#define TAMLOG_SERVER_RUNNING 4 /* u8: 1 while the server has the file open */
#define TAMLOG_MESSAGE_COUNT 8  /* s32: slots that hold messages */
#define TAMLOG_MAX_MESSAGES 12  /* s32: capacity in slots */
#define TAMLOG_NEXT_SLOT 16     /* s32: slot that the next message is written to */
#define TAMLOG_CHANGE_COUNT 24  /* u64 */
#define TAMLOG_REWRITE_COUNT 32 /* u64 */
#define TAMLOG_NEXT_SEQUENCE 40 /* u64: number of the next appended message */

/* A slot: a number, and the message as its sender submitted it. */
#define TAMLOG_SLOT_SEQUENCE 0 /* u64 */
#define TAMLOG_SLOT_BODY 8
#define TAMLOG_BODY_SIZE 546

/* The message as its sender submits it. */
#define TAMLOG_BODY_ORIGIN 0 /* 8 bytes */
#define TAMLOG_ORIGIN_SIZE 8
#define TAMLOG_BODY_TIMESTAMP 8 /* 8 x s16: year, month, day, hour, minute, second, millisecond, spare */
#define TAMLOG_BODY_TYPE 24     /* u32: 0 to 3 */
#define TAMLOG_BODY_SOURCE 28   /* 257 bytes with the terminating zero */
#define TAMLOG_BODY_TEXT 285    /* 257 bytes with the terminating zero */
#define TAMLOG_TEXT_SIZE 257
#define TAMLOG_BODY_TAIL 542 /* 4 bytes */
#define TAMLOG_TAIL_SIZE 4
#define TAMLOG_TYPES 4

/* A request and a reply of the pipes: a code, and a body by code. */
#define TAMLOG_RECORD_SIZE 1028
#define TAMLOG_RECORD_CODE 0 /* u32 */
#define TAMLOG_RECORD_BODY 4
#define TAMLOG_RECORD_BODY_SIZE 1024

/* Bodies, from the beginning of the record. */
#define TAMLOG_RECORD_MESSAGE 4          /* TAMLOG_BODY_SIZE bytes */
#define TAMLOG_RECORD_MAX_MESSAGE 4      /* u32: messages */
#define TAMLOG_RECORD_DEVICE_POLL_RATE 8 /* u32: milliseconds */
#define TAMLOG_RECORD_TYPE_FILTER 12     /* u32: bit i: messages of type i are kept */
#define TAMLOG_RECORD_SAVE_RATE 16       /* u32: seconds */
#define TAMLOG_RECORD_PATH 4             /* text with its terminating zero */
#define TAMLOG_RECORD_INDEX 4            /* u32: number of a filter */
#define TAMLOG_RECORD_FILTER_TEXT 4      /* 128 bytes with the terminating zero */
#define TAMLOG_FILTER_TEXT_SIZE 128
#define TAMLOG_RECORD_FILTER_KIND 132 /* u32: not 0 include, 0 exclude */

/* Request codes. */
#define TAMLOG_GET_FILE_MAP_NAME 2
#define TAMLOG_SUBMIT_MESSAGE 3
#define TAMLOG_PING 4
#define TAMLOG_GET_SETTINGS 5
#define TAMLOG_SET_SETTINGS 6
#define TAMLOG_GET_LOG_FILE 7
#define TAMLOG_SET_LOG_FILE 8
#define TAMLOG_GET_FILTER 9
#define TAMLOG_CLEAR_FILTERS 10
#define TAMLOG_ADD_FILTER 11
#define TAMLOG_GET_DEFAULT_LOG_FILE 12
#define TAMLOG_CLEAR_LOG 13

/* Reply codes. */
#define TAMLOG_REPLY_TOO_LONG 4
#define TAMLOG_REPLY_UNKNOWN_REQUEST 5
#define TAMLOG_REPLY_FAILED 7
#define TAMLOG_REPLY_NO_SUCH_FILTER 8
#define TAMLOG_REPLY_DONE 11
#define TAMLOG_REPLY_FILE_MAP_NAME 12
#define TAMLOG_REPLY_ALIVE 13
#define TAMLOG_REPLY_SETTINGS 14
#define TAMLOG_REPLY_PATH 15
#define TAMLOG_REPLY_FILTER 16

/* Names. */
#define TAMLOG_REQUEST_PIPE "\\\\.\\pipe\\TamLogServerPipe"
#define TAMLOG_REPLY_PIPE "\\\\.\\pipe\\TamLogServerPipeReply"
#define TAMLOG_FILE_MAP "Global\\TamLogServiceFileMap"
#define TAMLOG_HEADER_LOCK "Global\\TamLogServiceFileHeaderMutex"
#define TAMLOG_READ_WAIT_EVENT "Global\\TamLogServiceReadWaitEvent"
#define TAMLOG_WRITE_WAIT_EVENT "Global\\TamLogServiceWriteWaitEvent"

#endif
