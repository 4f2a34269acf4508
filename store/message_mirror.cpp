#include "store/message_mirror.h"

#include <algorithm>
#include <iterator>

void MessageMirror::Clear() {
  keys.Clear();
  bodies.Clear();
}

void MessageMirror::AppendOldest(std::uint64_t key, std::int64_t slot) {
  keys.AppendOldest(key, static_cast<std::uint32_t>(slot));
}

std::size_t MessageMirror::Insert(const LogMessageBody& body) {
  const std::uint32_t number = bodies.Take();
  LogMessage& message = bodies[number];
  message.sequence = 0;
  message.body = body;
  std::fill(std::begin(message.padding), std::end(message.padding), std::uint8_t{0});
  try {
    return keys.Insert(TimeKey(body), number | kInMemory);
  } catch (...) {
    bodies.GiveBack(number);
    throw;
  }
}

void MessageMirror::Trim(std::size_t size) {
  while (keys.Size() > size) {
    const std::uint32_t number = keys.TakeOldest();
    if ((number & kInMemory) != 0) bodies.GiveBack(number & ~kInMemory);
  }
}

void MessageMirror::BringIntoMemory(std::size_t count, FlushTarget& target) {
  keys.FromNewest(count, [&](std::uint32_t& number) {
    if ((number & kInMemory) != 0) return;
    const std::uint32_t taken = bodies.Take();
    try {
      target.ReadBack(number, bodies[taken]);
    } catch (...) {
      bodies.GiveBack(taken);
      throw;
    }
    number = taken | kInMemory;
  });
}

void MessageMirror::LeaveInFile(std::size_t count, std::int64_t first, std::int64_t capacity) {
  std::int64_t slot = (first + static_cast<std::int64_t>(count)) % capacity;
  keys.FromNewest(count, [&](std::uint32_t& number) {
    bodies.GiveBack(number & ~kInMemory);
    slot = (slot == 0 ? capacity : slot) - 1;
    number = static_cast<std::uint32_t>(slot);
  });
  bodies.Tidy(count);
}
