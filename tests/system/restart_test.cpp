// Tests of the restarts that requests cause, and of changed settings: capacity, path, an emptied log.

#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class Restart : public SystemTest {
 protected:
  void SetSettings(const SettingsBody& settings) {
    EXPECT_EQ(AskForCode(SettingsRequest(settings)), ReplyCode::Done);
  }
  SettingsBody SmallSettings(std::uint32_t maxMessage = 100) {
    return {.maxMessage = maxMessage, .devicePollRate = 100, .typeFilter = 0xF, .saveRate = 300};
  }
  void SetLogFile(const std::string& path) { EXPECT_EQ(AskForCode(PathRequest(path)), ReplyCode::Done); }
  // Has the server write a file with `count` messages, all of the same time or one millisecond apart.
  void FillRing(int count, bool sameTime) {
    for (int i = 0; i < count; ++i) SubmitOverPipe(Message(std::to_string(i), sameTime ? 0 : i));
    std::vector<std::string> expected;
    for (int i = count - 1; i >= 0; --i) expected.push_back(std::to_string(i));
    ExpectTexts(expected);
  }
  void ChangeCapacity(std::uint32_t capacity) {
    const std::uint32_t starts = Starts();
    SetSettings(SmallSettings(capacity));
    EXPECT_EQ(CurrentSettings().maxMessage, capacity);
    WaitForStarts(starts + 1);
    EXPECT_EQ(SlotsOfFile().slots.size(), capacity);
    EXPECT_EQ(Header().maxMessages, static_cast<std::int32_t>(capacity));
    EXPECT_EQ(Header().serverRunning, 1);
  }
  void ExpectEmptyAndAsNew() {
    const LogFileHeader header = Header();
    EXPECT_EQ(header.messageCount, 0);
    EXPECT_EQ(header.nextSlot, 0);
    EXPECT_EQ(header.changeCount, 2U);
    EXPECT_EQ(header.rewriteCount, 1U);
    EXPECT_EQ(header.nextSequence, 0U);
  }
};

TEST_F(Restart, ABurstOfSettingsCausesExactlyOneAndALaterRequestAnother) {
  RunService();
  const ProcessById before(ServiceControl::ProcessId());
  EXPECT_EQ(Starts(), 1U);
  {
    std::optional<ServerConnection> client = ServerConnection::Connect(20s);
    ASSERT_TRUE(client);
    for (std::uint32_t i = 0; i < 5; ++i) {
      EXPECT_EQ(client->AskForCode(SettingsRequest(SmallSettings(60 + i))), ReplyCode::Done);
    }
    // The server answers also while a restart is pending.
    EXPECT_EQ(client->AskForCode(RequestOf(RequestCode::Ping)), ReplyCode::Alive);
  }
  WaitForStarts(2);
  EXPECT_EQ(ServerRegistry::Number("MaxMessage"), 64U);
  EXPECT_EQ(SlotsOfFile().slots.size(), 64U);
  std::this_thread::sleep_for(
      2500ms);  // longer than a second restart thread would wait before it stops the server
  EXPECT_EQ(Starts(), 2U);
  EXPECT_EQ(Header().serverRunning, 1);

  SetSettings(SmallSettings(70));
  WaitForStarts(3);
  EXPECT_EQ(SlotsOfFile().slots.size(), 70U);
  EXPECT_EQ(ServiceControl::State(), ServiceState::Running);  // the manager does not notice restarts
  EXPECT_TRUE(before.Alive());
}

TEST_F(Restart, ClampsTheCapacityAskedForAndKeepsTheRatesAsGiven) {
  RunService();
  SetSettings({.maxMessage = 0, .devicePollRate = 150, .typeFilter = 0x10, .saveRate = 7});
  SettingsBody settings = CurrentSettings();
  EXPECT_EQ(settings.maxMessage, 1U);
  EXPECT_EQ(settings.devicePollRate, 150U);
  EXPECT_EQ(settings.typeFilter, 0U);  // bits 0 to 3 count, and all of them were off
  EXPECT_EQ(settings.saveRate, 7U);
  SubmitOverPipe(Message("no type is kept", 1));
  WaitForStarts(2);
  EXPECT_EQ(SlotsOfFile().slots.size(), 1U);
  EXPECT_EQ(ServerRegistry::Number("DevicePollRate"), 150U);
  EXPECT_EQ(ServerRegistry::Number("TypeFilter"), 0U);
  EXPECT_EQ(ServerRegistry::Number("SaveRate"), 7U);
  EXPECT_EQ(Header().messageCount, 0);
}

TEST_F(Restart, KeepsTheMessagesAndGoesOnNumbering) {
  RunService();
  FillRing(3, false);
  const LogFileHeader before = Header();
  SetSettings(SmallSettings());
  WaitForStarts(2);
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"2", "1", "0"}));
  SubmitOverPipe(Message("3", 3));
  ExpectTexts({"3", "2", "1", "0"});
  EXPECT_EQ(Header().nextSequence, before.nextSequence + 1);
  EXPECT_EQ(Header().rewriteCount, before.rewriteCount);
}

// The compaction writes the messages newest first, against the ring's order. The check after the resize then
// finds the times rising and rejects the file, unless they are all equal or there is one message.
TEST_F(Restart, ALargerCapacityEmptiesAFileOfMessagesOfDifferentTimes) {
  RunService({.maxMessage = 20});
  FillRing(5, false);
  ChangeCapacity(30);
  ExpectEmptyAndAsNew();
  SubmitOverPipe(Message("next", 9));
  ExpectTexts({"next"});
}

