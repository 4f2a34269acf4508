#pragma once

// This machine's clock.

#include "client/message/time_text.h"

namespace TamLogClient {

// Returns the local time to the millisecond. May be called from any thread.
TimeWords LocalNow();

}  // namespace TamLogClient
