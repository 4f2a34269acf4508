// Readers next to the server's real store: one whose copy does not end while the server stops (a page comes
// from a slow disk, or a debugger holds the thread), one that is not called, one whose log never stops
// changing. A server that stops waits for the readers of its file, so they have to release it.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <stop_token>
#include <string>
#include <thread>

#include "client/live/handle.h"
#include "client/live/log_reader.h"
#include "client/live/log_stream.h"
#include "client/message/win32.h"
#include "store/message_file_server.h"
#include "tests/client/live/disturbed_copy.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using TamLogClient::Handle;
using TamLogClient::LogChange;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::LogStream;
using TamLogClient::LogStreamOptions;
using TamLogClient::Status;

constexpr DWORD kDelayMs = 4000;
constexpr std::uint64_t kReleasedMs = 1500;  // 250 ms where the machine is not busy

std::string NameOf(const char* role) {
  return "Global\\TamLogDelayedCopy" + std::string(role) + std::to_string(GetCurrentProcessId());
}

bool MappingExists() {
  return static_cast<bool>(Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, NameOf("Map").c_str())));
}

bool ReadWaitExists() {
  return static_cast<bool>(Handle(OpenEventA(SYNCHRONIZE, FALSE, NameOf("ReadWait").c_str())));
}

// Waits until neither exists. Returns the milliseconds since `begun`.
std::uint64_t MillisecondsUntilReleased(std::uint64_t begun) {
  while ((MappingExists() || ReadWaitExists()) && GetTickCount64() - begun < 2 * std::uint64_t{kDelayMs})
    Sleep(1);
  return GetTickCount64() - begun;
}

// The header of the log, mapped by a hostile program.
volatile LogFileHeader* hostileHeader = nullptr;

void CountAChange() {
  hostileHeader->changeCount = hostileHeader->changeCount + 1;
}

class DelayedCopy : public testing::Test {
 protected:
  DelayedCopy() {
    configuration.maxMessage = 100;
    configuration.logFile = directory.File("Logs.dat");
    configuration.typeFilter[0] = true;
    server.OpenFile(NameOf("Map"), NameOf("HeaderLock"), NameOf("ReadWait"), NameOf("WriteWait"));
    Add("first");
  }

  void Add(const std::string& text) {
    server.AddMessage(TamLogTest::MakeBody(++now, text));
    server.FlushWrites();
  }

  TestSupport::TempDir directory;
  ServerConfiguration configuration;
  TamLogUtil::Mutex configLock;
  MessageFileServer server{&configuration, &configLock};
  int now = 0;
};

TEST_F(DelayedCopy, DoesNotDelayAServerThatStops) {
  LogStreamOptions options;
  options.intervalMs = 10;
  options.mapName = NameOf("Map");
  LogStream stream(options);
  ASSERT_EQ(stream.Open(), Status::Ok);
  Add("second");
  TamLogTest::DelayNextCopy(kDelayMs);
  LogChange seen = LogChange::None;
  std::uint64_t returned = 0;
  std::jthread reading([&] {
    seen = stream.Wait(20000);
    returned = GetTickCount64();
  });
  while (!TamLogTest::CopyIsDelayed()) Sleep(1);
  const std::uint64_t stopped = GetTickCount64();
  server.CloseFile(TamLogUtil::Timeout::Infinite);
  const std::uint64_t taken = MillisecondsUntilReleased(stopped);
  reading.join();
  EXPECT_LT(taken, kReleasedMs);
  EXPECT_GT(returned, stopped + taken) << "the copy was over before";
  EXPECT_EQ(seen, LogChange::Stopped);
}

// The mapping and the event: a server that starts takes over an event that another process keeps.
TEST_F(DelayedCopy, FollowerThatNobodyCallsReleasesEverythingWhenTheServerStops) {
  LogStreamOptions options;
  options.mapName = NameOf("Map");
  LogStream stream(options);
  ASSERT_EQ(stream.Open(), Status::Ok);
  EXPECT_EQ(stream.Wait(0), LogChange::None);
  const std::uint64_t stopped = GetTickCount64();
  server.CloseFile(TamLogUtil::Timeout::Infinite);
  EXPECT_LT(MillisecondsUntilReleased(stopped), kReleasedMs);
  EXPECT_FALSE(ReadWaitExists());
}

// Every user may write to the mapping. A program that counts changes all the time makes every copy fail. The
// reader neither takes access nor continues indefinitely, and the server is not delayed.
TEST_F(DelayedCopy, OfALogThatNeverRestsEndsAtItsTimeoutAndNobodyIsCounted) {
  const Handle mapping(OpenFileMappingA(FILE_MAP_WRITE, FALSE, NameOf("Map").c_str()));
  hostileHeader = static_cast<LogFileHeader*>(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
  ASSERT_NE(hostileHeader, nullptr);
  LogReader reader;
  LogSnapshot snapshot;
  ASSERT_EQ(reader.Open(NameOf("Map")), Status::Ok);
  std::atomic<std::int32_t> inside{0};
  {
    const std::jthread watch([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) inside = std::max(inside.load(), std::int32_t{hostileHeader->readCount});
    });
    TamLogTest::CallBeforeCopies(CountAChange);
    const std::uint64_t begun = GetTickCount64();
    EXPECT_EQ(reader.Snapshot(snapshot, 500), Status::Unsteady);
    EXPECT_LT(GetTickCount64() - begun, kDelayMs);
    Add("flushed meanwhile");
    TamLogTest::CallBeforeCopies(nullptr);
  }
  EXPECT_EQ(inside, 0);
  EXPECT_EQ(reader.Snapshot(snapshot), Status::Ok);
  UnmapViewOfFile(const_cast<LogFileHeader*>(hostileHeader));
}

}  // namespace
