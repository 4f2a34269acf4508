#include "client/file/slot_layout.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "client/file/message_shape.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

// The largest capacity that the pipe sets. A larger one comes from a registry value set by hand.
constexpr std::int32_t kMostConfigurable = 1000000;

// The lock names in a file that a server opened.
constexpr std::string_view kNamesBegin = "Global\\";

// The bytes at a place where a slot is expected.
struct Seen {
  bool complete = false;  // inside the file
  bool isBlank = false;
  bool isMessage = false;
  bool isNamed = false;        // and its source is a name
  bool passes = false;         // a server accepts type and texts, whatever the time is
  std::uint64_t sequence = 0;  // that the server assigned
};

bool HasName(const LogMessage& message) {
  const std::string_view source(message.body.source);
  return !source.empty() && std::all_of(source.begin(), source.end(),
                                        [](char c) { return static_cast<unsigned char>(c) >= ' '; });
}

// Returns whether the numbers that the server assigned show that `next` is the slot after `here`. Senders
// have no influence on them.
bool Continues(const Seen& here, const Seen& next) {
  return next.passes && !next.isBlank && here.sequence != 0 && next.sequence == here.sequence + 1;
}

class Walker {
 public:
  explicit Walker(const LogFileImage& searched) : image(searched) {}

  std::vector<LogPart> Run();
  bool FindsAny();

 private:
  Seen Look(std::uint64_t offset) const;
  LogFileHeader HeaderAt(std::uint64_t offset) const;
  bool HeadIsGenuine(std::uint64_t offset) const;
  bool LogBeginsAt(std::uint64_t offset) const;
  bool AtEndOfLog() const;
  bool LastSlotIsRight() const;
  bool SlotsWereAdded();
  void NoteEmptySlot();
  std::optional<std::uint64_t> MessageWithinSlot(const Seen& here) const;
  bool GridIsLonger(std::uint64_t other) const;
  void BeginLog(std::uint64_t offset);
  void BeginRest();
  void FindFirstSlot();
  void BeginStretch(std::uint64_t offset);
  void Add(const Seen& slot);
  void Trim();
  void Break(const Seen& here, std::uint64_t next);
  void Step();
  void FinishLog();

  LogPart& Part() { return parts.back(); }
  SlotStretch& Stretch() { return parts.back().stretches.back(); }

  const LogFileImage& image;
  std::vector<LogPart> parts;
  std::uint64_t at = 0;       // the place that is examined
  std::uint64_t goodEnd = 0;  // end of the stretch's last slot that surely is one
  Seen last;                  // the slot before `at`
  Seen present;               // what is at `at`, when `isKnown`
  bool isKnown = false;
  SlotBreak addedSlots;  // the first slots of the ring that hold no message
  bool evident = false;  // a message was found that is no coincidence
};

Seen Walker::Look(std::uint64_t offset) const {
  Seen seen;
  const std::string_view bytes = image.View(offset, kSlotSize);
  seen.complete = bytes.size() >= kNeededOfSlot;
  if (!seen.complete) return seen;
  LogMessage message{};
  std::memcpy(&message, bytes.data(), bytes.size());
  seen.sequence = message.sequence;
  seen.passes = message.body.type < kMessageTypes && HasEnds(message);
  seen.isMessage = seen.passes && LooksLikeMessage(message);
  seen.isNamed = seen.isMessage && HasName(message);
  seen.isBlank = !seen.isMessage && IsBlank(message.body);
  return seen;
}

LogFileHeader Walker::HeaderAt(std::uint64_t offset) const {
  LogFileHeader header{};
  const std::string_view bytes = image.View(offset, sizeof(header));
  if (bytes.size() == sizeof(header)) std::memcpy(&header, bytes.data(), sizeof(header));
  return header;
}

