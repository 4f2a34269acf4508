// Readers beside the server's real store, which appends, inserts, rewrites, clears and starts again as fast
// as it can. Each copy that a reader accepts has to be one state of the log, exactly. Copies are slowed down
// at random places and made in both directions.
//
// TAMLOG_READING_COPIES in the environment sets the number of copies of each ring (docs/reliability.md has
// the counts of a long run); TAMLOG_READING_LARGE=1 adds a ring of a million slots, for which 3 GB of memory
// are needed.

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

#include "client/live/guarded_copy.h"
#include "client/live/log_reader.h"
#include "client/log/ring.h"
#include "client/message/win32.h"
#include "store/message_file_server.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"
#include "tests/support/watchdog.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

// 0: copies run at full speed; else one copy in so many is disturbed.
std::atomic<int> disturbedOneIn{0};

}  // namespace

// Takes the place of the guarded copy (the linker's --wrap).
extern "C" std::uint32_t __real_TamLogClientGuardedCopy(void*, const void*, std::size_t, std::size_t);
extern "C" std::uint32_t __wrap_TamLogClientGuardedCopy(void* to, const void* from, std::size_t bytes,
                                                        std::size_t stride);

extern "C" std::uint32_t __wrap_TamLogClientGuardedCopy(void* to, const void* from, std::size_t bytes,
                                                        std::size_t stride) {
  thread_local std::minstd_rand random(GetCurrentThreadId());
  const int oneIn = disturbedOneIn;
  if (oneIn == 0 || bytes <= 8 || random() % static_cast<unsigned>(oneIn) != 0) {
    return __real_TamLogClientGuardedCopy(to, from, bytes, stride);
  }
  const std::size_t words = bytes / 8;
  const std::size_t cut = random() % words * 8;
  auto* const target = static_cast<char*>(to);
  const auto* const source = static_cast<const char*>(from);
  const auto copy = [&](std::size_t begin, std::size_t end) {
    const std::size_t at = stride == 0 ? begin : begin / 8 * stride;
    return __real_TamLogClientGuardedCopy(target + begin, source + at, end - begin, stride);
  };
  const bool backwards = random() % 2 == 0;
  const std::uint32_t first = backwards ? copy(cut, bytes) : copy(0, cut);
  Sleep(random() % 16 == 0 ? 160 : random() % 3);
  const std::uint32_t second = backwards ? copy(0, cut) : copy(cut, bytes);
  return first != 0 ? first : second;
}

namespace {

using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::LogTail;
using TamLogClient::LogView;
using TamLogClient::Status;

// Rings are judged at the same time, each in a process of its own.
std::string NameOf(const char* role) {
  return "Global\\TamLogReadingJudge" + std::string(role) + std::to_string(GetCurrentProcessId());
}

constexpr std::size_t kTail = 100;
constexpr DWORD kFirstFlushMs = 210;  // the server's own pause between its start and its first flush

constexpr std::uint32_t kLarge = 1'000'000;

const char* WantedText() {
  return std::getenv("TAMLOG_READING_COPIES");
}

// The number of copies of a ring of so many slots.
long Wanted(std::uint32_t slots) {
  const char* const set = WantedText();
  const long ofSmall = set == nullptr ? 3000 : std::max(std::atol(set), 1L);
  return slots <= 5000 ? ofSmall : std::max(ofSmall * 5000 / static_cast<long>(slots), 30L);
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

struct Table {
  long snapshots = 0;
  long tails = 0;
  long views = 0;
  long viewCalls = 0;
  long timedOut = 0;
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
      server->FlushWrites();
    }
    NoteState();
  }

  void Restart(bool empty) {
    Close();
    if (empty) DeleteFileA(configuration.logFile.c_str());
    Open();
    Sleep(kFirstFlushMs);
  }

