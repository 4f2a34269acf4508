// Measures the cost of a message in the server's store until it is in the file: AddMessage, and its share of
// the flush after every 2,000 messages. The file is full, so each message takes the place of the oldest
// (bench/append.py).
//
//   append_bench LOGFILE SLOTS [COUNT]
//
// Measurements, in nanoseconds each:
// - append: one message
// - flush-oldest: adding and flushing one message that is older than all but one in the file
// - rewrite-all: reading and writing every slot once, unchanged
// - count-add: COUNT and 2 COUNT calls of AddMessage between marks
// - count-filter: as many searches through 100 filters between marks

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_store.h"
#include "bench/marks.h"
#include "bench/turns.h"
#include "store/source_filters.h"

namespace {

constexpr std::size_t kBatch = 2000;  // at most; rewriting the whole log costs differently
constexpr std::size_t kMeasured = 20000;

double Append(Bench::Store& store, std::uint32_t slots) {
  const std::size_t batch = std::min<std::size_t>(kBatch, slots / 2);
  const std::vector<LogMessageBody> bodies = store.InOrder(kMeasured);
  return Bench::Nanoseconds([&] {
           for (std::size_t i = 0; i < kMeasured; ++i) {
             store.server.AddMessage(bodies[i]);
             if (i % batch == batch - 1) store.server.FlushWrites();
           }
         }) /
         kMeasured;
}

// Measures the only message that is expensive in this file format: all messages after its place are
// rewritten. A full file drops the oldest message at once, so this one is one newer than the oldest.
double FlushOldest(Bench::Store& store, std::uint32_t slots) {
  Bench::View view;
  const LogFileHeader& header = *view.Header();
  const std::uint64_t second = (static_cast<std::uint64_t>(header.nextSlot) + 1) % slots;
  LogMessageBody body = view.Slots()[second].body;
  return Bench::Nanoseconds([&] {
    store.server.AddMessage(body);
    store.server.FlushWrites();
  });
}

// Reads and writes every slot once, unchanged.
double RewriteAll(std::uint32_t slots) {
  Bench::View view;
  return Bench::Nanoseconds([&] {
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
      LogMessage message = view.Slots()[slot];
      asm volatile("" : : "r"(&message) : "memory");
      std::memcpy(view.Slots() + slot, &message, sizeof message);
    }
  });
}

double CountFilter(int counted) {
  SourceFilters filters;
  for (int i = 0; i < 100; ++i) filters.push_back("Source" + std::to_string(i) + "Name");
  const LogMessageBody body = Bench::MessageAt(1);
  return Bench::MarkRepetitions(
      counted, [](int) {},
      [&](int count) {
        for (int i = 0; i < count; ++i) {
          Bench::sink = Bench::sink + (filters.MatchAny(FoldedSource(body.source)) ? 1U : 0U);
        }
      });
}

double CountAdd(Bench::Store& store, int counted) {
  std::vector<LogMessageBody> bodies;
  return Bench::MarkRepetitions(
      counted, [&](int count) { bodies = store.InOrder(static_cast<std::size_t>(count)); },
      [&](int) {
        for (const LogMessageBody& body : bodies) store.server.AddMessage(body);
      });
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint32_t slots = Bench::NumberIn(argc, argv, 2);
  if (slots == 0) {
    Bench::Fail("usage: append_bench LOGFILE SLOTS [COUNT]");
  }
  const auto counted = static_cast<int>(Bench::NumberIn(argc, argv, 3));
  Bench::Store store(argv[1], slots, Bench::Store::File::Given);
  return Bench::TakeTurns({{"append", [&] { return Append(store, slots); }},
                           {"flush-oldest", [&] { return FlushOldest(store, slots); }},
                           {"rewrite-all", [&] { return RewriteAll(slots); }},
                           {"count-add", [&] { return CountAdd(store, counted); }},
                           {"count-filter", [&] { return CountFilter(counted); }}});
}
