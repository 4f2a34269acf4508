// Fuzzes the repair of files that lost or gained bytes: every message that no change touched is saved.
//
// Input: the capacity, the number of messages and of changes, then the changes: a place (2 bytes), a length
// (2), and what fills it (2): below 256 a byte that is added, otherwise bytes are removed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/file/message_shape.h"
#include "client/file/slot_layout.h"
#include "fuzz/input.h"

namespace {

using Fuzz::Require;
using TamLogClient::kNeededOfSlot;
using TamLogClient::kSlotSize;
using TamLogClient::LogFileImage;

struct Head {
  std::uint8_t capacity;
  std::uint8_t messages;
  std::uint8_t changes;
};

struct Change {
  std::uint16_t at;
  std::uint16_t length;
  std::uint16_t filling;
};

// The tails are different, so that no two messages are the same. They count upwards like the server's numbers
// only if `countingTails`.
LogMessage MessageOf(std::uint32_t number, bool countingTails) {
  LogMessage message{};
  message.sequence = number;
  const std::int16_t words[8] = {
      2026, 1, 1, 0, static_cast<std::int16_t>(number / 60), static_cast<std::int16_t>(number % 60), 0, 0};
  std::memcpy(message.body.timestamp, words, sizeof(words));
  message.body.type = number % kMessageTypes;
  std::memset(message.body.source, 's', 1 + number % 9);
  std::memset(message.body.text, static_cast<int>('a' + number % 26), 1 + number * 31 % 200);
  const std::uint32_t tail = countingTails ? number : ~number;
  std::memcpy(message.body.tail, &tail, sizeof(tail));
  return message;
}

std::string MakeLog(std::uint32_t capacity, std::uint32_t messages, bool countingTails) {
  std::string bytes(LogFileSize(capacity), '\0');
  LogFileHeader header{};
  header.maxMessages = static_cast<std::int32_t>(capacity);
  header.messageCount = static_cast<std::int32_t>(std::min(capacity, messages));
  header.nextSlot = static_cast<std::int32_t>(messages % capacity);
  header.changeCount = 2;
  header.rewriteCount = 1;
  header.nextSequence = messages;
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::strcpy(bytes.data() + kLockNamesOffset, kHeaderLockName);
  for (std::uint32_t i = 0; i < messages; ++i) {
    const LogMessage message = MessageOf(i, countingTails);
    std::memcpy(bytes.data() + LogFileImage::OffsetOf(i % capacity), &message, sizeof(message));
  }
  return bytes;
}

std::string BodyOf(const LogMessage& message) {
  return {reinterpret_cast<const char*>(&message.body), sizeof(message.body)};
}

// Changes the bytes from the end to the beginning, so that places stay those of the whole log. Changes stand
// apart, because two in one slot leave nothing to tell them apart by.
std::vector<Change> Apply(std::vector<Change> changes, std::string& bytes) {
  std::sort(changes.begin(), changes.end(),
            [](const Change& left, const Change& right) { return left.at > right.at; });
  std::vector<Change> applied;
  for (Change change : changes) {
    change.length = static_cast<std::uint16_t>(1 + change.length % (2 * kSlotSize));
    const std::size_t end = change.at + (change.filling < 256 ? 0U : change.length);
    const std::size_t limit =
        applied.empty() ? bytes.size()
                        : applied.back().at - std::min<std::size_t>(applied.back().at, 4 * kSlotSize);
    if (change.at < kSlotsOffset || end > limit) continue;
    if (change.filling < 256) {
      bytes.insert(change.at, change.length, static_cast<char>(change.filling));
    } else {
      bytes.erase(change.at, change.length);
    }
    applied.push_back(change);
  }
  return applied;
}

bool IsTouched(std::uint64_t slot, const std::vector<Change>& changes) {
  const std::uint64_t first = LogFileImage::OffsetOf(slot) + offsetof(LogMessage, body);
  const std::uint64_t end = LogFileImage::OffsetOf(slot) + kNeededOfSlot;
  return std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
    const std::uint64_t removed = change.filling < 256 ? 0 : change.length;
    return change.at < end && change.at + removed > first;
  });
}

// Returns whether whole slots were added or removed, and other bytes as well. The slots are then still at the
// places of slots, and the size of the file does not show the move: messages after the end of the ring may as
// well be what a clear left there, which only carving saves.
bool MovedUnseen(const std::vector<Change>& changes) {
  return changes.size() > 1 && std::any_of(changes.begin(), changes.end(), [](const Change& change) {
           return change.length % kSlotSize == 0;
         });
}

void CheckLayout(const LogFileImage& image) {
  std::uint64_t end = 0;
  for (const auto& part : FindLayout(image)) {
    for (const auto& stretch : part.stretches) {
      // Only bytes between two messages may be missing: padding, number, origin, and the first byte of the
      // year, where another one may be taken for it.
      constexpr std::uint64_t kBetween =
          kSlotSize - kNeededOfSlot + offsetof(LogMessage, body) + offsetof(LogMessageBody, timestamp) + 1;
      Require(stretch.offset + kBetween >= end || stretch.slots == 0);
      end = stretch.offset + stretch.slots * kSlotSize;
      Require(end <= image.Size() + kSlotSize);
    }
    for (const auto& gap : part.breaks) Require(gap.offset <= gap.end && gap.end <= image.Size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const auto head = input.Take<Head>();
  const std::uint32_t capacity = 4U + head.capacity % 40U;
  const std::uint32_t messages = 2U + head.messages % (3U * capacity);
  // After slots moved by 10 bytes, such tails are where the numbers were. The size of the file still shows
  // the move of a single change. After several changes the bytes may also be messages without dates, whose
  // senders wrote messages into their texts: then the numbers decide, and wrongly for these tails.
  const bool countingTails = head.changes % 4U <= 1;
  std::string bytes = MakeLog(capacity, messages, countingTails);
  const LogFileImage whole(bytes);
  std::vector<std::string> bodies;
  for (const std::uint32_t slot : whole.RingSlots()) bodies.push_back(BodyOf(whole.Slot(slot)));
  const auto slots = whole.RingSlots();
  std::vector<Change> changes(head.changes % 4U);
  for (Change& change : changes) change = input.Take<Change>();
  changes = Apply(changes, bytes);
  const LogFileImage image(bytes);
  CheckLayout(image);
  std::set<std::string> saved;
  for (const auto& message : PlanRepair(image, {.carve = MovedUnseen(changes)}).oldestFirst)
    saved.insert(BodyOf(SavedMessageOf(image, message)));
  for (std::size_t i = 0; i < slots.size(); ++i)
    Require(IsTouched(slots[i], changes) || saved.contains(bodies[i]));
  Require(!changes.empty() || VerifyLogFile(image, {.most = 1, .remarks = false}).Damage() == 0);
  return 0;
}