  void Write() {
    while (!done) {
      WriteOnce();
      if (Pick(3) == 0) Sleep(static_cast<DWORD>(Pick(2)));
    }
  }

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
      const Status status = ReadOnce(reader, snapshots[pick() % 8 == 0 ? 1 : 0], pick(), own, sight);
      own.longest = std::max(own.longest, reader.LastCopyMicroseconds());
      if (status == Status::TimedOut || status == Status::Stuck) ++own.timedOut;
      if (status != Status::Ok) continue;
      seen.push_back(sight);
      ++copies;
    }
    const std::lock_guard lock(mutex);
    sights.insert(sights.end(), seen.begin(), seen.end());
    Add(own);
  }

  static Status ReadOnce(LogReader& reader, LogSnapshot& snapshot, unsigned kind, Table& table,
                         Sight& sight) {
    bool whole = true;
    Status status = Status::Ok;
    if (kind % 4 == 0) {
      LogTail tail;
      status = reader.Newest(kTail, tail);
      if (status != Status::Ok) return status;
      ++table.tails;
      std::size_t place = tail.messages.size();
      sight = {CountersOf(tail.header), 0, true};
      for (const LogMessage& message : tail.messages) sight.print += PrintOf(--place, message, whole);
    } else if (kind % 4 == 1) {
      LogFileHeader header{};
      Print print;
      bool torn = false;
      status = reader.WithView(100000, [&](const LogView& log) {
        ++table.viewCalls;
        header = log.Header();
        bool sound = true;
        print = PrintOfLog(
            header, [&](std::uint32_t slot) -> const LogMessage& { return log.Slot(slot); }, sound);
        torn = !sound;
      });
      if (status != Status::Ok) return status;
      ++table.views;
      whole = !torn;
      sight = {CountersOf(header), print.all, false};
    } else {
      status = reader.Snapshot(snapshot);
      if (status != Status::Ok) return status;
      ++table.snapshots;
      const Print print = PrintOfLog(
          snapshot.header, [&](std::uint32_t slot) -> const LogMessage& { return snapshot.slots[slot]; },
          whole);
      sight = {CountersOf(snapshot.header), print.all, false};
    }
    if (!whole) ++table.torn;
    return status;
  }

  void Add(const Table& own) {
    table.snapshots += own.snapshots;
    table.tails += own.tails;
    table.views += own.views;
    table.viewCalls += own.viewCalls;
    table.timedOut += own.timedOut;
    table.torn += own.torn;
    table.longest = std::max(table.longest, own.longest);
  }

  bool Known(const Sight& sight) const {
    const auto [begin, end] = states.equal_range(sight.counters);
    return std::any_of(begin, end, [&](const auto& state) {
      return sight.print == (sight.ofTail ? state.second.newest : state.second.all);
    });
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
  if (GetParam() == kLarge && WantedText() == nullptr) return;
  TestSupport::SetWatchdogLimit(WantedText() == nullptr ? 60 : 3600);
  disturbedOneIn = 50;
  Open();
  Submit(static_cast<int>(GetParam()) / 2);
  server->FlushWrites();
  NoteState();
  std::jthread writer([this] { Write(); });
  {
    std::vector<std::jthread> readers;
    for (unsigned seed = 1; seed <= 3; ++seed) readers.emplace_back([this, seed] { Read(seed); });
  }
  done = true;
  writer.join();
  Close();
  for (const Sight& sight : sights) table.unknown += Known(sight) ? 0 : 1;
  std::printf(
      "| %u | %ld | %ld | %ld | %ld | %ld | %ld | %ld | %s ms |\n"
      "(slots, states written, snapshots, newest 100, in place, calls for these, timed out, wrong, "
      "longest)\n",
      GetParam(), written, table.snapshots, table.tails, table.views, table.viewCalls, table.timedOut,
      table.torn + table.unknown, std::to_string(table.longest / 1000).c_str());
  EXPECT_EQ(table.torn, 0);
  EXPECT_EQ(table.unknown, 0);
  EXPECT_GT(table.viewCalls, table.views) << "no read was ever disturbed";
}

INSTANTIATE_TEST_SUITE_P(Rings, ReadingJudge, testing::Values(200, 5000, 50000, kLarge));

}  // namespace
