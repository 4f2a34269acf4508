#include "client/file/log_file_repair.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <unordered_set>
#include <utility>

#include "client/log/ring.h"
#include "client/message/log_message_view.h"
#include "client/message/time_text.h"

namespace TamLogClient {

namespace {

constexpr std::uint64_t kSlotSize = sizeof(LogMessage);
// The padding after the last message of a cut file may be missing.
constexpr std::uint64_t kNeeded = offsetof(LogMessage, padding);

bool IsBlank(const LogMessageBody& body) {
  static const LogMessageBody blank{};
  return std::memcmp(&body, &blank, sizeof(body)) == 0;
}

bool HasEnds(const LogMessageView& view) {
  return view.Source().size() < kTextSize && view.Text().size() < kTextSize;
}

// The years that a clock may show. Earlier ones would let bytes read at a wrong offset pass for a time.
bool IsPlausibleTime(const TimeWords& words) {
  constexpr std::int16_t kFirstYear = 1601;
  constexpr std::int16_t kLastYear = 9999;
  return words[0] >= kFirstYear && words[0] <= kLastYear && IsRealTime(words);
}

// Terminates the text if it is not. The bytes after an existing terminator stay unchanged.
void CutText(char (&text)[kTextSize]) {
  if (std::memchr(&text[0], '\0', kTextSize) == nullptr) text[kTextSize - 1] = '\0';
}

// Returns why the bytes of a slot are not a message; nothing when they are. One flaw is accepted in what
// otherwise looks like a message: senders do write unterminated texts, and a text can be read even if the
// type was changed.
std::optional<LossReason> Judge(const LogMessage& message) {
  const LogMessageView view(message);
  if (IsBlank(message.body)) return LossReason::Blank;
  if (view.Type() >= kMessageTypes && (!HasEnds(view) || !IsPlausibleTime(WordsOf(message.body))))
    return LossReason::KnownType;
  if (!HasEnds(view) && !IsRealTime(WordsOf(message.body))) return LossReason::TextEnds;
  return std::nullopt;
}

class Planner {
 public:
  Planner(const LogFileImage& damaged, const RepairOptions& chosen) : image(damaged), options(chosen) {}

  RepairPlan Run();

 private:
  bool LooksLikeMessage(std::uint64_t offset) const;
  std::optional<std::uint64_t> NextMessage(std::uint64_t from, std::uint64_t end) const;
  bool InRing(std::uint64_t offset) const;
  void Save(std::uint64_t offset, const LogMessage& message);
  void Lose(std::uint64_t offset, std::uint64_t bytes, std::uint64_t slots, LossReason reason);
  void TakeSlots(const std::vector<std::uint32_t>& slots);
  void CountMissing();
  void CountOutside();
  void Carve();
  std::uint64_t CarveAt(std::uint64_t offset);
  void PutInOrder();
  void LeaveOutRepeated();
  std::uint32_t Capacity() const;

