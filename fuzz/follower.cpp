// Fuzzes the follower with snapshots whose headers and numbers have any value: nothing outside a snapshot may
// be read, no arithmetic may overflow, and a stored state continues.
//
// The input is a row of steps: a byte that chooses what is done, a header, and a byte for the number of slots
// with a number and a letter each.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "client/log/follower_memory.h"
#include "client/log/log_follower.h"

namespace {

using TamLogClient::LogFollower;
using TamLogClient::LogSnapshot;

constexpr std::size_t kMostSlots = 31;

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : next(data), left(size) {}

  bool Empty() const { return left == 0; }

  template <class Value>
  Value Take() {
    Value value{};
    const std::size_t bytes = left < sizeof(value) ? left : sizeof(value);
    std::memcpy(&value, next, bytes);
    next += bytes;
    left -= bytes;
    return value;
  }

 private:
  const std::uint8_t* next;
  std::size_t left;
};

LogSnapshot SnapshotFrom(Input& input) {
  LogSnapshot snapshot;
  snapshot.header = input.Take<LogFileHeader>();
  snapshot.slots.resize(input.Take<std::uint8_t>() % (kMostSlots + 1));
  for (LogMessage& slot : snapshot.slots) {
    slot.sequence = input.Take<std::uint16_t>();
    slot.body.text[0] = static_cast<char>(input.Take<std::uint8_t>() % 16);
    slot.body.timestamp[6] = slot.body.text[0];
  }
  return snapshot;
}

void Resume(LogFollower& follower, std::size_t most) {
  const auto memory = TamLogClient::ParseMemory(FormatMemory(follower.Remembered(most)));
  if (!memory) std::abort();
  follower = {};
  follower.Resume(*memory);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  LogFollower follower;
  follower.Start(SnapshotFrom(input));
  while (!input.Empty()) {
    const auto what = input.Take<std::uint8_t>();
    const LogSnapshot snapshot = SnapshotFrom(input);
    if (what % 4 == 0) Resume(follower, what / 4);
    const auto step = follower.Next(snapshot, what % 2 == 0);
    if (step.messages.size() > snapshot.slots.size()) std::abort();
    for (const auto& message : step.messages) {
      if (message.slot >= snapshot.slots.size()) std::abort();
    }
    if (step.loss.most && *step.loss.most < step.loss.least) std::abort();
  }
  return 0;
}
