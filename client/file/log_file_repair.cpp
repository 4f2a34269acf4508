#include "client/file/log_file_repair.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <unordered_set>
#include <utility>

#include "client/file/message_shape.h"
#include "client/log/ring.h"
#include "client/message/log_message_view.h"
#include "client/message/time_text.h"

namespace TamLogClient {

namespace {

// Terminates the text if it is not. The bytes after an existing terminator stay unchanged.
void CutText(char (&text)[kTextSize]) {
  if (std::memchr(&text[0], '\0', kTextSize) == nullptr) text[kTextSize - 1] = '\0';
}

// Returns why the bytes of a slot are not a message; nothing when they are. One flaw is accepted in what
// otherwise looks like a message: senders do write unterminated texts, and a text can be read even if the
// type was changed.
std::optional<LossReason> Judge(const LogMessage& message) {
  const bool knownType = message.body.type < kMessageTypes;
  if (IsBlank(message.body)) return LossReason::Blank;
  if (!knownType && (!HasEnds(message) || !IsPlausibleTime(WordsOf(message.body))))
    return LossReason::KnownType;
  if (!HasEnds(message) && !IsRealTime(WordsOf(message.body))) return LossReason::TextEnds;
  return std::nullopt;
}

constexpr std::uint64_t kNowhere = ~std::uint64_t{0};  // the offset of a message that is lost

// Sets the stamps from `begin` to `end`, which are those of lost messages, so that numbers rise there as they
// do around it, or stay the same.
void FillStamps(std::vector<ArrivalStamp>& stamps, std::size_t begin, std::size_t end) {
  const bool isLast = end == stamps.size();
  ArrivalStamp stamp;
  if (begin > 0) stamp = stamps[begin - 1];
  if (begin == 0 && !isLast) stamp.key = stamps[end].key;
  const std::uint64_t before = begin > 1 ? stamps[begin - 2].number : stamp.number;
  const bool rises =
      stamp.number != 0 && (isLast ? before < stamp.number : stamp.number < stamps[end].number);
  for (; begin < end; ++begin) {
    if (rises) ++stamp.number;
    stamps[begin] = stamp;
  }
}

std::vector<ArrivalStamp> StampsOf(std::span<const SavedMessage> messages) {
  std::vector<ArrivalStamp> stamps(messages.size());
  for (std::size_t i = 0; i < messages.size(); ++i) stamps[i] = messages[i].stamp;
  for (std::size_t begin = 0, end = 0; end < messages.size(); begin = end) {
    const bool isLost = messages[begin].offset == kNowhere;
    while (end < messages.size() && (messages[end].offset == kNowhere) == isLost) ++end;
    if (isLost) FillStamps(stamps, begin, end);
  }
  return stamps;
}

class Planner {
 public:
  Planner(const LogFileImage& damaged, const RepairOptions& chosen) : image(damaged), options(chosen) {}

  RepairPlan Run();

 private:
  void TakeLog(const LogPart& log);
  void TakeSlot(const LogPart& log, std::uint64_t number, std::uint64_t offset);
  void TakeRest(const LogPart& rest);
  void TakeBreaks(const LogPart& log);
  void CountMissing(const LogPart& log);
  void ArrangeSlots(std::size_t first);
  void JoinRing(const LogFileHeader& header);
  void Save(std::uint64_t offset, const LogMessage& message, std::vector<SavedMessage>& to);
  void Lose(std::uint64_t offset, std::uint64_t bytes, std::uint64_t slots, LossReason reason);
  void LeaveOutRepeated();
  std::uint32_t Capacity() const;

