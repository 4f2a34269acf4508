#include "tamlogctl/read/newest.h"

#include <algorithm>
#include <limits>

namespace TamLogCtl {

namespace {

using TamLogClient::LogTail;

constexpr std::size_t kFirstRead = 256;
constexpr std::size_t kGrowth = 8;

// Messages of the same time as the first one may have been left out, and equal ones among them: without those
// the numbers in cursors would be wrong.
std::size_t WithAllTwins(const LogTail& tail, std::size_t certain) {
  std::size_t next = certain;
  const auto key = [&tail](std::size_t i) { return TimeKey(tail.messages[i].body); };
  while (next < tail.messages.size() && key(next) == key(certain)) ++next;
  return next;
}

// Returns whether the messages from index `certain` on contain all that is printed. Walks from the newest to
// older ones.
bool Suffices(const ShowOptions& options, const Printer& printer, const LogTail& tail, std::size_t certain) {
  std::size_t wanted = 0;
  std::size_t context = 0;  // messages of context, older than every wanted one
  bool complete = options.limit.last == std::size_t{0};
  for (std::size_t i = tail.messages.size(); i > certain && !(complete && context >= options.before); --i) {
    const LogMessage& message = tail.messages[i - 1];
    if (complete) {
      ++context;
      continue;
    }
    if (printer.Since() && TimeKey(message.body) < *printer.Since()) {
      complete = true;
      ++context;
      continue;
    }
    if (printer.Wants(message)) ++wanted;
    complete = options.limit.last && wanted >= *options.limit.last;
  }
  return complete && context >= options.before;
}

}  // namespace

std::optional<TamLogClient::LogSnapshot> ReadNewest(const ShowOptions& options, const Printer& printer,
                                                    const ReadTail& read) {
  if ((!options.limit.last && !printer.Since()) || options.limit.first || options.count ||
      options.showCursor || !options.cursorFile.empty() || !options.afterCursor.empty()) {
    return std::nullopt;
  }
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  const std::size_t lines = std::min(options.limit.last.value_or(0), kMost) + std::min(options.before, kMost);
  for (std::size_t count = std::max(kFirstRead, 2 * lines);; count *= kGrowth) {
    LogTail tail;
    if (!read(count, tail)) return std::nullopt;
    auto certain = CertainFrom(tail);
    if (!certain) return std::nullopt;
    if (!tail.whole) certain = WithAllTwins(tail, *certain);
    if (tail.whole || Suffices(options, printer, tail, *certain)) return SnapshotOf(tail, *certain);
    // From half of the log on, one read of the whole log is faster.
    if (count * kGrowth > static_cast<std::size_t>(tail.header.messageCount) / 2) return std::nullopt;
  }
}

}  // namespace TamLogCtl
