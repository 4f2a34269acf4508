#pragma once

// Chooses among messages and orders them.

#include <cstddef>
#include <optional>
#include <vector>

#include "records/log_file_format.h"
#include "tamlogctl/select/message_selection.h"

namespace TamLogCtl {

// How many of the wanted messages are taken, and from which end: at most one of the two is set, none for all.
struct MessageLimit {
  std::optional<std::size_t> last;
  std::optional<std::size_t> first;

  // Returns how many of `wanted` messages are taken.
  std::size_t Of(std::size_t wanted) const;
};

// Returns the indices of the messages that `wanted` accepts, as many as `limit` allows; newest first.
std::vector<std::size_t> ChooseMessages(const std::vector<const LogMessage*>& oldestFirst,
                                        const MessageSelection& wanted, const MessageLimit& limit);

// Returns the indices `chosen` and those of up to `before` and `after` neighbours of each, once each. Both
// lists are newest first. `count` is the number of all messages.
std::vector<std::size_t> WithContext(const std::vector<std::size_t>& chosen, std::size_t count,
                                     std::size_t before, std::size_t after);

// Sorts messages of several logs by time. Equal times keep their order.
void SortByTime(std::vector<const LogMessage*>& messages);

}  // namespace TamLogCtl
