// Measures what a flush blocks: how long readers are shut out, and how long a message that is submitted
// meanwhile waits (bench/flush_guards.py).
//
//   flush_guards_bench LOGFILE SLOTS
//
// Measurements, in nanoseconds each:
// - readers-out: from the reset of the read-wait event until it is set again, in a flush of 2,000
// - limit: 5 bare event calls, and 1.15 times the copying of 2,000 messages into the same slots
// - submit-wait: the longest AddMessage of another thread, on another processor, during a flush of 20,000
// - submit-alone: the longest of as many while nothing is flushed, which is the delay that the system adds by
//   itself

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_store.h"
#include "bench/turns.h"
#include "util/win32.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kShutOutBatch = 2000;
constexpr std::size_t kBusyBatch = 20000;
constexpr double kShare = 1.15;
constexpr int kFixedCalls = 5;

// The read-wait event in this process, and the times at which readers were shut out and let in.
std::atomic<HANDLE> readWait = nullptr;
Clock::time_point shutOut;
Clock::time_point letIn;

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32"), name)));
}
const auto realCreateEvent = Real<decltype(&CreateEventA)>("CreateEventA");
const auto realSetEvent = Real<decltype(&SetEvent)>("SetEvent");
const auto realResetEvent = Real<decltype(&ResetEvent)>("ResetEvent");

// The run-time calls these functions before the pointers above exist.
HANDLE WINAPI NotedCreateEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL initial, LPCSTR name) {
  const auto create =
      realCreateEvent != nullptr ? realCreateEvent : Real<decltype(&CreateEventA)>("CreateEventA");
  const HANDLE event = create(attributes, manual, initial, name);
  if (name != nullptr && std::strcmp(name, Bench::kReadWait) == 0) readWait = event;
  return event;
}

BOOL WINAPI NotedResetEvent(HANDLE event) {
  if (event == readWait) shutOut = Clock::now();
  return (realResetEvent != nullptr ? realResetEvent : Real<decltype(&ResetEvent)>("ResetEvent"))(event);
}

BOOL WINAPI NotedSetEvent(HANDLE event) {
  const BOOL result = (realSetEvent != nullptr ? realSetEvent : Real<decltype(&SetEvent)>("SetEvent"))(event);
  if (event == readWait) letIn = Clock::now();
  return result;
}

double Between(Clock::time_point begin, Clock::time_point end) {
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(end - begin).count());
}

double ReadersOut(Bench::Store& store) {
  for (const LogMessageBody& body : store.InOrder(kShutOutBatch)) store.server.AddMessage(body);
  shutOut = letIn = {};
  store.server.FlushWrites();
  if (shutOut == Clock::time_point{} || letIn <= shutOut) {
    Bench::Fail("the flush did not shut readers out by the read-wait event");
  }
  return Between(shutOut, letIn);
}

double Limit(Bench::View& view, std::uint32_t slots, HANDLE event) {
  const std::vector<LogMessage> copies(
      kShutOutBatch, {.sequence = 1, .body = Bench::MessageAt(std::uint64_t{slots} * 500), .padding = {}});
  // These are the slots that the next flush will write.
  auto slot = static_cast<std::size_t>(view.Header()->nextSlot);
  const double copying = Bench::Nanoseconds([&] {
    for (const LogMessage& message : copies) {
      std::memcpy(view.Slots() + slot, &message, sizeof message);
      if (++slot == slots) slot = 0;
    }
  });
  constexpr int kRounds = 100;
  const double calls = Bench::Nanoseconds([&] {
    for (int i = 0; i < kRounds * kFixedCalls; ++i) realSetEvent(event);
  });
  return calls / kRounds + kShare * copying;
}

// Returns the longest of the calls that a thread on the second processor makes while `busy` runs on the
// first.
template <class Busy>
double LongestBeside(Bench::Store& store, Busy&& busy) {
  const std::vector<LogMessageBody> bodies = store.InOrder(kBusyBatch);
  std::atomic<bool> started = false;
  std::atomic<bool> ended = false;
  double longest = 0;
  std::thread other([&] {
    SetThreadAffinityMask(GetCurrentThread(), 2);
    std::size_t next = 0;
    started = true;
    while (!ended && next < bodies.size()) {
      const double spent = Bench::Nanoseconds([&] { store.server.AddMessage(bodies[next]); });
      // Calls before and after the flush do not count; one that began during it does.
      longest = std::max(longest, spent);
      ++next;
      // Pauses some microseconds between two messages, so that they last as long as the flush.
      const auto pause = Clock::now() + std::chrono::microseconds(2);
      while (Clock::now() < pause) {
      }
    }
  });
  while (!started) SwitchToThread();
  busy();
  ended = true;
  other.join();
  store.server.FlushWrites();
  return longest;
}

double SubmitWait(Bench::Store& store) {
  for (const LogMessageBody& body : store.InOrder(kBusyBatch)) store.server.AddMessage(body);
  return LongestBeside(store, [&] { store.server.FlushWrites(); });
}

double SubmitAlone(Bench::Store& store) {
  return LongestBeside(store, [] {
    const auto end = Clock::now() + std::chrono::milliseconds(2);
    while (Clock::now() < end) {
    }
  });
}

}  // namespace

extern "C" {
decltype(&CreateEventA) __imp_CreateEventA = NotedCreateEvent;
decltype(&SetEvent) __imp_SetEvent = NotedSetEvent;
decltype(&ResetEvent) __imp_ResetEvent = NotedResetEvent;
}

int main(int argc, char** argv) {
  const std::uint32_t slots = Bench::NumberIn(argc, argv, 2);
  if (slots <= kBusyBatch) {
    Bench::Fail("usage: flush_guards_bench LOGFILE SLOTS, more than 20,000 of them");
  }
  Bench::Store store(argv[1], slots, Bench::Store::File::Given);
  Bench::View view;
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  SetThreadAffinityMask(GetCurrentThread(), 1);
  return Bench::TakeTurns({{"readers-out", [&] { return ReadersOut(store); }},
                           {"limit", [&] { return Limit(view, slots, event); }},
                           {"submit-wait", [&] { return SubmitWait(store); }},
                           {"submit-alone", [&] { return SubmitAlone(store); }}});
}
