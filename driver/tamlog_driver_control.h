#pragma once

/* The control codes of the driver double and its record of counters, shared by the driver (C, kernel) and the
 * programs that send it messages (C++, user).
 *
 * The driver double stands in for the imaging software's kernel driver in development, demonstrations and
 * tests. Only TAMLOG_IOCTL_GET_MESSAGE belongs to the interface of the real driver; the other codes are the
 * double's own and the server never uses them. All codes: device type 0x22, buffered, no particular access.
 */

/* C as well as C++ reads this header. NOLINTBEGIN(modernize-deprecated-headers,modernize-use-using) */

#include <stdint.h>

/* One message in the sender's form, see records/log_file_format.h (`LogMessageBody`). */
#define TAMLOG_MESSAGE_SIZE 546u

/* Removes and returns the oldest message of the queue, TAMLOG_MESSAGE_SIZE bytes. Fails when the queue is
 * empty, when the buffer is smaller than a message (the message then stays), and while a failure is set. */
#define TAMLOG_IOCTL_GET_MESSAGE 0x00222004u

/* Input: one or more messages, appended to the queue in their order; all of them or, on failure, none. */
#define TAMLOG_IOCTL_PUT_MESSAGES 0x00222008u

/* Input: a 32-bit NTSTATUS. Every later get fails with it and leaves the queue unchanged; 0 ends this.
 * A status that is not an error or a warning (top bit clear) is refused. */
#define TAMLOG_IOCTL_SET_FAILURE 0x0022200Cu

/* Output: a TamLogDriverCounters, taken at one moment. */
#define TAMLOG_IOCTL_READ_COUNTERS 0x00222010u

/* Empties the queue, ends a failure that was set, and zeroes every counter but `openHandles` and `opens`. */
#define TAMLOG_IOCTL_RESET 0x00222014u

typedef struct TamLogDriverCounters {
  uint32_t queued;      /* messages in the queue now */
  uint32_t served;      /* gets that returned a message */
  uint32_t failed;      /* gets that failed for any reason */
  uint32_t openHandles; /* handles to the device that are open now, the caller's own included */
  uint32_t opens;       /* handles opened since the driver was loaded */
  uint32_t put;         /* messages appended */
} TamLogDriverCounters;

/* NOLINTEND(modernize-deprecated-headers,modernize-use-using) */