// Returns whether a server wrote what is at `offset`, as far as the bytes can show that. The lock names are
// zeros in a log that no server ever opened.
bool Walker::HeadIsGenuine(std::uint64_t offset) const {
  const std::string_view names = image.View(offset + kLockNamesOffset, sizeof(LockNames));
  return HeaderIsGenuine(HeaderAt(offset)) &&
         (names.starts_with(kNamesBegin) || names.find_first_not_of('\0') == std::string_view::npos);
}

// Returns whether another log begins there: one with lock names, or one that ends with the file.
bool Walker::LogBeginsAt(std::uint64_t offset) const {
  if (!HeadIsGenuine(offset)) return false;
  const auto capacity = static_cast<std::uint64_t>(HeaderAt(offset).maxMessages);
  return image.View(offset + kLockNamesOffset, 1) != std::string_view("\0", 1) ||
         offset + LogFileSize(capacity) == image.Size();
}

bool Walker::AtEndOfLog() const {
  const LogPart& part = parts.back();
  return !part.afterEnd && part.headerTrusted && part.breaks.empty() &&
         at == part.offset + LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages));
}

// Returns whether the log's last slot holds what the header claims. If not, the bytes after the end may be
// its last messages, which bytes that were added have moved there.
bool Walker::LastSlotIsRight() const {
  const LogFileHeader& header = parts.back().header;
  return last.isMessage || !HoldsMessage(header, static_cast<std::uint64_t>(header.maxMessages) - 1);
}

// Returns whether whole slots were added, so that the slots after them still begin at their places: the file
// is longer by whole slots, and the ring has slots without messages or goes on after its end.
bool Walker::SlotsWereAdded() {
  const std::uint64_t added = image.Size() - at;
  if (added % kSlotSize != 0) return false;
  if (addedSlots.end == 0) {
    const LogPart& part = parts.back();
    const std::uint64_t first = part.offset + kSlotsOffset;
    const bool isFull = part.header.messageCount == part.header.maxMessages;
    std::uint64_t moved = isFull ? at : first + static_cast<std::uint64_t>(part.header.nextSlot) * kSlotSize;
    const std::uint64_t end = moved + added;
    while (moved < end && !Look(moved).isMessage) moved += kSlotSize;
    if (moved == end) return false;
    addedSlots.offset = addedSlots.end = first;  // where they were added is not known
  }
  const std::uint64_t length = addedSlots.end - addedSlots.offset;
  addedSlots.bytes = static_cast<std::int64_t>(added);
  addedSlots.lost = length > added ? (length - added) / kSlotSize : 0;
  return true;
}

// Returns where a message begins between `at` and the slot after it.
std::optional<std::uint64_t> Walker::MessageWithinSlot(const Seen& here) const {
  // Within zeros no message begins but near their end, for it begins with number, origin and year.
  constexpr std::size_t kBeforeTime = offsetof(LogMessage, body) + offsetof(LogMessageBody, timestamp);
  const std::size_t from = here.isBlank ? kNeededOfSlot - kBeforeTime - 1 : 1;
  const std::string_view bytes = image.View(at, 2 * kSlotSize);
  const std::size_t found = FindMessage(bytes, from, kSlotSize);
  return found == std::string_view::npos ? std::nullopt : std::optional(at + found);
}

// Returns whether more messages follow on the grid than from the place `other`, as far as a look ahead shows.
bool Walker::GridIsLonger(std::uint64_t other) const {
  constexpr int kAhead = 8;
  int grid = 0;
  Seen before = present;
  for (; grid < kAhead; ++grid) {
    const Seen next = Look(at + (static_cast<std::uint64_t>(grid) + 1) * kSlotSize);
    if (!next.isMessage && !Continues(before, next)) break;
    before = next;
  }
  int beside = 0;
  while (beside < kAhead && Look(other + static_cast<std::uint64_t>(beside) * kSlotSize).isMessage) ++beside;
  return grid >= beside;
}

void Walker::BeginStretch(std::uint64_t offset) {
  at = goodEnd = offset;
  isKnown = false;
  last = {};
  Part().stretches.push_back({offset, 0, 0});
}