  const LogFileImage& image;
  RepairOptions options;
  RepairPlan plan;
};

void Planner::Save(std::uint64_t offset, const LogMessage& message) {
  const LogMessageView view(message);
  const bool cutTexts = !HasEnds(view);
  const bool changeType = view.Type() >= kMessageTypes;
  plan.oldestFirst.push_back({offset, TimeKey(message.body), cutTexts, changeType});
  if (cutTexts) ++plan.textsCut;
  if (changeType) ++plan.typesChanged;
  if ((cutTexts || changeType) && plan.changes.size() < options.most)
    plan.changes.push_back({offset, cutTexts, changeType, view.Type(), view.Type() % kMessageTypes});
}

void Planner::Lose(std::uint64_t offset, std::uint64_t bytes, std::uint64_t slots, LossReason reason) {
  plan.lost += slots;
  if (plan.losses.size() < options.most) plan.losses.push_back({offset, bytes, slots, reason});
}

void Planner::TakeSlots(const std::vector<std::uint32_t>& slots) {
  for (const std::uint32_t slot : slots) {
    const LogMessage message = image.Slot(slot);
    const std::uint64_t offset = LogFileImage::OffsetOf(slot);
    if (const auto reason = Judge(message)) {
      Lose(offset, kSlotSize, 1, *reason);
    } else {
      Save(offset, message);
    }
  }
}

// Counts the messages that the header claims and the file does not contain.
void Planner::CountMissing() {
  const auto held = static_cast<std::uint64_t>(image.Header().messageCount);
  const std::uint64_t there = image.RingSlots().size();
  if (held > there) Lose(image.Size(), 0, held - there, LossReason::Missing);
}

// Checks for what rarely occurs by accident: a date of seven words, a type, and two terminated texts.
bool Planner::LooksLikeMessage(std::uint64_t offset) const {
  const std::string_view bytes = image.Bytes();
  if (offset + kNeeded > bytes.size()) return false;
  // Carving calls this for every offset, so the checks that fail most often come first.
  std::uint32_t type = 0;
  std::memcpy(&type, bytes.data() + offset + kTypeOffset, sizeof(type));
  if (type >= kMessageTypes) return false;
  TimeWords words{};
  std::memcpy(words.data(), bytes.data() + offset + kTimeOffset, sizeof(words));
  return IsPlausibleTime(words) && HasEnds(LogMessageView(image.At(offset)));
}

std::optional<std::uint64_t> Planner::NextMessage(std::uint64_t from, std::uint64_t end) const {
  for (std::uint64_t offset = from; offset < end; ++offset) {
    if (LooksLikeMessage(offset)) return offset;
  }
  return std::nullopt;
}

bool Planner::InRing(std::uint64_t offset) const {
  const auto slot = LogFileImage::SlotAtOffset(offset);
  return plan.headerTrusted && slot && HoldsMessage(image.Header(), *slot);
}

// Counts messages that the header does not: cleared ones, or those that a wrong but sound header leaves out.
void Planner::CountOutside() {
  for (std::uint64_t slot = 0; slot < image.SlotsThere(); ++slot) {
    const std::uint64_t offset = LogFileImage::OffsetOf(slot);
    if (!InRing(offset) && LooksLikeMessage(offset)) ++plan.outside;
  }
}

// Judges the bytes at `offset`, where a message is expected, and returns the offset of the next one. A
// message that begins within them shows that bytes were lost or added; it outweighs the grid of slots.
std::uint64_t Planner::CarveAt(std::uint64_t offset) {
  const LogMessage message = image.At(offset);
  const std::uint64_t rest = image.Size() - offset;
  const bool looksWhole = LooksLikeMessage(offset);
  // A message that lost bytes may still look whole, and would swallow the beginning of the next.
  if (looksWhole && LooksLikeMessage(offset + kSlotSize)) {
    Save(offset, message);
    return offset + kSlotSize;
  }
  if (const auto next = NextMessage(offset + 1, offset + kSlotSize)) {
    // Perhaps only the padding and the number between the two messages are missing.
    if (looksWhole && *next - offset >= sizeof(LogMessageBody)) {
      Save(offset, message);
      return *next;
    }
    Lose(offset, *next - offset, 1, LossReason::NotMessage);
    return *next;
  }
  if (looksWhole) {
    Save(offset, message);
    return offset + kSlotSize;
  }
  // Without a date, only its place distinguishes a message from other bytes.
  const bool onGrid = LogFileImage::SlotAtOffset(offset) ||
                      (!plan.oldestFirst.empty() && plan.oldestFirst.back().offset + kSlotSize == offset);
  auto reason = rest < kNeeded ? std::optional(LossReason::Missing) : Judge(message);
  if (!reason && !onGrid) reason = LossReason::NotMessage;
  if (!reason) {
    Save(offset, message);
  } else if (rest >= kNeeded && (*reason != LossReason::Blank || InRing(offset))) {
    Lose(offset, kSlotSize, 1, *reason);
  }
  return offset + kSlotSize;
}

void Planner::Carve() {
  // Bytes before the first slot may have been lost.
  std::uint64_t offset = kSlotsOffset;
  if (!LooksLikeMessage(offset)) offset = NextMessage(0, kSlotsOffset).value_or(offset);
  while (offset < image.Size()) offset = CarveAt(offset);
}

// Sorts by time. Messages with equal times keep the order of their arrival: carved ones first, then those of
// the ring in its order.
void Planner::PutInOrder() {
  std::vector<SavedMessage>& all = plan.oldestFirst;
  const auto ring = std::stable_partition(
      all.begin(), all.end(), [this](const SavedMessage& saved) { return !InRing(saved.offset); });
  plan.fromRing = static_cast<std::uint64_t>(all.end() - ring);
  // Slots below nextSlot are younger than those from it on.
  const std::uint64_t seam =
      LogFileImage::OffsetOf(plan.headerTrusted ? static_cast<std::uint64_t>(image.Header().nextSlot) : 0);
  std::stable_partition(ring, all.end(), [seam](const SavedMessage& saved) { return saved.offset >= seam; });
  std::vector<std::uint64_t> keys;
  keys.reserve(plan.fromRing);
  for (auto at = ring; at != all.end(); ++at) keys.push_back(at->key);
  std::reverse(ring, ring + static_cast<std::ptrdiff_t>(FallingStretch(keys)));
  std::stable_sort(all.begin(), all.end(),
                   [](const SavedMessage& left, const SavedMessage& right) { return left.key < right.key; });
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
// from a header that fits the file, or else from the file's size.
std::uint32_t Planner::Capacity() const {
  const auto bySize =
      std::clamp<std::uint64_t>(image.SlotsThere(), 1, std::numeric_limits<std::int32_t>::max());
  const std::int32_t claimed = image.Header().maxMessages;
  constexpr std::uint32_t kMostConfigurable = 1000000;
  if (!plan.headerTrusted ||
      static_cast<std::uint32_t>(claimed) > std::max<std::uint64_t>(bySize, kMostConfigurable))
    return static_cast<std::uint32_t>(bySize);
  return static_cast<std::uint32_t>(claimed);
}

RepairPlan Planner::Run() {
  plan.headerTrusted = image.HeaderIsSound();
  plan.capacity = Capacity();
  if (options.carve) {
    Carve();
  } else if (plan.headerTrusted) {
    TakeSlots(image.RingSlots());
    CountOutside();
  } else {
    std::vector<std::uint32_t> all(static_cast<std::size_t>(
        std::min<std::uint64_t>(image.SlotsThere(), std::numeric_limits<std::uint32_t>::max())));
    for (std::uint32_t slot = 0; slot < all.size(); ++slot) all[slot] = slot;
    TakeSlots(all);
  }
  if (plan.headerTrusted) CountMissing();
  PutInOrder();
  if (options.unique) LeaveOutRepeated();
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
