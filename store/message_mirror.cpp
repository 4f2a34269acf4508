#include "store/message_mirror.h"

#include <cstring>

void MessageMirror::Clear() {
  if (lending) Trim(0);
  keys.Clear();
  if (!lending) bodies.Clear();
}

void MessageMirror::AppendOldest(std::uint64_t key, std::int64_t slot) {
  keys.AppendOldest(key, static_cast<std::uint32_t>(slot));
}

std::size_t MessageMirror::Insert(const LogMessageBody& body) {
  const std::uint32_t number = bodies.Take();
  LogMessage& message = bodies[number];
  message.sequence = 0;
  message.body = body;
  std::memset(message.padding, 0, sizeof message.padding);
  try {
    return keys.Insert(TimeKey(body), number | kInMemory);
  } catch (...) {
    bodies.Return(number);
    throw;
  }
}

void MessageMirror::Trim(std::size_t size) {
  while (keys.Size() > size) {
    const std::uint32_t number = keys.PopOldest();
    if ((number & kInMemory) != 0 && !IsLent(number)) bodies.Return(number & kBody);
  }
}

void MessageMirror::BringIntoMemory(std::size_t count, FlushTarget& target) {
  keys.FromNewest(count, [&](std::uint32_t& number) {
    if ((number & kInMemory) != 0) return;
    const std::uint32_t taken = bodies.Take();
    try {
      target.ReadBack(number, bodies[taken]);
    } catch (...) {
      bodies.Return(taken);
      throw;
    }
    number = taken | kInMemory;
  });
}

void MessageMirror::Lend(std::size_t count, std::vector<Lent>& loan) {
  loan.clear();
  loan.reserve(count);
  lending = true;
  try {
    keys.FromNewest(count, [&](std::uint32_t& number) {
      const bool inMemory = (number & kInMemory) != 0;
      const std::uint32_t body = inMemory ? number & kBody : bodies.Take();
      loan.push_back({.message = &bodies[body], .body = body, .slot = inMemory ? kRead : number});
      number = kInMemory | kLent | body;
    });
  } catch (...) {
    TakeBackUnwritten(loan);
    throw;
  }
}

void MessageMirror::TakeBackWritten(std::vector<Lent>& loan, std::int64_t first, std::int64_t capacity) {
  std::size_t left = loan.size();
  std::int64_t slot = (first + static_cast<std::int64_t>(left)) % capacity;
  keys.FromNewestWhile([&](std::uint32_t& number) {
    if (left == 0) return false;
    if (!IsLent(number)) return true;
    --left;
    slot = (slot == 0 ? capacity : slot) - 1;
    number = static_cast<std::uint32_t>(slot);
    return true;
  });
  for (const Lent& lent : loan) bodies.Return(lent.body);
  lending = false;
  bodies.Tidy(loan.size());
}

MessageMirror::Returned MessageMirror::TakeBackUnwritten(std::vector<Lent>& loan) {
  Returned returned = {.messages = 0, .depth = 0};
  std::size_t seen = 0;
  keys.FromNewestWhile([&](std::uint32_t& number) {
    if (returned.messages == loan.size()) return false;
    ++seen;
    if (!IsLent(number)) return true;
    const Lent& lent = loan[returned.messages++];
    returned.depth = seen;
    number = lent.slot == kRead ? kInMemory | lent.body : lent.slot;
    return true;
  });
  // The oldest were dropped.
  for (std::size_t i = 0; i < loan.size(); ++i) {
    if (i >= returned.messages || loan[i].slot != kRead) bodies.Return(loan[i].body);
  }
  lending = false;
  return returned;
}