TEST_F(Restart, ASmallerCapacityEmptiesAFileOfMessagesOfDifferentTimes) {
  RunService({.maxMessage = 20});
  FillRing(5, false);
  ChangeCapacity(10);
  ExpectEmptyAndAsNew();
}

TEST_F(Restart, ALargerCapacityKeepsMessagesOfOneTime) {
  RunService({.maxMessage = 6});
  FillRing(5, true);
  ChangeCapacity(12);
  // The newest is in slot 0: reading along the ring returns the reverse order.
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"0", "1", "2", "3", "4"}));
  EXPECT_EQ(Header().nextSlot, 5);
}

TEST_F(Restart, ASmallerCapacityKeepsTheNewestMessagesOfOneTime) {
  RunService({.maxMessage = 20});
  FillRing(6, true);
  ChangeCapacity(4);
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"2", "3", "4", "5"}));
  EXPECT_EQ(Header().nextSlot, 0);
  EXPECT_EQ(Header().messageCount, 4);
}

TEST_F(Restart, ANewPathIsAnsweredAtOnceAndTheFileMovesAtTheStop) {
  RunService();
  FillRing(2, false);
  const std::string oldPath = LogFile();
  const std::string newPath = ScratchFile("Moved.dat");
  SetLogFile(newPath);
  EXPECT_STREQ(Ask(RequestOf(RequestCode::GetLogFile)).path, newPath.c_str());
  SubmitOverPipe(Message("still into the old file", 10));
  ExpectTexts({"still into the old file", "1", "0"});
  EXPECT_FALSE(FileExists(newPath));
  EXPECT_EQ(ServerRegistry::Text("LogFile"), oldPath);

  // A reader that only has the file mapped delays neither the stop, which waits at the new path, nor the
  // move.
  ReaderProcess reader("attach");
  ASSERT_EQ(reader.NextLine(), "attached");
  const StopReport stop = StopService();
  EXPECT_LT(stop.duration, 13s);  // less than the 15 s of a stop that waits for it
  EXPECT_EQ(ServerRegistry::Text("LogFile"), newPath);
  EXPECT_FALSE(FileExists(oldPath));
  logFile = newPath;
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"still into the old file", "1", "0"}));
  reader.Tell();
  EXPECT_EQ(reader.NextLine(), "detached");

  StartService();
  SubmitOverPipe(Message("into the new file", 20));
  ExpectTexts({"into the new file", "still into the old file", "1", "0"});
  EXPECT_FALSE(FileExists(oldPath));
}

TEST_F(Restart, ANewPathTakesEffectInTheRestartThatSettingsCause) {
  RunService();
  FillRing(2, false);
  const std::string oldPath = LogFile();
  SetLogFile(ScratchFile("Moved.dat"));
  SetSettings(SmallSettings());
  WaitForStarts(2);
  logFile = ScratchFile("Moved.dat");
  EXPECT_FALSE(FileExists(oldPath));
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"1", "0"}));
}

TEST_F(Restart, AMoveThatFailsLeavesTheOldFileAndTheNextStartMakesANewOne) {
  RunService();
  FillRing(2, false);
  const std::string oldPath = LogFile();
  const std::string taken = ScratchFile("Taken.dat");
  TestLogFile occupant = TestLogFile::Empty(100);
  occupant.Append(Message("was there before", 0));
  occupant.Write(taken);
  SetLogFile(taken);
  StopService();
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"1", "0"}));
  logFile = taken;
  StartService();
  EXPECT_EQ(TextsOfFile(),
            std::vector<std::string>{"was there before"});  // the server keeps a sound file unchanged
}

TEST_F(Restart, ClearingTheLogEmptiesTheFileKeepsNumberingAndIsFollowedByARestart) {
  RunService();
  FillRing(3, false);
  const LogFileHeader before = Header();
  EXPECT_EQ(AskForCode(RequestOf(RequestCode::ClearLog)), ReplyCode::Done);
  const LogFileHeader cleared = Header();
  EXPECT_EQ(cleared.messageCount, 0);
  EXPECT_EQ(cleared.nextSlot, 0);
  EXPECT_EQ(cleared.rewriteCount, before.rewriteCount + 1);
  EXPECT_EQ(cleared.changeCount, before.changeCount + 1);
  EXPECT_EQ(cleared.nextSequence, 3U);
  SubmitOverPipe(Message("between clear and restart", 0));
  ExpectTexts({"between clear and restart"});
  WaitForStarts(2);
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"between clear and restart"});
  SubmitOverPipe(Message("after", 1));
  ExpectTexts({"after", "between clear and restart"});
  EXPECT_EQ(Header().nextSequence, 5U);
}

TEST_F(Restart, AStopWhileOneIsPendingStopsTheServiceForGood) {
  RunService();
  bool inTime = false;
  for (int attempt = 0; attempt < 5 && !inTime; ++attempt) {
    if (attempt > 0) StartService();
    const std::uint32_t starts = Starts();
    const auto begin = std::chrono::steady_clock::now();
    SetSettings(SmallSettings());
    // On a busy machine the restart may have begun before the stop was sent.
    inTime = std::chrono::steady_clock::now() - begin < 500ms;
    StopService();
    std::this_thread::sleep_for(1500ms);  // the restart thread would have woken by now
    if (inTime) {
      EXPECT_EQ(Starts(), starts);
    }
    EXPECT_EQ(ServiceControl::State(), ServiceState::Stopped);
    EXPECT_EQ(Header().serverRunning, 0);
  }
  EXPECT_TRUE(inTime);
}
