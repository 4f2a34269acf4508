#pragma once

// What this machine takes for granted about texts and times. One implementation per operating system.

#include "client/message/text_encoding.h"
#include "client/message/time_text.h"

namespace TamLogCtl {

// How texts are read when nobody says how: as UTF-8 where they are UTF-8, else on Windows by the ANSI code
// page. (Code pages of two bytes a character are not read; elsewhere there is nothing to go by.)
TamLogClient::TextEncoding DefaultEncoding();

// The minutes by which this machine's time is ahead of UTC at a local time, which is a real one. Of a time
// that the clock shows twice or never, one of the two offsets around it.
int OffsetOfLocalTime(const TamLogClient::TimeWords& local);

}  // namespace TamLogCtl
