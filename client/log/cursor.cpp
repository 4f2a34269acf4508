#include "client/log/cursor.h"

#include <algorithm>

#include "client/message/hex.h"

namespace TamLogClient {

namespace {

// Prefixes and versions of the text. Earlier versions had the hint between the other numbers.
constexpr std::string_view kForm = "c2";
constexpr std::string_view kFirstForm = "c1";
constexpr std::size_t kLongest = 120;

void AppendNumberAfterDot(std::uint64_t value, std::string& out) {
  out += '.';
  AppendHexNumber(value, out);
}

std::uint64_t CheckSum(std::string_view text) {
  std::uint32_t sum = 2166136261U;
  for (const char character : text) sum = (sum ^ static_cast<unsigned char>(character)) * 16777619U;
  return sum;
}

// Appends the sum of the whole text so far.
void AppendSum(std::string& text) {
  AppendNumberAfterDot(CheckSum(text), text);
}

void AppendIdentity(const Cursor& cursor, std::string& text) {
  for (const std::uint64_t number :
       {cursor.key, cursor.identity.low, cursor.identity.high, std::uint64_t{cursor.twin}}) {
    AppendNumberAfterDot(number, text);
  }
}

std::string FormatFirstForm(const Cursor& cursor) {
  std::string text(kFirstForm);
  AppendIdentity(cursor, text);
  AppendNumberAfterDot(cursor.hint->rewriteCount, text);
  AppendNumberAfterDot(cursor.hint->nextSequence, text);
  AppendSum(text);
  return text;
}

// Takes the separator and a number from the front of `text`.
bool Take(char separator, std::string_view& text, std::uint64_t& number) {
  if (!text.starts_with(separator)) return false;
  text.remove_prefix(1);
  return TakeHexNumber(text, number);
}

bool TakeIdentity(std::string_view& text, Cursor& cursor) {
  std::uint64_t twin = 0;
  if (!Take('.', text, cursor.key) || !Take('.', text, cursor.identity.low) ||
      !Take('.', text, cursor.identity.high) || !Take('.', text, twin))
    return false;
  cursor.twin = static_cast<std::uint32_t>(twin);
  return twin > 0 && twin <= UINT32_MAX;
}

bool TakeHint(char separator, std::string_view& text, Cursor& cursor) {
  CursorHint& hint = cursor.hint.emplace();
  return Take(separator, text, hint.rewriteCount) && Take('.', text, hint.nextSequence);
}

const LogMessageBody& BodyAt(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& order,
                             std::size_t position) {
  return snapshot.slots[order[position]].body;
}

}  // namespace

std::string FormatCursor(const Cursor& cursor) {
  std::string text(kForm);
  AppendIdentity(cursor, text);
  AppendSum(text);
  if (!cursor.hint) return text;
  text += '+';
  AppendHexNumber(cursor.hint->rewriteCount, text);
  AppendNumberAfterDot(cursor.hint->nextSequence, text);
  AppendSum(text);
  return text;
}

std::optional<Cursor> ParseCursor(std::string_view text) {
  const std::string_view whole = text;
  if (text.size() > kLongest) return std::nullopt;
  const bool first = text.starts_with(kFirstForm);
  if (!first && !text.starts_with(kForm)) return std::nullopt;
  text.remove_prefix(kForm.size());
  Cursor cursor;
  std::uint64_t sum = 0;  // compared as text
  bool good = TakeIdentity(text, cursor) && (!first || TakeHint('.', text, cursor)) && Take('.', text, sum);
  if (good && !first && !text.empty()) good = TakeHint('+', text, cursor) && Take('.', text, sum);
  if (!good) return std::nullopt;
  // Each cursor has one text: this refuses capital letters, leading zeros, a wrong checksum, and a rest.
  if ((first ? FormatFirstForm(cursor) : FormatCursor(cursor)) != whole) return std::nullopt;
  return cursor;
}

CursorHint HintOf(const LogFileHeader& header) {
  return {header.rewriteCount, header.nextSequence};
}

Cursor CursorOf(const LogMessageBody& body, std::uint32_t twin) {
  return {TimeKey(body), IdentityOf(body), twin};
}

Cursor CursorOf(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                std::size_t position) {
  Cursor cursor = CursorOf(BodyAt(snapshot, oldestFirst, position), 1);
  while (position > 0 && TimeKey(BodyAt(snapshot, oldestFirst, position - 1)) == cursor.key) {
    --position;
    if (IdentityOf(BodyAt(snapshot, oldestFirst, position)) == cursor.identity) ++cursor.twin;
  }
  return cursor;
}

std::uint32_t TwinCount::Next(const LogMessageBody& body) {
  const std::uint64_t key = TimeKey(body);
  if (key != lastKey) counts.clear();
  lastKey = key;
  return ++counts[IdentityOf(body)];
}

void TwinNumbers::Add(const LogSnapshot& snapshot) {
  const auto order = OrderMessages(snapshot).oldestFirst;
  const auto keyAt = [&](std::size_t position) { return TimeKey(BodyAt(snapshot, order, position)); };
  for (std::size_t begin = 0, end = 0; begin < order.size(); begin = end) {
    end = begin + 1;
    while (end < order.size() && keyAt(end) == keyAt(begin)) ++end;
    if (end - begin == 1) continue;  // most messages are alone in their millisecond
    TwinCount count;
    for (std::size_t position = begin; position < end; ++position) {
      const std::uint32_t number = count.Next(BodyAt(snapshot, order, position));
      if (number > 1) others[&snapshot.slots[order[position]]] = number;
    }
  }
}

std::uint32_t TwinNumbers::Of(const LogMessage* message) const {
  const auto found = others.find(message);
  return found == others.end() ? 1 : found->second;
}

std::vector<std::uint32_t> TwinsIn(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& slots) {
  if (slots.empty()) return {};
  // Sorted, not hashed: any user can send messages whose times a hash table would put into one bucket.
  std::vector<std::uint64_t> keys;
  keys.reserve(slots.size());
  for (const std::uint32_t slot : slots) keys.push_back(TimeKey(snapshot.slots[slot].body));
  std::sort(keys.begin(), keys.end());
  std::unordered_map<MessageIdentity, std::uint32_t, MessageIdentityHash> counts;
  std::unordered_map<std::uint32_t, std::uint32_t> numbers;
  for (const std::uint32_t slot : OrderOfArrival(snapshot)) {
    const LogMessageBody& body = snapshot.slots[slot].body;
    if (std::binary_search(keys.begin(), keys.end(), TimeKey(body)))
      numbers[slot] = ++counts[IdentityOf(body)];
  }
  std::vector<std::uint32_t> twins;
  twins.reserve(slots.size());
  for (const std::uint32_t slot : slots) twins.push_back(numbers[slot]);
  return twins;
}

CursorPlace FindCursor(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                       const Cursor& cursor) {
  CursorPlace place;
  const auto earlier = [&snapshot](std::uint32_t slot, std::uint64_t key) {
    return TimeKey(snapshot.slots[slot].body) < key;
  };
  const auto first = std::lower_bound(oldestFirst.begin(), oldestFirst.end(), cursor.key, earlier);
  std::uint32_t seen = 0;
  auto at = first;
  for (; at != oldestFirst.end() && TimeKey(snapshot.slots[*at].body) == cursor.key && !place.found; ++at) {
    if (IdentityOf(snapshot.slots[*at].body) == cursor.identity) ++seen;
    place.found = seen == cursor.twin;
  }
  place.next = static_cast<std::size_t>(at - oldestFirst.begin());
  const CursorHint now = HintOf(snapshot.header);
  const auto& then = cursor.hint;
  if (then && now.rewriteCount > then->rewriteCount && now.nextSequence >= then->nextSequence) {
    place.writtenBefore = std::any_of(oldestFirst.begin(), first, [&](std::uint32_t slot) {
      return snapshot.slots[slot].sequence >= then->nextSequence;
    });
  }
  return place;
}

}  // namespace TamLogClient
