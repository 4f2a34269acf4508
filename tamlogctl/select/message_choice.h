#pragma once

// Chooses among messages and orders them.

#include <cstddef>
#include <optional>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

// Returns the indices of the last `last` messages that `wanted` accepts, or of all of them if `last` is
// empty; newest first.
std::vector<std::size_t> ChooseLast(const std::vector<const LogMessage*>& oldestFirst,
                                    const MessageSelection& wanted, const std::optional<std::size_t>& last);

// Returns the indices `chosen` and those of up to `before` and `after` neighbours of each, once each. Both
// lists are newest first. `count` is the number of all messages.
std::vector<std::size_t> WithContext(const std::vector<std::size_t>& chosen, std::size_t count,
                                     std::size_t before, std::size_t after);

// Sorts messages of several logs by time. Equal times keep their order.
void SortByTime(std::vector<const LogMessage*>& messages);

}  // namespace TamLogCtl
