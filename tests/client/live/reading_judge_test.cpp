// Readers in parallel with the server's real store, which appends, inserts, rewrites, clears and starts again
// as fast as it can. Each copy that a reader accepts has to be one state of the log, exactly. Copies are
// slowed down at random places and made in both directions.
//
// scripts/judge-reading.sh runs more copies (TAMLOG_READING_COPIES in the environment sets their number), and
// adds a ring of a million slots; docs/reliability.md has the counts of a long run.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "client/live/log_reader.h"
#include "client/log/ring.h"
#include "client/message/win32.h"
#include "store/message_file_server.h"
#include "tests/client/live/disturbed_copy.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"
#include "tests/support/watchdog.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::LogTail;
using TamLogClient::LogView;
using TamLogClient::Status;
using TamLogTest::CopyCalls;

// Rings are judged at the same time, each in a process of its own.
std::string NameOf(const char* role) {
  return "Global\\TamLogReadingJudge" + std::string(role) + std::to_string(GetCurrentProcessId());
}

constexpr std::size_t kTail = 100;
constexpr DWORD kFlushMs = 210;  // the server's own pause, after its start and between two flushes

const char* WantedText() {
  return std::getenv("TAMLOG_READING_COPIES");
}

// The largest ring needs 3 GB of memory, so it is judged in long runs only.
std::vector<std::uint32_t> Rings() {
  std::vector<std::uint32_t> rings{200, 5000, 50000};
  if (WantedText() != nullptr) rings.push_back(1'000'000);
  return rings;
}

// The number of copies of a ring of so many slots.
long Wanted(std::uint32_t slots) {
  const char* const set = WantedText();
  const long ofSmall = set == nullptr ? 3000 : std::max(std::atol(set), 1L);
  return slots < 1000 ? ofSmall : std::max(ofSmall * 1000 / static_cast<long>(slots), 300L);
}

std::uint64_t Mix(std::uint64_t value) {
  value ^= value >> 31U;
  value *= 0x9E3779B97F4A7C15U;
  return value ^ value >> 29U;
}

// The sum of everything after `origin`, which carries it.
std::uint64_t SumOf(const LogMessageBody& body) {
  std::uint64_t sum = 0;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&body);
  for (std::size_t at = sizeof(body.origin); at + 8 <= sizeof(body); at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes + at, sizeof(word));
    sum = Mix(sum + word);
  }
  return sum;
}

LogMessageBody SignedBody(std::int32_t time, std::uint64_t serial) {
  LogMessageBody body = TamLogTest::MakeBody(
      time, std::string(200, static_cast<char>('a' + serial % 26)) + std::to_string(serial));
  const std::uint64_t sum = SumOf(body);
  std::memcpy(&body.origin, &sum, sizeof(sum));
  return body;
}

// The place, number and sum of a slot's message; 0 when the message is torn.
std::uint64_t PrintOf(std::size_t place, const LogMessage& message, bool& whole) {
  std::uint64_t sum = 0;
  std::memcpy(&sum, &message.body.origin, sizeof(sum));
  if (sum != SumOf(message.body)) whole = false;
  return Mix(Mix(place + 1) + message.sequence) + Mix(sum);
}

// The state of a log, short: its counters, and the sum of the prints of all its messages and of the newest.
struct Print {
  std::uint64_t all = 0;
  std::uint64_t newest = 0;
};

std::uint64_t CountersOf(const LogFileHeader& header) {
  std::uint64_t sum = 0;
  for (const std::uint64_t counter :
       {header.changeCount, header.rewriteCount, header.nextSequence, std::uint64_t(header.nextSlot),
        std::uint64_t(header.messageCount), std::uint64_t(header.maxMessages)}) {
    sum = Mix(sum + counter);
  }
  return sum;
}

// `slotAt(slot)` returns a slot's message. Places are counted from the newest on.
template <typename SlotAt>
Print PrintOfLog(const LogFileHeader& header, SlotAt slotAt, bool& whole) {
  Print print;
  const auto count = static_cast<std::uint32_t>(header.messageCount);
  for (std::uint32_t place = 0; place < count; ++place) {
    const std::uint32_t slot = TamLogClient::SlotAt(header, count - 1 - place);
    print.all += PrintOf(place, slotAt(slot), whole);
    if (place < kTail) print.newest = print.all;
  }
  return print;
}

struct Sight {
  std::uint64_t counters = 0;
  std::uint64_t print = 0;
  bool ofTail = false;
};

// Reads of one kind.
struct Reads {
  long accepted = 0;
  long retries = 0;  // of those, as far as they were made at once
};

