#include "tests/soak/witness.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>

#include "tests/system/platform.h"
#include "util/win32.h"

using namespace std::chrono_literals;
using TamLogClient::Status;

namespace Soak {

namespace {

constexpr auto kPause = 20ms;
constexpr std::uint32_t kCopyLimitMs = 5000;
constexpr std::size_t kMostFaults = 20;

}  // namespace

Witness::Witness(std::int32_t calmCapacity)
    : calm(calmCapacity), seenInLook(kSenders), thread([this] { Run(); }) {}

void Witness::Stop() {
  stopping = true;
  if (thread.joinable()) thread.join();
}

bool Witness::Has(const MessageId& id) const {
  const std::lock_guard guard(lock);
  return seen.Has(id);
}

void Witness::Run() {
  while (!stopping) {
    if (reader.IsOpen() || Open()) Copy();
    std::this_thread::sleep_for(kPause);
  }
  reader.Close();
}

// The pipe answers only while the log is open: a reader that maps the file while the server starts makes a
// change of its size fail, and the server then stays stopped.
bool Witness::Open() {
  std::string name;
  const bool running = client.GetFileMapName(name) == Status::Ok;
  client.Disconnect();
  if (!running || reader.Open(name) != Status::Ok) return false;
  ++openings;
  lastChange = ~std::uint64_t{0};
  return true;
}

void Witness::Copy() {
  LogFileHeader header{};
  if (reader.Look(header) != Status::Ok) {
    closings.push_back(Now());
    return;
  }
  if (header.readCount < 0) Rescue();
  if (header.changeCount == lastChange) return;
  Look look;
  look.begin = Now();
  const Status status = reader.Snapshot(snapshot, kCopyLimitMs);
  look.end = Now();
  if (status == Status::Ok) {
    TakeIn(look);
  } else if (status == Status::TimedOut) {
    ++blocked;
  } else if (status != Status::NotRunning) {
    Fault(std::string("a copy of the log failed: ") + TamLogClient::StatusText(status));
    reader.Close();
  }
}

void Witness::TakeIn(Look look) {
  const LogFileHeader& header = snapshot.header;
  longestCopy = std::max(longestCopy, reader.LastCopyMicroseconds());
  lastChange = header.changeCount;
  look.changeCount = header.changeCount;
  look.rewriteCount = header.rewriteCount;
  look.opening = openings;
  look.full = snapshot.Full();
  const bool isCalm = header.maxMessages >= calm;
  look.oldestKey = ~std::uint64_t{0};
  std::uint64_t before = 0;
  const std::lock_guard guard(lock);
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    const LogMessage& message = snapshot.slots[slot];
    const std::uint64_t key = TimeKey(message.body);
    if (isCalm && key < before) Fault("times fall in slot " + std::to_string(slot));
    before = key;
    look.oldestKey = std::min(look.oldestKey, key);
    TakeInSlot(message, isCalm);
  }
  looks.push_back(look);
}

void Witness::TakeInSlot(const LogMessage& message, bool isCalm) {
  MessageId id;
  std::memcpy(&id.sender, message.body.origin, sizeof(id.sender));
  std::memcpy(&id.number, message.body.origin + sizeof(id.sender), sizeof(id.number));
  if (id.sender >= kSenders || !seen.Has(id)) {
    const std::optional<MessageId> whole = Identify(message.body);
    if (!whole) {
      const std::string text(message.body.text, strnlen(message.body.text, kTextSize));
      return Fault("a message that no sender submitted: " + text);
    }
    seen.Add(id);
  }
  // Each message carries the number of this look.
  std::vector<std::uint32_t>& marks = seenInLook[id.sender];
  if (marks.size() <= id.number) marks.resize(std::size_t{id.number} + 1000);
  const auto mark = static_cast<std::uint32_t>(looks.size() + 1);
  if (marks[id.number] == mark) {
    ++twice;
    if (isCalm) {
      Fault("twice in one ring: sender " + std::to_string(id.sender) + " message " +
            std::to_string(id.number));
    }
  }
  marks[id.number] = mark;
}

// Reader and writer can pass each other (docs/read_access.md, "Hazards"). A reader of the
// server's own, when it forces the file to the disk, does not correct that, and the next flush waits until
// another process signals write-wait.
void Witness::Rescue() {
  const OwnedHandle event = Own(OpenEventA(EVENT_MODIFY_STATE, FALSE, kWriteWaitEventName));
  if (event && SetEvent(event.get()) != 0) ++rescues;
}

void Witness::Fault(const std::string& text) {
  if (faults.size() < kMostFaults) faults.push_back(text);
}

}  // namespace Soak
