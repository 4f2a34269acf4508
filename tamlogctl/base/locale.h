#pragma once

// The machine's defaults for texts and times. One implementation per operating system.

#include "client/message/text_encoding.h"
#include "client/message/time_text.h"

namespace TamLogCtl {

// Returns the encoding of texts when the user names none: a text that is valid UTF-8 is read as UTF-8; any
// other by the ANSI code page on Windows, where that has one byte a character. On other systems such a text
// has no known encoding.
TamLogClient::TextEncoding DefaultEncoding();

// Returns the minutes by which local time is ahead of UTC at `local`, a time of the local calendar that
// exists there. For a time that the clock shows twice or never: one of the two offsets around it.
int OffsetOfLocalTime(const TamLogClient::TimeWords& local);

// Returns the same at a moment in UTC.
int OffsetAtUtc(const TamLogClient::TimeWords& utc);

}  // namespace TamLogCtl
