// A stream over a log that is shared as the server shares it, with a pipe that answers as the server does.

#include "client/live/log_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "client/log/cursor.h"
#include "client/message/win32.h"
#include "tests/client/live/served_log.h"
#include "tests/client/live/test_server.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::CertainFrom;
using TamLogClient::Cursor;
using TamLogClient::LogChange;
using TamLogClient::LogItem;
using TamLogClient::LogMessageView;
using TamLogClient::LogReader;
using TamLogClient::LogStream;
using TamLogClient::LogStreamOptions;
using TamLogClient::LogTail;
using TamLogClient::LogView;
using TamLogClient::Status;
using TamLogTest::Answer;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using TamLogTest::ServedLog;
using TamLogTest::TestServer;

constexpr std::uint32_t kSoon = 20000;

class LogStreamTest : public testing::Test {
 protected:
  LogStreamTest() {
    Add("abc");
    shared = std::make_unique<ServedLog>(log.Snapshot());
  }

  void Add(const std::string& letters) {
    for (const char letter : letters) log.Submit(MakeBody(now += 10, std::string(1, letter)));
    log.Flush();
  }
  void Share() { Share(log.Snapshot()); }
  void Share(const TamLogClient::LogSnapshot& content) { ASSERT_TRUE(shared->Write(content)); }
  // Returns whether a process holds the mapping.
  static bool IsShared(const std::string& name) {
    return static_cast<bool>(TamLogClient::Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, name.c_str())));
  }

  LogStreamOptions Options(bool ordered = false) {
    LogStreamOptions options;
    options.intervalMs = 10;
    options.ordered = ordered;
    options.pipeName = server.PipeName();
    options.mapName = shared->MapName();
    return options;
  }

  // The pipe answers with the mapping's name and the poll period.
  Answer Serve(const PipeRequest& request, PipeReply& reply) {
    if (request.code == static_cast<std::uint32_t>(RequestCode::GetFileMapName)) {
      reply.code = static_cast<std::uint32_t>(ReplyCode::FileMapName);
      std::strcpy(reply.path, shared->MapName().c_str());
    } else if (request.code == static_cast<std::uint32_t>(RequestCode::GetSettings)) {
      reply.code = static_cast<std::uint32_t>(ReplyCode::Settings);
      reply.settings = {8, pollMs, 15, 300};
    } else {
      reply.code = static_cast<std::uint32_t>(ReplyCode::Alive);
    }
    return Answer::Reply;
  }

  // Returns whether the message that the cursor points at is in the stream's latest copy of the log.
  static bool Holds(const LogStream& stream, const Cursor& cursor) {
    return FindCursor(stream.Snapshot(), OrderMessages(stream.Snapshot()).oldestFirst, cursor).found;
  }

  // Returns all items up to `end`, in letters and signs.
  static std::string Read(LogStream& stream, const std::string& end) {
    std::string read;
    LogItem item;
    while (!read.ends_with(end)) {
      if (stream.Next(item, kSoon) != Status::Ok) return read + "(end)";
      switch (item.kind) {
        case LogItem::Kind::Message:
          read += (item.late ? "~" : "") + std::string(LogMessageView(*item.message).Text());
          break;
        case LogItem::Kind::Lost:
          read += item.loss.Exact() ? "-" + std::to_string(item.loss.least) : "-?";
          break;
        case LogItem::Kind::Cleared:
          read += "C";
          break;
        case LogItem::Kind::Stopped:
          read += "S";
          break;
        case LogItem::Kind::Reopened:
          read += "R";
          break;
        case LogItem::Kind::Blocked:
          read += "B";
          break;
      }
    }
    return read;
  }

  RingModel log{8};
  std::unique_ptr<ServedLog> shared;
  TestServer server{[this](const PipeRequest& request, PipeReply& reply) { return Serve(request, reply); }};
  int now = 0;
  std::uint32_t pollMs = 100;
};

TEST_F(LogStreamTest, ReturnsMessagesAndEventsInOneStream) {
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(), Status::Ok);
  LogItem item;
  EXPECT_EQ(stream.Next(item, 0), Status::TimedOut);
  Add("de");
  Share();
  EXPECT_EQ(Read(stream, "e"), "de");
  log.Submit(MakeBody(45, "L"));
  log.Flush();
  Share();
  EXPECT_EQ(Read(stream, "L"), "~L");
  for (const char letter : std::string("fghijklmnopq"))
    Add(std::string(1, letter));  // more than the ring holds
  Share();
  EXPECT_EQ(Read(stream, "q"), "-4jklmnopq");
  Add("r");
  log.Clear();
  Add("s");
  Share();
  EXPECT_EQ(Read(stream, "s"), "C-1s");
}

