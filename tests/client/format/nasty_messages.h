#pragma once

// One fixed set of messages that are hard on a formatter. Golden files and outside readers see the same set.

#include <vector>

#include "records/log_file_format.h"

namespace TamLogTest {

// In the order of their times; sequence numbers from 4711 on.
std::vector<LogMessage> NastyMessages();

}  // namespace TamLogTest