  const LogFileImage& image;
  RepairOptions options;
  RepairPlan plan;
  std::vector<SavedMessage> olderPart;  // of the ring: the slots from nextSlot on; lost ones with kNowhere
  std::vector<SavedMessage> newerPart;
  std::uint64_t seenOfRing = 0;
  std::uint64_t lastSequence = 0;  // of the slot before
};

void Planner::Save(std::uint64_t offset, const LogMessage& message, std::vector<SavedMessage>& to) {
  const bool cutTexts = !HasEnds(message);
  const bool changeType = message.body.type >= kMessageTypes;
  to.push_back({offset, ArrivalOf(message), cutTexts, changeType});
  if (cutTexts) ++plan.textsCut;
  if (changeType) ++plan.typesChanged;
  if ((cutTexts || changeType) && plan.changes.size() < options.most) {
    const std::uint32_t type = message.body.type;
    plan.changes.push_back({offset, cutTexts, changeType, type, type % kMessageTypes});
  }
  const bool follows = lastSequence != 0 && message.sequence == lastSequence + 1;
  if (!follows && !IsPlausibleTime(WordsOf(message.body))) ++plan.doubtful;
}

void Planner::Lose(std::uint64_t offset, std::uint64_t bytes, std::uint64_t slots, LossReason reason) {
  plan.lost += slots;
  if (plan.losses.size() < options.most) plan.losses.push_back({offset, bytes, slots, reason});
}

void Planner::TakeSlot(const LogPart& log, std::uint64_t number, std::uint64_t offset) {
  const bool inPlace = log.RingInPlace();
  const bool inRing = inPlace && HoldsMessage(log.header, number);
  const auto nextSlot = static_cast<std::uint64_t>(log.header.nextSlot);
  const LogMessage message = image.At(offset);
  if (inRing) ++seenOfRing;
  if (inPlace && !inRing && !options.carve) {
    if (LooksLikeMessage(message)) ++plan.outside;
    return;
  }
  const auto reason = Judge(message);
  if (!reason) {
    const bool ofRing = inRing || (log.headerTrusted && !inPlace);
    Save(offset, message, !ofRing ? plan.oldestFirst : number < nextSlot ? newerPart : olderPart);
  } else if (inRing || *reason != LossReason::Blank) {  // a slot that was never used is no loss
    Lose(offset, kSlotSize, 1, *reason);
    if (inRing) (number < nextSlot ? newerPart : olderPart).push_back({kNowhere, {}, false, false});
  }
  lastSequence = message.sequence;
}

void Planner::TakeBreaks(const LogPart& log) {
  if (log.RingInPlace()) return;
  plan.breaks.insert(plan.breaks.end(), log.breaks.begin(), log.breaks.end());
  for (const SlotBreak& gap : log.breaks) {
    if (gap.lost > 0) Lose(gap.offset, gap.end - gap.offset, gap.lost, LossReason::NotMessage);
  }
}

// Counts the messages that the header claims and the file does not contain.
void Planner::CountMissing(const LogPart& log) {
  if (!log.headerTrusted) return;
  auto held = static_cast<std::uint64_t>(log.header.messageCount);
  if (!log.RingInPlace()) {
    seenOfRing = log.stretches.empty() ? 0 : log.stretches.back().number + log.stretches.back().slots;
    if (log.header.messageCount > log.header.nextSlot)
      held = static_cast<std::uint64_t>(log.header.maxMessages);
  }
  if (held > seenOfRing) Lose(image.Size(), 0, held - seenOfRing, LossReason::Missing);
}

// Puts the messages from `first` on, which are in the order of their slots, in the order of their arrival:
// the header does not say where the ring begins.
void Planner::ArrangeSlots(std::size_t first) {
  const auto begin = plan.oldestFirst.begin() + static_cast<std::ptrdiff_t>(first);
  std::vector<ArrivalStamp> ring = StampsOf({begin, plan.oldestFirst.end()});
  const auto newer = static_cast<std::ptrdiff_t>(NewerLength(ring));
  std::rotate(begin, begin + newer, plan.oldestFirst.end());
  std::rotate(ring.begin(), ring.begin() + newer, ring.end());
  const std::size_t older = ring.size() - static_cast<std::size_t>(newer);
  std::reverse(begin, begin + static_cast<std::ptrdiff_t>(BlockLength(older, ring)));
}

// Appends the messages of the ring in the order of their arrival, as far as the ring shows it.
void Planner::JoinRing(const LogFileHeader& header) {
  const std::size_t older = olderPart.size();
  olderPart.insert(olderPart.end(), newerPart.begin(), newerPart.end());
  newerPart.clear();
  const bool wasFull = RingIsSound(header) && header.messageCount == header.maxMessages;
  const std::size_t block = wasFull ? BlockLength(older, StampsOf(olderPart)) : 0;
  std::reverse(olderPart.begin(), olderPart.begin() + static_cast<std::ptrdiff_t>(block));
  std::erase_if(olderPart, [](const SavedMessage& saved) { return saved.offset == kNowhere; });
  plan.fromRing += olderPart.size();
  plan.oldestFirst.insert(plan.oldestFirst.end(), olderPart.begin(), olderPart.end());
  olderPart.clear();
}

void Planner::TakeLog(const LogPart& log) {
  seenOfRing = lastSequence = 0;
  const std::size_t before = plan.oldestFirst.size();
  for (const SlotStretch& stretch : log.stretches) {
    for (std::uint64_t i = 0; i < stretch.slots; ++i)
      TakeSlot(log, stretch.number + i, stretch.offset + i * kSlotSize);
  }
  TakeBreaks(log);
  CountMissing(log);
  if (!log.headerTrusted) ArrangeSlots(before);
  JoinRing(log.header);
}

// After the end of a log only what looks like a message is one.
void Planner::TakeRest(const LogPart& rest) {
  for (const SlotStretch& stretch : rest.stretches) {
    for (std::uint64_t i = 0; i < stretch.slots; ++i) {
      const LogMessage message = image.At(stretch.offset + i * kSlotSize);
      if (!LooksLikeMessage(message)) continue;
      if (options.carve) {
        Save(stretch.offset + i * kSlotSize, message, plan.oldestFirst);
      } else {
        ++plan.outside;
      }
    }
  }
}

void Planner::LeaveOutRepeated() {
  std::unordered_set<MessageIdentity, MessageIdentityHash> met;
  const auto gone = std::remove_if(plan.oldestFirst.begin(), plan.oldestFirst.end(), [&](const auto& saved) {
    return !met.insert(IdentityOf(image.At(saved.offset).body)).second;
  });
  plan.repeated = static_cast<std::uint64_t>(plan.oldestFirst.end() - gone);
  plan.oldestFirst.erase(gone, plan.oldestFirst.end());
}

// Returns the file's own capacity, because a server keeps the messages only at the capacity it is set to:
// from headers that can be trusted, or else from the file's size.
std::uint32_t Planner::Capacity() const {
  constexpr std::uint64_t kMostConfigurable = 1000000;
  std::uint64_t claimed = 0;
  for (const LogPart& log : plan.logs) {
    if (log.headerTrusted) claimed = std::max(claimed, static_cast<std::uint64_t>(log.header.maxMessages));
  }
  const std::uint64_t most = std::max(claimed, kMostConfigurable);
  if (claimed == 0) claimed = std::max<std::uint64_t>(image.SlotsThere(), 1);
  return static_cast<std::uint32_t>(
      std::min(most, std::max<std::uint64_t>(claimed, plan.oldestFirst.size())));
}

RepairPlan Planner::Run() {
  std::vector<LogPart> parts = FindLayout(image);
  for (LogPart& part : parts) {
    if (part.afterEnd) {
      TakeRest(part);
      continue;
    }
    TakeLog(part);
    part.stretches.clear();
    part.breaks.clear();
    plan.logs.push_back(std::move(part));
  }
  plan.headerTrusted = plan.logs.front().headerTrusted;
  std::stable_sort(
      plan.oldestFirst.begin(), plan.oldestFirst.end(),
      [](const SavedMessage& left, const SavedMessage& right) { return left.stamp.key < right.stamp.key; });
  if (options.unique) LeaveOutRepeated();
  plan.capacity = Capacity();
  return std::move(plan);
}

}  // namespace

const char* ReasonText(LossReason reason) {
  switch (reason) {
    case LossReason::Blank:
      return "zeros only";
    case LossReason::TextEnds:
      return "a text is unterminated and the time is not a date";
    case LossReason::KnownType:
      return "its type does not exist and nothing else identifies a message";
    case LossReason::Missing:
      return "after the end of the file";
    case LossReason::NotMessage:
      return "not a message";
  }
  return "unknown reason";
}

RepairPlan PlanRepair(const LogFileImage& image, const RepairOptions& options) {
  return Planner(image, options).Run();
}

LogMessage SavedMessageOf(const LogFileImage& image, const SavedMessage& saved) {
  LogMessage message = image.At(saved.offset);
  if (saved.cutTexts) {
    CutText(message.body.source);
    CutText(message.body.text);
  }
  if (saved.changeType) message.body.type %= kMessageTypes;
  return message;
}

}  // namespace TamLogClient