// A mapping exists as long as a process holds it.
TEST_F(LogStreamTest, LogOfAServerThatStopsIsClosedAlsoWithoutACallOfNext) {
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(), Status::Ok);
  const std::string name = shared->MapName();
  shared->SetRunning(false);
  shared.reset();
  for (const std::uint64_t end = GetTickCount64() + kSoon; IsShared(name) && GetTickCount64() < end;) {
    Sleep(10);
  }
  EXPECT_FALSE(IsShared(name));
  Add("d");
  shared = std::make_unique<ServedLog>(log.Snapshot());
  EXPECT_EQ(Read(stream, "d"), "SRd");
}

// A comparison of this many messages takes much longer than the guard's pause. When it begins depends on the
// load of the machine, so the log is closed a little later each time, until that happens during the
// comparison.
TEST_F(LogStreamTest, LogIsClosedInTimeWhileALargeOneIsCompared) {
  constexpr std::int32_t kMessages = 300000;
  TamLogClient::LogSnapshot large;
  large.header.maxMessages = large.header.messageCount = kMessages;
  large.header.serverRunning = 1;
  large.slots.resize(kMessages);
  const auto fill = [&large](char letter, std::uint64_t count) {
    large.header.changeCount = large.header.rewriteCount = count;
    for (std::int32_t i = 0; i < kMessages; ++i) {
      large.slots[static_cast<std::size_t>(i)].body = MakeBody(i / 4, letter + std::to_string(i));
    }
  };
  bool closedMeanwhile = false;
  for (DWORD pause = 150; !closedMeanwhile && pause < 10000; pause *= 2) {
    fill('a', 1);
    shared = std::make_unique<ServedLog>(large);
    LogStreamOptions options = Options();
    options.timeoutMs = 60000;
    LogStream stream(options);
    ASSERT_EQ(stream.Open(), Status::Ok);
    fill('b', 2);
    Share(large);
    const std::string name = shared->MapName();
    LogChange change = LogChange::None;
    std::atomic<bool> compared{false};
    std::thread reading([&] {
      change = stream.Wait(60000);
      compared = true;
    });
    Sleep(pause);
    shared->SetRunning(false);
    shared.reset();
    while (IsShared(name)) Sleep(1);
    const bool closedFirst = !compared;
    reading.join();
    closedMeanwhile = closedFirst && change == LogChange::Rewrite;
    shared = std::make_unique<ServedLog>(log.Snapshot());
  }
  EXPECT_TRUE(closedMeanwhile) << "the log was closed after the comparison only";
}

// Else a program that takes all there is would do nothing else while messages keep coming.
TEST_F(LogStreamTest, IsDrainedAfterTheItemsOfEachLook) {
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(), Status::Ok);
  EXPECT_TRUE(stream.Drained());
  for (const std::string letters : {"de", "fg"}) {
    Add(letters);
    Share();
    LogItem item;
    ASSERT_EQ(stream.Next(item, kSoon), Status::Ok);
    EXPECT_FALSE(stream.Drained());
    ASSERT_EQ(stream.Next(item, 0), Status::Ok);
    EXPECT_TRUE(stream.Drained());
  }
}

TEST_F(LogStreamTest, WaitSaysWhatChanged) {
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(), Status::Ok);
  EXPECT_EQ(stream.Wait(30), LogChange::None);
  Add("d");
  Share();
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Append);
  log.Submit(MakeBody(5, "L"));
  log.Flush();
  Share();
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Rewrite);  // what waited for Next is kept
  log.Clear();
  Share();
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Cleared);
  EXPECT_EQ(Read(stream, "C"), "d~LC");
  shared->SetRunning(false);
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Stopped);
  shared->SetRunning(true);
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Reopened);
}

TEST_F(LogStreamTest, RestartWithAnotherCapacityIsGoneOverWithoutRepeating) {
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(), Status::Ok);
  shared->SetRunning(false);
  EXPECT_EQ(Read(stream, "S"), "S");
  const RingModel old = log;
  log = RingModel(20);
  for (const char letter : std::string("abc"))
    log.Submit(MakeBody((letter - 'a' + 1) * 10, std::string(1, letter)));
  log.Flush();
  Add("d");
  shared = std::make_unique<ServedLog>(log.Snapshot());
  // Nothing shows which messages came between the last visit and the new log.
  EXPECT_EQ(Read(stream, "d"), "R-?d");
}

TEST_F(LogStreamTest, NothingStaysOpenWhileTheServerIsAway) {
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(), Status::Ok);
  const std::string name = shared->MapName();
  shared->SetRunning(false);
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Stopped);
  shared.reset();
  EXPECT_EQ(OpenFileMappingA(FILE_MAP_READ, FALSE, name.c_str()), nullptr);
  shared = std::make_unique<ServedLog>(log.Snapshot());
}

TEST_F(LogStreamTest, OrderedStreamHoldsBackUntilNothingEarlierIsToBeExpected) {
  pollMs = 2000;  // time enough for the message that is late
  LogStream stream(Options(true));
  ASSERT_EQ(stream.Open(), Status::Ok);
  Add("e");
  Share();
  const ULONGLONG begin = GetTickCount64();
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Append);
  log.Submit(MakeBody(35, "d"));
  log.Flush();
  Share();
  EXPECT_EQ(Read(stream, "e"), "de");
  EXPECT_GE(GetTickCount64() - begin, 2300U);  // 2 s of polling and two flushes, less the clock's grain
  Add("f");
  Share();
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Append);
  EXPECT_EQ(stream.HeldBack(), 1U);
  stream.ReleaseAll();
  EXPECT_EQ(Read(stream, "f"), "f");
}

