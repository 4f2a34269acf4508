#pragma once

// This machine's local time, as messages carry it. May be called from any thread.

#include "client/message/time_text.h"

namespace TamLogClient {

TimeWords LocalNow();

}  // namespace TamLogClient
