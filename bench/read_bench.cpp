// Measures a client that reads the log through the client library, next to bare copies and bare event calls.
// The server's real store in this process shares the log (bench/read_whole.py, bench/read_last.py).
//
//   read_bench LOGFILE SLOTS [COUNT]
//
// Measurements, in nanoseconds each:
// - snapshot: LogReader::Snapshot of everything, its order, and reading every message, newest first
// - copy: a copy of the same slots, newest first, into as much memory
// - in-place: LogReader::WithView, every message copied out, newest first
// - copy-one: a copy of each of the same slots, newest first, into the space of one message
// - whole, whole-access: LogReader::Snapshot of everything, and the same copy under read access
// - last, last-access: the newest 100 messages, without access and with
// - events: 8 calls of a bare event, as many as read access makes by its steps
// - count-last, count-last-access, count-whole, count-whole-access: COUNT and 2 COUNT of these between marks

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "bench/bench_store.h"
#include "bench/marks.h"
#include "bench/read_access.h"
#include "bench/turns.h"
#include "client/live/log_reader.h"
#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "util/win32.h"

namespace {

using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::LogTail;
using TamLogClient::LogView;
using TamLogClient::Status;

constexpr std::size_t kLast = 100;
constexpr int kRepeated = 200;  // for measurements that take microseconds
// A small log is read several times for one figure: the first call after a pause finds the caches empty.
constexpr std::size_t kReadAtLeast = 200'000;

void Check(Status status) {
  if (status == Status::Ok) return;
  Bench::Fail("reading failed with status " + std::to_string(static_cast<int>(status)));
}

class Reading {
 public:
  Reading(const std::string& path, std::uint32_t slots)
      : store(path, slots, Bench::Store::File::Given), count(slots) {
    Check(reader.Open(Bench::kMap));
    Snapshot(), Snapshot();  // both have allocated their memory now
  }

  double Repeated(double (Reading::*read)()) {
    const std::size_t times = std::max<std::size_t>(kReadAtLeast / count, 1);
    double spent = 0;
    for (std::size_t i = 0; i < times; ++i) spent += (this->*read)();
    return spent / static_cast<double>(times);
  }

  // Copies into the snapshot that was not used last, so that all messages have to be copied and memory is
  // warm.
  double Snapshot() {
    std::swap(snapshot, other);
    const double spent = Bench::Nanoseconds([&] {
      Check(reader.Snapshot(*snapshot));
      const auto order = TamLogClient::OrderMessages(*snapshot);
      std::uint64_t seen = 0;
      for (std::size_t i = order.oldestFirst.size(); i > 0; --i) {
        seen += snapshot->slots[order.oldestFirst[i - 1]].body.type;
      }
      Bench::sink = Bench::sink + seen;
    });
    if (snapshot->slots.size() != count) Check(Status::Damaged);
    return spent;
  }
  double Copy() {
    LogMessage* to = other->slots.data();
    return Bench::Nanoseconds(
        [&] { ForEachNewestFirst([&](const LogMessage& slot) { std::memcpy(to++, &slot, sizeof slot); }); });
  }
  double InPlace() {
    return Bench::Nanoseconds([&] {
      Check(reader.WithView(10'000'000, [&](const LogView& log) {
        const LogFileHeader header = log.Header();
        const auto capacity = static_cast<std::uint32_t>(header.maxMessages);
        auto slot = static_cast<std::uint32_t>(header.nextSlot);
        for (std::int32_t i = 0; i < header.messageCount; ++i) {
          slot = (slot == 0 ? capacity : slot) - 1;
          CopyOut(log.Slot(slot));
        }
      }));
    });
  }
  double CopyOne() {
    return Bench::Nanoseconds([&] { ForEachNewestFirst([&](const LogMessage& slot) { CopyOut(slot); }); });
  }
  // Copies everything into the snapshot that was not used last.
  void Whole() {
    std::swap(snapshot, other);
    Check(reader.Snapshot(*snapshot));
  }
  void WholeWithAccess() {
    WithAccess([this] { std::memcpy(other->slots.data(), view.Slots(), count * sizeof(LogMessage)); });
  }
  void LastWithAccess() {
    WithAccess([this] {
      const auto wanted = std::min(kLast, count);
      auto slot = static_cast<std::size_t>(tail.header.nextSlot);
      tail.messages.resize(wanted);
      for (std::size_t i = wanted; i > 0; --i) {
        slot = (slot == 0 ? count : slot) - 1;
        tail.messages[i - 1] = view.Slots()[slot];
      }
    });
  }
  void Last() {
    Check(reader.Newest(kLast, tail));
    if (tail.messages.size() != std::min<std::size_t>(kLast, count)) Check(Status::Damaged);
  }