TEST_F(LogStreamTest, MemoryAndCursorContinueWhereAnEarlierStreamEnded) {
  TamLogClient::FollowerMemory memory;
  std::optional<Cursor> cursor;
  {
    LogStream stream(Options());
    ASSERT_EQ(stream.Open(), Status::Ok);
    Add("d");
    Share();
    EXPECT_EQ(Read(stream, "d"), "d");
    memory = stream.Memory(100);
    const auto order = OrderMessages(stream.Snapshot()).oldestFirst;
    cursor = CursorOf(stream.Snapshot(), order, 0);
    EXPECT_TRUE(Holds(stream, *cursor));
  }
  Add("ef");
  log.Submit(MakeBody(35, "L"));
  log.Flush();
  Share();
  LogStream stream(Options());
  ASSERT_EQ(stream.Open(memory), Status::Ok);
  EXPECT_EQ(Read(stream, "f"), "~Lef");
  EXPECT_TRUE(Holds(stream, *cursor));
  log.Clear();
  Share();
  EXPECT_EQ(stream.Wait(kSoon), LogChange::Cleared);
  EXPECT_FALSE(Holds(stream, *cursor));
}

// Somebody may free the log at any time, so a stream does not end.
TEST_F(LogStreamTest, ReaderOfOthersThatBlocksTheServerIsReportedAndWaitedFor) {
  LogStreamOptions options = Options();
  options.timeoutMs = 30;
  LogStream stream(options);
  ASSERT_EQ(stream.Open(), Status::Ok);
  Add("d");
  Share();
  shared->CloseReadWait();
  for (const std::int32_t inside : {1, 0}) {
    shared->SetReadCount(inside);
    EXPECT_EQ(Read(stream, "B"), "B") << inside;
  }
  shared->OpenReadWait();
  LogItem item;
  do {
    ASSERT_EQ(stream.Next(item, kSoon), Status::Ok);
  } while (item.kind == LogItem::Kind::Blocked);
  EXPECT_EQ(LogMessageView(*item.message).Text(), "d");
}

TEST_F(LogStreamTest, NothingSharedIsNotRunning) {
  LogStreamOptions options = Options();
  options.mapName = "Global\\TamLogTestNobodyHasThis";
  LogStream stream(options);
  EXPECT_EQ(stream.Open(), Status::NotRunning);
}

TEST_F(LogStreamTest, NewestCopiesTheEndOfTheRing) {
  LogReader reader;
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  Add("defghij");
  Share();
  LogTail tail;
  ASSERT_EQ(reader.Newest(3, tail), Status::Ok);
  ASSERT_EQ(tail.messages.size(), 3U);
  EXPECT_EQ(LogMessageView(tail.messages.front()).Text(), "h");
  EXPECT_EQ(LogMessageView(tail.messages.back()).Text(), "j");
  EXPECT_FALSE(tail.whole);
  EXPECT_EQ(CertainFrom(tail), 0U);
  ASSERT_EQ(reader.Newest(100, tail), Status::Ok);
  EXPECT_TRUE(tail.whole);
  EXPECT_EQ(LogMessageView(tail.messages.front()).Text(), "c");
  EXPECT_EQ(shared->ReadCount(), 0);
}

TEST_F(LogStreamTest, ViewShowsTheLogInPlaceAndNobodyIsInside) {
  LogReader reader;
  ASSERT_EQ(reader.Open(shared->MapName()), Status::Ok);
  std::string texts;
  int inside = -1;
  ASSERT_EQ(reader.WithView(1000000,
                            [&](const LogView& view) {
                              inside = shared->ReadCount();
                              for (std::int32_t i = 0; i < view.Header().messageCount; ++i) {
                                texts += LogMessageView(view.Slot(static_cast<std::uint32_t>(i))).Text();
                              }
                            }),
            Status::Ok);
  EXPECT_EQ(texts, "abc");
  EXPECT_EQ(inside, 0);
  EXPECT_EQ(shared->ReadCount(), 0);
  EXPECT_THROW(reader.WithView(1000, [](const LogView&) { throw std::runtime_error("inside"); }),
               std::runtime_error);
  EXPECT_EQ(reader.WithView(1,
                            [](const LogView& view) {
                              while (!view.BudgetIsSpent()) Sleep(2);
                            }),
            Status::TimedOut);
  reinterpret_cast<LogFileHeader*>(shared->Bytes())->nextSlot = 99;
  bool called = false;
  EXPECT_EQ(reader.WithView(1000, [&called](const LogView&) { called = true; }), Status::Damaged);
  EXPECT_FALSE(called);
}

}  // namespace