void Walker::BeginLog(std::uint64_t offset) {
  if (!parts.empty()) FinishLog();
  addedSlots = {};
  LogPart part;
  part.offset = offset;
  part.header = HeaderAt(offset);
  const std::uint64_t there = image.Size() - offset;
  part.headerTrusted =
      there >= kSlotsOffset && RingIsSound(part.header) &&
      (HeadIsGenuine(offset) || there == LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages)));
  parts.push_back(std::move(part));
  BeginStretch(offset + kSlotsOffset);
}

void Walker::BeginRest() {
  FinishLog();
  LogPart part;
  part.offset = at;
  part.afterEnd = true;
  parts.push_back(std::move(part));
  BeginStretch(at);
}

// Bytes of the file's beginning may have been lost. Then the header's numbers are not where they should be,
// unless the lock names are.
void Walker::FindFirstSlot() {
  if (Look(at).isMessage) return;
  const std::size_t found = FindMessage(image.View(0, kSlotsOffset + kSlotSize), 0, kSlotsOffset);
  if (found == std::string_view::npos) return;
  if (image.View(kLockNamesOffset, kNamesBegin.size()) != kNamesBegin) Part().headerTrusted = false;
  const auto bytes = static_cast<std::int64_t>(found) - static_cast<std::int64_t>(kSlotsOffset);
  Part().breaks.push_back({found, found, bytes, 0});
  Part().stretches.clear();
  BeginStretch(found);
}

void Walker::Add(const Seen& slot) {
  SlotStretch& stretch = Stretch();
  ++stretch.slots;
  const bool follows = Continues(last, slot);
  const bool onGrid = LogFileImage::SlotAtOffset(at).has_value();
  if (slot.isMessage && (last.isMessage || onGrid || slot.isNamed)) evident = true;
  at += kSlotSize;
  last = slot;
  if (slot.isMessage || follows) {
    goodEnd = at;
  } else {
    NoteEmptySlot();
  }
}

void Walker::NoteEmptySlot() {
  const LogPart& part = parts.back();
  const std::uint64_t begin = at - kSlotSize;
  const bool isFirst = addedSlots.end == 0;
  if (!part.headerTrusted || !part.breaks.empty() || (!isFirst && addedSlots.end != begin)) return;
  if (!HoldsMessage(part.header, (begin - part.offset) / kSlotSize)) return;
  if (isFirst) addedSlots.offset = begin;
  addedSlots.end = at;
}

// Leaves the slots out that may be bytes which a break added.
void Walker::Trim() {
  Stretch().slots = (goodEnd - Stretch().offset + kSlotSize - 1) / kSlotSize;
  if (Stretch().slots == 0) Part().stretches.pop_back();
}

void Walker::Break(const Seen& here, std::uint64_t next) {
  // Perhaps only bytes between the two messages are missing: padding, and the next one's number and origin.
  constexpr std::uint64_t kBetween = offsetof(LogMessage, body) + offsetof(LogMessageBody, timestamp);
  const bool isWhole = here.isMessage && next - at >= kNeededOfSlot - kBetween;
  const bool begins = goodEnd == at && (here.isMessage || Continues(last, here));
  if (isWhole) {
    ++Stretch().slots;
    goodEnd = next;
  }
  Trim();
  SlotBreak gap{goodEnd, next, 0, 0};
  if (isWhole) {
    gap.bytes = static_cast<std::int64_t>(next - at) - static_cast<std::int64_t>(kSlotSize);
  } else {
    const auto length = static_cast<std::int64_t>(next - goodEnd);
    constexpr auto kSlot = static_cast<std::int64_t>(kSlotSize);
    const std::int64_t rest = length % kSlot;
    const bool missing = rest > kSlot / 2 || (length < kSlot && begins);
    gap.bytes = missing ? rest - kSlot : rest;
    gap.lost = static_cast<std::uint64_t>((length - gap.bytes) / kSlot);
  }
  if (next >= goodEnd + kSlotsOffset && LogBeginsAt(next - kSlotsOffset))
    return BeginLog(next - kSlotsOffset);
  if (!Part().afterEnd) Part().breaks.push_back(gap);
  BeginStretch(next);
}