 private:
  template <class Copy>
  void WithAccess(Copy&& copy) {
    access.Enter();
    std::memcpy(&tail.header, view.Header(), sizeof tail.header);
    copy();
    access.Leave();
  }
  // Copies like a memcpy that the compiler may not leave out.
  void CopyOut(const LogMessage& slot) {
    std::memcpy(&one, &slot, sizeof slot);
    asm volatile("" : : "r"(&one) : "memory");
  }
  template <class Use>
  void ForEachNewestFirst(Use&& use) {
    const LogMessage* const slots = view.Slots();
    auto slot = static_cast<std::size_t>(view.Header()->nextSlot);
    for (std::size_t i = 0; i < count; ++i) {
      slot = (slot == 0 ? count : slot) - 1;
      use(slots[slot]);
    }
  }

  Bench::Store store;
  Bench::View view;
  std::size_t count;
  LogReader reader;
  Bench::ReadAccess access{view.Header()->readCount};
  std::unique_ptr<LogSnapshot> snapshot = std::make_unique<LogSnapshot>();
  std::unique_ptr<LogSnapshot> other = std::make_unique<LogSnapshot>();
  LogTail tail;
  LogMessage one{};
};

double EightEventCalls(HANDLE event) {
  return Bench::Nanoseconds([&] {
           for (int i = 0; i < kRepeated; ++i) {
             for (const auto& call : {0, 1, 2, 3, 4, 5, 6, 7}) {
               switch (call % 3) {
                 case 0:
                   SetEvent(event);
                   break;
                 case 1:
                   WaitForSingleObject(event, 0);
                   break;
                 default:
                   ResetEvent(event);
                   break;
               }
             }
           }
         }) /
         kRepeated;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    Bench::Fail("usage: read_bench LOGFILE SLOTS [COUNT]");
  }
  const auto counted = static_cast<int>(Bench::NumberIn(argc, argv, 3));
  const std::uint32_t slots = Bench::NumberIn(argc, argv, 2);
  Reading reading(argv[1], slots);
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  const auto whole = [&](double (Reading::*read)()) { return [&, read] { return reading.Repeated(read); }; };
  // The mean of several: of 200 small reads, or of as many large ones as take about as long.
  const auto mean = [&](void (Reading::*read)(), int times) {
    return [&reading, read, times] {
      return Bench::Nanoseconds([&] {
               for (int i = 0; i < times; ++i) (reading.*read)();
             }) /
             times;
    };
  };
  const auto marked = [&](void (Reading::*read)()) {
    return [&reading, read, counted] {
      return Bench::MarkRepetitions(
          counted, [](int) {},
          [&](int repetitions) {
            for (int i = 0; i < repetitions; ++i) (reading.*read)();
          });
    };
  };
  const int wholes = std::max(1, static_cast<int>(kReadAtLeast / slots));
  return Bench::TakeTurns({{"snapshot", whole(&Reading::Snapshot)},
                           {"copy", whole(&Reading::Copy)},
                           {"in-place", whole(&Reading::InPlace)},
                           {"copy-one", whole(&Reading::CopyOne)},
                           {"whole", mean(&Reading::Whole, wholes)},
                           {"whole-access", mean(&Reading::WholeWithAccess, wholes)},
                           {"last", mean(&Reading::Last, kRepeated)},
                           {"last-access", mean(&Reading::LastWithAccess, kRepeated)},
                           {"events", [&] { return EightEventCalls(event); }},
                           {"count-last", marked(&Reading::Last)},
                           {"count-last-access", marked(&Reading::LastWithAccess)},
                           {"count-whole", marked(&Reading::Whole)},
                           {"count-whole-access", marked(&Reading::WholeWithAccess)}});
}