struct Table {
  Reads snapshots;
  Reads tails;
  Reads views;
  long inParts = 0;   // snapshots that were copied in parts
  long unsteady = 0;  // not copied in time
  long torn = 0;
  long unknown = 0;
  std::uint64_t longest = 0;  // microseconds, one read with all its attempts
};

class ReadingJudge : public testing::TestWithParam<std::uint32_t> {
 protected:
  ReadingJudge() {
    configuration.maxMessage = GetParam();
    configuration.logFile = directory.File("Logs.dat");
    std::fill(std::begin(configuration.typeFilter), std::end(configuration.typeFilter), true);
  }

  void Open() {
    server->OpenFile(NameOf("Map"), NameOf("HeaderLock"), NameOf("ReadWait"), NameOf("WriteWait"));
    mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, NameOf("Map").c_str());
    view = static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
    NoteState();
  }

  void Close() {
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    server->CloseFile(TamLogUtil::Timeout::Infinite);
  }

  // The state is noted after the server has published it, so judging waits until the writer has ended.
  void NoteState() {
    LogFileHeader header{};
    std::memcpy(&header, view, sizeof(header));
    const auto* const slots = reinterpret_cast<const LogMessage*>(view + kSlotsOffset);
    bool whole = true;
    const Print print = PrintOfLog(
        header, [slots](std::uint32_t slot) -> const LogMessage& { return slots[slot]; }, whole);
    states.emplace(CountersOf(header), print);
    ++written;
  }

  void Submit(int count) {
    for (int i = 0; i < count; ++i) {
      now += Pick(3);
      const bool late = Pick(40) == 0;
      server->AddMessage(SignedBody(late ? now - Pick(std::min(now, 500)) : now, serial++));
    }
  }

  void WriteOnce() {
    const int capacity = static_cast<int>(GetParam());
    const int kind = Pick(400);
    if (kind == 0) return Restart(Pick(1) == 0);
    if (kind == 1) {
      server->ClearMessages();
    } else {
      const bool burst = kind < 4 && capacity <= 5000;
      Submit(burst ? capacity + Pick(5) : 1 + Pick(20));
      if (IsYoung()) Sleep(kFlushMs);
      server->FlushWrites();
    }
    NoteState();
  }

  void Restart(bool empty) {
    Close();
    if (empty) DeleteFileA(configuration.logFile.c_str());
    Open();
    Sleep(kFlushMs);
  }

  // See IsYoung in consistent_read_test.cpp.
  bool IsYoung() const {
    LogFileHeader header{};
    std::memcpy(&header, view, sizeof(header));
    return header.changeCount - header.rewriteCount < 12;
  }

  void Write() {
    while (!done) {
      WriteOnce();
      if (Pick(3) == 0) Sleep(static_cast<DWORD>(Pick(2)));
    }
  }

  // Disturbed readers mostly sleep. Each has two copies of the log.
  static unsigned Readers() { return GetParam() <= 5000 ? 12 : 3; }

  // One of the readers. Each read is of another kind.
  void Read(unsigned seed) {
    std::minstd_rand pick(seed);
    LogReader reader;
    LogSnapshot snapshots[2];
    Table own;
    std::vector<Sight> seen;
    while (copies < Wanted(GetParam())) {
      if (!reader.IsOpen() && reader.Open(NameOf("Map")) != Status::Ok) {
        Sleep(5);
        continue;
      }
      Sight sight;
      TamLogTest::TakeCopyCalls();
      const Status status = ReadOnce(reader, snapshots[pick() % 8 == 0 ? 1 : 0], pick(), own, sight);
      own.longest = std::max(own.longest, reader.LastCopyMicroseconds());
      if (status == Status::Unsteady || status == Status::Stuck) ++own.unsteady;
      if (status != Status::Ok) continue;
      seen.push_back(sight);
      ++copies;
    }
    const std::lock_guard lock(mutex);
    sights.insert(sights.end(), seen.begin(), seen.end());
    Add(own);
  }

  static void Count(Reads& reads, long& inParts) {
    const CopyCalls made = TamLogTest::TakeCopyCalls();
    ++reads.accepted;
    if (made.compared > 0) {
      ++inParts;
    } else {
      reads.retries += made.begun - 1;
    }
  }

  // Looking at a million slots takes longer than a look may take.
  static bool IsViewed() { return GetParam() <= 50000; }

  static Status ReadOnce(LogReader& reader, LogSnapshot& snapshot, unsigned kind, Table& table,
                         Sight& sight) {
    bool whole = true;
    Status status = Status::Ok;
    if (kind % 4 == 0) {
      LogTail tail;
      status = reader.Newest(kTail, tail);
      if (status != Status::Ok) return status;
      Count(table.tails, table.inParts);
      std::size_t place = tail.messages.size();
      sight = {CountersOf(tail.header), 0, true};
      for (const LogMessage& message : tail.messages) sight.print += PrintOf(--place, message, whole);
    } else if (kind % 4 == 1 && IsViewed()) {
      LogFileHeader header{};
      Print print;
      bool torn = false;
      status = reader.WithView(100000, [&](const LogView& log) {
        header = log.Header();
        bool sound = true;
        print = PrintOfLog(
            header, [&](std::uint32_t slot) -> const LogMessage& { return log.Slot(slot); }, sound);
        torn = !sound;
      });
      if (status != Status::Ok) return status;
      Count(table.views, table.inParts);
      whole = !torn;
      sight = {CountersOf(header), print.all, false};
    } else {
      status = reader.Snapshot(snapshot);
      if (status != Status::Ok) return status;
      Count(table.snapshots, table.inParts);
      const Print print = PrintOfLog(
          snapshot.header, [&](std::uint32_t slot) -> const LogMessage& { return snapshot.slots[slot]; },
          whole);
      sight = {CountersOf(snapshot.header), print.all, false};
    }
    if (!whole) ++table.torn;
    return status;
  }

  void Add(const Table& own) {
    for (Reads Table::*const kind : {&Table::snapshots, &Table::tails, &Table::views}) {
      (table.*kind).accepted += (own.*kind).accepted;
      (table.*kind).retries += (own.*kind).retries;
    }
    table.inParts += own.inParts;
    table.unsteady += own.unsteady;
    table.torn += own.torn;
    table.longest = std::max(table.longest, own.longest);
  }

  bool Known(const Sight& sight) const {
    const auto [begin, end] = states.equal_range(sight.counters);
    return std::any_of(begin, end, [&](const auto& state) {
      return sight.print == (sight.ofTail ? state.second.newest : state.second.all);
    });
  }

  // The checks of a kind of read have proven something only where it had to be repeated.
  void ExpectThatReadsWereDisturbed() const {
    if (IsViewed()) {
      EXPECT_GT(table.snapshots.retries, 0);
      EXPECT_GT(table.tails.retries, 0);
      EXPECT_GT(table.views.retries, 0);
    } else {
      EXPECT_GT(table.inParts, 0);
    }
    EXPECT_LE(table.unsteady, table.snapshots.accepted / 100);
  }

  int Pick(int most) { return std::uniform_int_distribution<int>(0, most)(random); }

  TestSupport::TempDir directory;
  ServerConfiguration configuration;
  TamLogUtil::Mutex configLock;
  std::unique_ptr<MessageFileServer> server =
      std::make_unique<MessageFileServer>(&configuration, &configLock);
  HANDLE mapping = nullptr;
  const char* view = nullptr;
  std::mt19937 random{20261122};
  int now = 1000;
  std::uint64_t serial = 1;
  long written = 0;
  std::multimap<std::uint64_t, Print> states;
  std::atomic<bool> done{false};
  std::atomic<long> copies{0};
  std::mutex mutex;  // guards `sights` and `table` while readers end
  std::vector<Sight> sights;
  Table table;
};

