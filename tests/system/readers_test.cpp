// Tests of reader processes while the server writes: many at once, one that dies inside read access, one that
// keeps the file mapped.

#include "tests/system/system_test.h"

#include <set>

using namespace std::chrono_literals;

class Readers : public SystemTest {
 protected:
  // Starts a reader that enters and then ends without leaving: readCount stays 1 and write-wait stays reset.
  void LetAReaderDieInside() {
    ReaderProcess reader("die");
    ASSERT_EQ(reader.NextLine(), "holding");
    reader.Tell();
    ASSERT_TRUE(reader.HasEnded(10s));
    ASSERT_EQ(Header().readCount, 1);
  }
  // Does the same with a reader that is killed while it reads.
  void KillAReaderInside() {
    ReaderProcess reader("hold", ScratchFile("killed"));
    ASSERT_EQ(reader.NextLine(), "holding");
    reader.Kill();
    ASSERT_EQ(Header().readCount, 1);
  }
  // Expects that the server accepts messages on both ways although nothing reaches the file: it answers
  // requests at once and drains the driver.
  void ExpectIntakeGoesOn(int atMs) {
    for (int i = 0; i < 20; ++i) {
      const auto begin = std::chrono::steady_clock::now();
      SubmitOverPipe(Message("pipe " + std::to_string(i), atMs + i));
      EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    }
    PutIntoDriver({Message("driver", atMs + 20)});
    EXPECT_TRUE(Eventually(20s, [this] { return Driver().Counters().queued == 0; }));
  }
};

TEST_F(Readers, SeveralFollowTheLogWhileMessagesFlowAndLeaveNoTrace) {
  constexpr int kMessages = 300;
  RunService({.maxMessage = 1000});
  const ProtocolWatch watch(LogFile());
  std::vector<std::unique_ptr<ReaderProcess>> readers;
  for (int i = 0; i < 3; ++i) {
    readers.push_back(std::make_unique<ReaderProcess>("follow", ScratchFile("reader" + std::to_string(i))));
    ASSERT_EQ(readers.back()->NextLine(), "following");
  }
  std::optional<ServerConnection> client = ServerConnection::Connect(20s);
  ASSERT_TRUE(client);
  for (int i = 0; i < kMessages; ++i) {
    ASSERT_EQ(client->AskForCode(SubmitRequest(Message(std::to_string(i), i))), ReplyCode::Done);
    std::this_thread::sleep_for(5ms);
  }
  ASSERT_TRUE(WaitForMessageCount(kMessages, 20s));
  std::this_thread::sleep_for(200ms);  // several visits
  for (const auto& reader : readers) {
    reader->Tell();
    EXPECT_NE(reader->NextLine().find("followed "), std::string::npos);
    const std::vector<LogMessage> seen = reader->FollowedMessages();
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(kMessages));
    for (int i = 0; i < kMessages; ++i) {
      ASSERT_EQ(std::string(seen[static_cast<std::size_t>(i)].body.text), std::to_string(i));
    }
  }
  SubmitOverPipe(Message("last", kMessages));  // the next release of write access sets the count in any case
  ASSERT_TRUE(WaitForMessageCount(kMessages + 1, 10s));
  EXPECT_TRUE(Eventually(20s, [this] { return Header().readCount == 0; }));
  RecordProperty("rescues", watch.Rescues());
}

TEST_F(Readers, CountIsWhatTheyReadUnderTheirOwnAccess) {
  RunService();
  SubmitOverPipe(Message("one", 1));
  ExpectTexts({"one"});
  ReaderProcess reader("count");
  EXPECT_EQ(reader.NextLine(), "count 1 changes 3 rewrites 1 next 1 readers 1");
}

TEST_F(Readers, OneThatDiesInsideHoldsUpTheFlushUntilWriteWaitIsSignalled) {
  RunService();
  SubmitOverPipe(Message("before", 0));
  ExpectTexts({"before"});
  LetAReaderDieInside();
  ExpectIntakeGoesOn(1);
  std::this_thread::sleep_for(1s);  // five flush ticks
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"before"});

  SignalWriteWait();
  ASSERT_TRUE(WaitForMessageCount(22, 10s));
  const std::vector<std::string> texts = TextsOfFile();
  EXPECT_EQ(texts.front(), "driver");
  EXPECT_EQ(texts[1], "pipe 19");
  EXPECT_EQ(texts[20], "pipe 0");
  EXPECT_EQ(texts.back(), "before");
  EXPECT_EQ(Header().readCount, 0);  // the release of write access forgets the dead reader
}

TEST_F(Readers, OneThatIsKilledInsideIsPassedOverByTheStopWhichLosesOnlyWhatWasPending) {
  RunService();
  SubmitOverPipe(Message("flushed", 0));
  ExpectTexts({"flushed"});
  KillAReaderInside();
  ExpectIntakeGoesOn(1);
  std::this_thread::sleep_for(1s);  // a flush is waiting by now

  const StopReport stop = StopService();
  EXPECT_GT(stop.duration, 12s);  // the waiting flush uses up the whole 15 s of the stop
  EXPECT_LT(stop.duration, 28s);
  const std::string diagnostics = TakeDiagnostics();
  std::vector<std::string> entries = DiagnosticTexts(diagnostics);
  // The abandoned flush wakes when the file is closed while it waits; it may live long enough to report that.
  std::erase(entries,
             "Exception thrown in timer callback : Failed to grab write access, some handles or pointers are "
             "invalid");
  EXPECT_EQ(entries, std::vector<std::string>{"File access rights timed out, forcing access."})
      << diagnostics << stop.duration.count() << " ms";
  EXPECT_EQ(Header().serverRunning, 0);
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"flushed"});

  StartService();
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"flushed"});
  SubmitOverPipe(Message("after", 100));
  ExpectTexts({"after", "flushed"});
}

TEST_F(Readers, OneInsideMakesTheFlushWaitAndNoOneElse) {
  RunService();
  ReaderProcess reader("hold", ScratchFile("held"));
  ASSERT_EQ(reader.NextLine(), "holding");
  ExpectIntakeGoesOn(1);
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(Header().messageCount, 0);
  reader.Tell();
  ASSERT_EQ(reader.NextLine(), "released");
  EXPECT_TRUE(WaitForMessageCount(21, 10s));
}

TEST_F(Readers, OneThatKeepsTheFileMappedKeepsTheStopWaitingOnlyWhereThatCountsAsOpen) {
  RunService();
  ReaderProcess reader("attach");
  ASSERT_EQ(reader.NextLine(), "attached");
  if (MappedFilesCountAsOpen()) {
    std::chrono::steady_clock::time_point released;
    std::thread release([&reader, &released] {
      std::this_thread::sleep_for(4s);
      released = std::chrono::steady_clock::now();
      reader.Tell();
    });
    StopService();
    const auto stopped = std::chrono::steady_clock::now();
    release.join();
    EXPECT_GT(stopped, released);
    EXPECT_LT(stopped - released, 9s);
  } else {
    EXPECT_LT(StopService().duration, 13s);  // less than the 15 s of a stop that waits
    reader.Tell();
  }
  EXPECT_EQ(reader.NextLine(), "detached");
  EXPECT_EQ(Header().serverRunning, 0);
}