void Walker::Step() {
  if (AtEndOfLog()) {
    if (LogBeginsAt(at)) return BeginLog(at);
    if (SlotsWereAdded()) {
      Part().breaks.push_back(addedSlots);
    } else if (LastSlotIsRight()) {
      return BeginRest();
    }
  }
  if (!isKnown) present = Look(at);
  const Seen here = present;
  if (!here.complete) {
    at = image.Size();
    return;
  }
  const Seen next = Look(at + kSlotSize);
  const bool goesOn = next.isMessage || Continues(here, next);
  if (!(here.isMessage && goesOn)) {
    const auto other = MessageWithinSlot(here);
    if (other && !(goesOn && GridIsLonger(*other))) return Break(here, *other);
  }
  Add(here);
  present = next;
  isKnown = true;
}

// With one break the size of the file shows how many bytes are missing or were added.
void Walker::FinishLog() {
  LogPart& part = Part();
  if (part.afterEnd) {
    if (!part.stretches.empty()) Trim();
    return;
  }
  if (part.headerTrusted && part.breaks.size() == 1 && at >= image.Size()) {
    const std::uint64_t wanted = LogFileSize(static_cast<std::uint64_t>(part.header.maxMessages));
    const auto total = static_cast<std::int64_t>(image.Size() - part.offset - wanted);
    SlotBreak& gap = part.breaks.front();
    const auto length = static_cast<std::int64_t>(gap.end - gap.offset);
    constexpr auto kSlot = static_cast<std::int64_t>(kSlotSize);
    if ((total - gap.bytes) % kSlot == 0 && total <= length && gap.end >= part.offset + kSlotsOffset) {
      gap.lost = static_cast<std::uint64_t>((length - total + kSlot - 1) / kSlot);
      gap.bytes = total;
    }
  }
  std::uint64_t number = 0;
  std::size_t gap = 0;
  for (SlotStretch& stretch : part.stretches) {
    while (gap < part.breaks.size() && part.breaks[gap].end <= stretch.offset)
      number += part.breaks[gap++].lost;
    stretch.number = number;
    number += stretch.slots;
  }
}

std::vector<LogPart> Walker::Run() {
  BeginLog(0);
  FindFirstSlot();
  while (at < image.Size()) Step();
  FinishLog();
  return std::move(parts);
}

bool Walker::FindsAny() {
  BeginLog(0);
  FindFirstSlot();
  while (at < image.Size() && !evident) Step();
  return evident;
}

}  // namespace

bool LogPart::RingInPlace() const {
  if (!headerTrusted || breaks.empty()) return headerTrusted;
  const std::uint64_t slots = offset + kSlotsOffset;
  const std::uint64_t end = slots + static_cast<std::uint64_t>(header.nextSlot) * kSlotSize;
  return header.messageCount <= header.nextSlot && end < breaks.front().offset;
}

std::vector<LogPart> FindLayout(const LogFileImage& image) {
  return Walker(image).Run();
}

bool HoldsAnyMessage(const LogFileImage& image) {
  return Walker(image).FindsAny();
}

bool HeaderIsGenuine(const LogFileHeader& header) {
  const auto isZero = [](const auto& padding) {
    return std::all_of(std::begin(padding), std::end(padding), [](std::uint8_t byte) { return byte == 0; });
  };
  const bool isRing = RingIsSound(header) &&
                      (header.messageCount == header.maxMessages || header.messageCount == header.nextSlot);
  return isRing && header.maxMessages <= kMostConfigurable && header.serverRunning <= 1 &&
         header.readCount >= 0 && isZero(header.padding1) && isZero(header.padding2) &&
         header.changeCount > 0 && header.rewriteCount > 0;
}

}  // namespace TamLogClient
