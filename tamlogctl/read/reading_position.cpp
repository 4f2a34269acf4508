#include "tamlogctl/read/reading_position.h"

#include <algorithm>

#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

using TamLogClient::FollowStep;
using TamLogClient::LogSnapshot;

std::optional<ReadingPosition> ReadingPosition::Make(const ReadingOptions& options, int& exitCode) {
  ReadingPosition position(options);
  exitCode = options.cursorFile.empty() ? kDone
                                        : ReadCursorFile(options.cursorFile, position.start, position.stored);
  if (exitCode != kDone) return std::nullopt;
  if (!options.afterCursor.empty()) {
    position.start.cursor = TamLogClient::ParseCursor(options.afterCursor);
    if (!position.start.cursor) {
      exitCode = Refuse(
          kUsage, "--after-cursor '" + options.afterCursor + "': is not a cursor; --show-cursor prints one");
      return std::nullopt;
    }
  }
  return position;
}

std::vector<const LogMessage*> ReadingPosition::Beyond(const LogSnapshot& snapshot) {
  std::vector<const LogMessage*> messages;
  for (const auto& entry : start.held) messages.push_back(&entry.message);
  for (const std::uint32_t slot : SlotsBeyond(snapshot)) messages.push_back(&snapshot.slots[slot]);
  if (!start.held.empty()) {
    std::stable_sort(messages.begin(), messages.end(), [](const LogMessage* left, const LogMessage* right) {
      return TimeKey(left->body) < TimeKey(right->body);
    });
  }
  return messages;
}

std::vector<std::uint32_t> ReadingPosition::SlotsBeyond(const LogSnapshot& snapshot) {
  std::vector<std::uint32_t> slots = OrderMessages(snapshot).oldestFirst;
  const EventReporter reporter = options->Reporter();
  if (start.memory) {
    follower.Resume(*start.memory);
    const FollowStep step = follower.Next(snapshot, true);
    if (step.cleared) reporter.ReportCleared();
    if (step.loss.Any()) reporter.ReportLost(step.loss);
    slots.clear();
    for (const auto& message : step.messages) slots.push_back(message.slot);
    return slots;
  }
  follower.Start(snapshot);
  if (!start.cursor) return slots;
  const auto place = FindCursor(snapshot, slots, *start.cursor);
  if (!place.found) reporter.ReportCursorGone();
  if (place.writtenBefore) reporter.ReportLateSkipped();
  slots.erase(slots.begin(), slots.begin() + static_cast<std::ptrdiff_t>(place.next));
  return slots;
}

int ReadingPosition::Keep(const LogSnapshot& snapshot, const TamLogClient::FollowerMemory& memory,
                          const HeldMessages& held, const std::optional<FilePlace>& place) {
  if (options->cursorFile.empty()) return kDone;
  stored = MakeCursorFileText(snapshot, memory, held);
  return KeepPlace(place);
}

int ReadingPosition::KeepPlace(const std::optional<FilePlace>& place) {
  stored.place = place;
  return options->cursorFile.empty() ? kDone : WriteCursorFile(options->cursorFile, stored);
}

void ReadingPosition::ShowCursor(const LogSnapshot& snapshot) const {
  if (!options->showCursor) return;
  const auto order = OrderMessages(snapshot).oldestFirst;
  if (!order.empty()) {
    TamLogClient::Cursor cursor = CursorOf(snapshot, order, order.size() - 1);
    cursor.hint = TamLogClient::HintOf(snapshot.header);  // --after-cursor reports late messages by it
    options->Reporter().ReportCursor(FormatCursor(cursor));
  }
}

}  // namespace TamLogCtl
