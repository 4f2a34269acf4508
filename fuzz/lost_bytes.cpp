// Fuzzes the repair of files that lost or gained bytes against its promise (docs/tamlogctl.md, "repair"):
//
// - A file whose bytes are all as a server writes them is taken as it stands.
// - Of any other file, every message with a date that no change touched is saved; if whole slots were lost or
//   added in addition to other bytes, some of them only with `carve`, and they are counted.
//
// Input: capacity, messages and kind, then the changes: a place (2 bytes), a length (2), and what fills it
// (2): below 256 a byte that is added, otherwise bytes are removed.

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
#include "client/file/server_traces.h"
#include "client/file/slot_layout.h"
#include "fuzz/input.h"

namespace {

using Fuzz::Require;
using TamLogClient::kNeededOfSlot;
using TamLogClient::kSlotSize;
using TamLogClient::LogFileImage;
using TamLogClient::LooksLikeMessage;
using TamLogClient::RepairPlan;

struct Kind {
  bool countsInTails = false;  // like a server's numbers
  bool isRewritten = false;    // all numbers are 0
  bool hasLongTexts = false;   // and sources
  bool isHalfUndated = false;  // the older half of the ring
};

struct Head {
  std::uint8_t capacity;
  std::uint8_t messages;
  std::uint8_t kind;  // see Kind

  std::size_t Changes() const { return kind % 4U + ((kind & 32U) != 0 ? 4U : 0U); }
  Kind KindOfLog() const {
    return {(kind & 4U) != 0, (kind & 8U) != 0, (kind & 16U) != 0, (kind & 64U) != 0};
  }
};

struct Change {
  std::uint16_t at;
  std::uint16_t length;
  std::uint16_t filling;
};

// The tails are different, so that no two messages are the same.
LogMessage MessageOf(std::uint32_t number, const Kind& kind, bool isDated) {
  LogMessage message{};
  message.sequence = kind.isRewritten ? 0 : number;
  const std::int16_t words[8] = {
      2026, 1, 1, 0, static_cast<std::int16_t>(number / 60), static_cast<std::int16_t>(number % 60), 0, 0};
  if (isDated) std::memcpy(message.body.timestamp, words, sizeof(words));
  message.body.type = number % kMessageTypes;
  const std::size_t most = kTextSize - 1 - number % 3;
  std::memset(message.body.source, 's', kind.hasLongTexts ? most : 1 + number % 9);
  std::memset(message.body.text, static_cast<int>('a' + number % 26),
              kind.hasLongTexts ? most : 1 + number * 31 % 200);
  const std::uint32_t tail = kind.countsInTails ? number : ~number;
  std::memcpy(message.body.tail, &tail, sizeof(tail));
  return message;
}

std::string MakeLog(std::uint32_t capacity, std::uint32_t messages, const Kind& kind) {
  std::string bytes(LogFileSize(capacity), '\0');
  LogFileHeader header{};
  header.maxMessages = static_cast<std::int32_t>(capacity);
  header.messageCount = static_cast<std::int32_t>(std::min(capacity, messages));
  header.nextSlot = static_cast<std::int32_t>(messages % capacity);
  header.changeCount = 2;
  header.rewriteCount = kind.isRewritten ? 2 : 1;
  header.nextSequence = messages;
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::strcpy(bytes.data() + kLockNamesOffset, kHeaderLockName);
  for (std::uint32_t i = 0; i < messages; ++i) {
    const bool isDated = !kind.isHalfUndated || i + std::min(capacity, messages) / 2 >= messages;
    const LogMessage message = MessageOf(i, kind, isDated);
    std::memcpy(bytes.data() + LogFileImage::OffsetOf(i % capacity), &message, sizeof(message));
  }
  return bytes;
}

std::string BodyOf(const LogMessage& message) {
  return {reinterpret_cast<const char*>(&message.body), sizeof(message.body)};
}

// Changes the bytes from the end to the beginning, so that places stay those of the whole log.
std::vector<Change> Apply(std::vector<Change> changes, std::string& bytes) {
  std::sort(changes.begin(), changes.end(),
            [](const Change& left, const Change& right) { return left.at > right.at; });
  std::vector<Change> applied;
  for (Change change : changes) {
    change.length = static_cast<std::uint16_t>(1 + change.length % (2 * kSlotSize));
    const std::size_t end = change.at + (change.filling < 256 ? 0U : change.length);
    const std::size_t limit = applied.empty() ? bytes.size() : applied.back().at;
    if (change.at < sizeof(LogFileHeader) || end > limit) continue;
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

// Returns whether slots moved by whole slots, and that is not all that changed. They are then at the places
// of other slots, and the size of the file does not show the move: messages after the end of the ring may as
// well be what a clear left there, which only carving saves.
bool MovedUnseen(const std::vector<Change>& changes) {
  std::int64_t moved = 0;
  return changes.size() > 1 && std::any_of(changes.rbegin(), changes.rend(), [&moved](const Change& change) {
           moved += change.filling < 256 ? change.length : -std::int64_t{change.length};
           return moved != 0 && moved % static_cast<std::int64_t>(kSlotSize) == 0;
         });
}

std::set<std::string> Saved(const LogFileImage& image, const RepairPlan& plan) {
  std::set<std::string> saved;
  for (const auto& message : plan.oldestFirst) saved.insert(BodyOf(SavedMessageOf(image, message)));
  return saved;
}

// Returns the messages of the ring. A slot of zeros holds no message, even with a number.
std::set<std::string> RingOf(const LogFileImage& image) {
  std::set<std::string> bodies;
  for (const std::uint32_t slot : image.RingSlots()) bodies.insert(BodyOf(image.Slot(slot)));
  bodies.erase(BodyOf({}));
  return bodies;
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
  std::string bytes = MakeLog(capacity, messages, head.KindOfLog());
  const LogFileImage whole(bytes);
  const auto slots = whole.RingSlots();
  std::vector<Change> changes(head.Changes());
  for (Change& change : changes) change = input.Take<Change>();
  std::string changed = bytes;
  changes = Apply(changes, changed);

  const LogFileImage image(changed);
  CheckLayout(image);
  const RepairPlan plan = PlanRepair(image);
  const auto saved = Saved(image, plan);
  if (RingIsPlain(image)) {
    Require(saved == RingOf(image));
    Require(!changes.empty() || VerifyLogFile(image, {.most = 1, .remarks = false}).Damage() == 0);
    return 0;
  }
  Require(!changes.empty());
  const auto carved = Saved(image, PlanRepair(image, {.carve = true}));
  std::uint64_t missing = 0;
  for (const std::uint32_t slot : slots) {
    if (IsTouched(slot, changes) || !LooksLikeMessage(whole.Slot(slot))) continue;
    const std::string body = BodyOf(whole.Slot(slot));
    Require(carved.contains(body));
    missing += saved.contains(body) ? 0U : 1U;
  }
  Require(missing == 0 || (MovedUnseen(changes) && missing <= plan.outside));
  return 0;
}
