#include "tamlogctl/select/message_choice.h"

#include <algorithm>

#include "client/message/log_message_view.h"

namespace TamLogCtl {

std::size_t MessageLimit::Of(std::size_t wanted) const {
  return std::min({wanted, last.value_or(wanted), first.value_or(wanted)});
}

std::vector<std::size_t> ChooseMessages(const std::vector<const LogMessage*>& oldestFirst,
                                        const MessageSelection& wanted, const MessageLimit& limit) {
  const std::size_t most = limit.Of(oldestFirst.size());
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < oldestFirst.size() && chosen.size() < most; ++i) {
    const std::size_t index = limit.first ? i : oldestFirst.size() - 1 - i;
    if (wanted.Wants(TamLogClient::LogMessageView(*oldestFirst[index]))) chosen.push_back(index);
  }
  if (limit.first) std::reverse(chosen.begin(), chosen.end());
  return chosen;
}

std::vector<std::size_t> WithContext(const std::vector<std::size_t>& chosen, std::size_t count,
                                     std::size_t before, std::size_t after) {
  if (before == 0 && after == 0) return chosen;
  std::vector<std::size_t> all;
  std::size_t lowest = count;  // indices from here on are decided
  for (const std::size_t index : chosen) {
    const std::size_t end = std::min(index + std::min(after, count) + 1, lowest);
    lowest = std::min(lowest, index - std::min(before, index));
    for (std::size_t i = end; i > lowest; --i) all.push_back(i - 1);
  }
  return all;
}

void SortByTime(std::vector<const LogMessage*>& messages) {
  std::stable_sort(messages.begin(), messages.end(), [](const LogMessage* left, const LogMessage* right) {
    return TimeKey(left->body) < TimeKey(right->body);
  });
}

}  // namespace TamLogCtl
