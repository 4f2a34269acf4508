#include "client/log/cursor.h"

#include <algorithm>
#include <array>

#include "client/message/hex.h"

namespace TamLogClient {

namespace {

constexpr std::string_view kFirstForm = "c1";  // prefix and version of the text
constexpr std::size_t kNumbers = 7;            // the last is the checksum
constexpr std::size_t kLongest = 2 + kNumbers * 17;

using Numbers = std::array<std::uint64_t, kNumbers>;

void AppendNumberAfterDot(std::uint64_t value, std::string& out) {
  out += '.';
  AppendHexNumber(value, out);
}

std::uint64_t CheckSum(std::string_view text) {
  std::uint32_t sum = 2166136261U;
  for (const char character : text) sum = (sum ^ static_cast<unsigned char>(character)) * 16777619U;
  return sum;
}

std::optional<Numbers> SplitNumbers(std::string_view text) {
  if (text.size() > kLongest || !text.starts_with(kFirstForm)) return std::nullopt;
  text.remove_prefix(kFirstForm.size());
  Numbers numbers{};
  for (std::uint64_t& number : numbers) {
    if (text.empty() || text.front() != '.') return std::nullopt;
    text.remove_prefix(1);
    if (!TakeHexNumber(text, number)) return std::nullopt;
  }
  return text.empty() ? std::optional(numbers) : std::nullopt;
}

const LogMessageBody& BodyAt(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& order,
                             std::size_t position) {
  return snapshot.slots[order[position]].body;
}

}  // namespace

std::string FormatCursor(const Cursor& cursor) {
  std::string text(kFirstForm);
  for (const std::uint64_t number :
       {cursor.key, cursor.identity.low, cursor.identity.high, static_cast<std::uint64_t>(cursor.occurrence),
        cursor.rewriteCount, cursor.nextSequence}) {
    AppendNumberAfterDot(number, text);
  }
  AppendNumberAfterDot(CheckSum(text), text);
  return text;
}

std::optional<Cursor> ParseCursor(std::string_view text) {
  const auto numbers = SplitNumbers(text);
  if (!numbers || (*numbers)[3] == 0 || (*numbers)[3] > UINT32_MAX) return std::nullopt;
  const Cursor cursor{(*numbers)[0],
                      {(*numbers)[1], (*numbers)[2]},
                      static_cast<std::uint32_t>((*numbers)[3]),
                      (*numbers)[4],
                      (*numbers)[5]};
  // Each cursor has one text: this refuses capital letters, leading zeros and a wrong checksum.
  if (FormatCursor(cursor) != text) return std::nullopt;
  return cursor;
}

Cursor CursorOf(const LogSnapshot& snapshot, const std::vector<std::uint32_t>& oldestFirst,
                std::size_t position) {
  const LogMessageBody& body = BodyAt(snapshot, oldestFirst, position);
  Cursor cursor{TimeKey(body), IdentityOf(body), 1, snapshot.header.rewriteCount,
                snapshot.header.nextSequence};
  while (position > 0 && TimeKey(BodyAt(snapshot, oldestFirst, position - 1)) == cursor.key) {
    --position;
    if (IdentityOf(BodyAt(snapshot, oldestFirst, position)) == cursor.identity) ++cursor.occurrence;
  }
  return cursor;
}

Cursor CursorCount::Next(const LogMessageBody& body) {
  const std::uint64_t key = TimeKey(body);
  if (key != lastKey) occurrences.clear();
  lastKey = key;
  const MessageIdentity identity = IdentityOf(body);
  return {key, identity, ++occurrences[identity], rewriteCount, nextSequence};
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
    place.found = seen == cursor.occurrence;
  }
  place.next = static_cast<std::size_t>(at - oldestFirst.begin());
  const LogFileHeader& header = snapshot.header;
  if (header.rewriteCount > cursor.rewriteCount && header.nextSequence >= cursor.nextSequence) {
    place.writtenBefore = std::any_of(oldestFirst.begin(), first, [&](std::uint32_t slot) {
      return snapshot.slots[slot].sequence >= cursor.nextSequence;
    });
  }
  return place;
}

}  // namespace TamLogClient