TEST_P(ReadingJudge, EachCopyThatAReaderAcceptsIsOneStateOfTheLog) {
  TestSupport::SetWatchdogLimit(WantedText() == nullptr ? 180 : 3600);
  TamLogTest::DisturbCopies(50);
  Open();
  Submit(static_cast<int>(GetParam()) / 2);
  server->FlushWrites();
  while (IsYoung()) {
    Submit(1);
    server->FlushWrites();
  }
  NoteState();
  std::jthread writer([this] { Write(); });
  {
    std::vector<std::jthread> readers;
    for (unsigned seed = 1; seed <= Readers(); ++seed) readers.emplace_back([this, seed] { Read(seed); });
  }
  done = true;
  writer.join();
  Close();
  for (const Sight& sight : sights) table.unknown += Known(sight) ? 0 : 1;
  std::printf(
      "(slots, states written, snapshots, retries, in parts, newest 100, retries, in place, retries, not "
      "copied in time, longest, wrong)\n"
      "| %u | %ld | %ld | %ld | %ld | %ld | %ld | %ld | %ld | %ld | %s ms | %ld |\n",
      GetParam(), written, table.snapshots.accepted, table.snapshots.retries, table.inParts,
      table.tails.accepted, table.tails.retries, table.views.accepted, table.views.retries, table.unsteady,
      std::to_string(table.longest / 1000).c_str(), table.torn + table.unknown);
  EXPECT_EQ(table.torn, 0);
  EXPECT_EQ(table.unknown, 0);
  ExpectThatReadsWereDisturbed();
}

INSTANTIATE_TEST_SUITE_P(Rings, ReadingJudge, testing::ValuesIn(Rings()));

}  // namespace
