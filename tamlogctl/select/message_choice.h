#pragma once

// Which of many messages are wanted, by their indices.

#include <cstddef>
#include <optional>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

// The last of those that are wanted, or all of them; newest first.
std::vector<std::size_t> ChooseLast(const std::vector<const LogMessage*>& oldestFirst,
                                    const MessageSelection& wanted, const std::optional<std::size_t>& last);

// With the neighbours of each of `chosen`, which is newest first, as is the result. There are `count`
// messages.
std::vector<std::size_t> WithContext(const std::vector<std::size_t>& chosen, std::size_t count,
                                     std::size_t before, std::size_t after);

}  // namespace TamLogCtl
