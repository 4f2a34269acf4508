// Tests of restarts while readers of our own are attached: they release the log in time for the next start.

#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class AttachedReaders : public SystemTest {
 protected:
  // Starts a follower that has read the log's messages.
  void Attach() {
    followers.push_back(
        std::make_unique<ChildProcess>("\"" + OwnDirectory() + "\\tamlogctl.exe\" follow -n all -o cat"));
    ASSERT_TRUE(followers.back()->ReadLine(20s));
  }
  // Returns the number of starts to expect.
  std::uint32_t RequestCapacity(std::uint32_t capacity) {
    const std::uint32_t starts = Starts();
    EXPECT_EQ(AskForCode(SettingsRequest(
                  {.maxMessage = capacity, .devicePollRate = 100, .typeFilter = 0xF, .saveRate = 300})),
              ReplyCode::Done);
    return starts + 1;
  }
  void ChangeCapacity(std::uint32_t capacity) {
    WaitForStarts(RequestCapacity(capacity));
    ExpectCapacity(capacity);
  }
  void ExpectCapacity(std::uint32_t capacity) {
    EXPECT_EQ(SlotsOfFile().slots.size(), capacity);
    EXPECT_EQ(Header().maxMessages, static_cast<std::int32_t>(capacity));
    EXPECT_EQ(Header().serverRunning, 1);
  }

  std::vector<std::unique_ptr<ChildProcess>> followers;
};

// The sizes differ by whole pages, so that the section of one does not do for the next.
TEST_F(AttachedReaders, LetTheServerComeBackFromEveryChangeOfCapacity) {
  constexpr std::uint32_t kCapacities[] = {20, 200, 50, 400, 10, 300, 15, 100};
  RunService({.maxMessage = 100});
  SubmitOverPipe(Message("first", 1));
  ExpectTexts({"first"});
  for (int i = 0; i < 3; ++i) Attach();
  int time = 2;
  for (const std::uint32_t capacity : kCapacities) {
    ChangeCapacity(capacity);
    SubmitOverPipe(Message("at " + std::to_string(capacity), time++));
    for (const auto& follower : followers) {
      const std::string expected = "at " + std::to_string(capacity);
      EXPECT_TRUE(Eventually(20s, [&] {
        const auto line = follower->ReadLine(1s);
        return line && line->find(expected) != std::string::npos;
      })) << expected;
    }
  }
  for (const auto& follower : followers) follower->Kill();
}

// The stop goes on for up to a second after it has closed the file; the reader is still there then.
TEST_F(AttachedReaders, MayLetGoASecondLate) {
  RunService({.maxMessage = 100});
  for (const std::uint32_t capacity : {400U, 20U}) {
    ReaderProcess reader("attach");
    ASSERT_EQ(reader.NextLine(), "attached");
    const std::uint32_t starts = RequestCapacity(capacity);
    ASSERT_TRUE(Eventually(20s, [this] { return Header().serverRunning == 0; }));
    std::this_thread::sleep_for(1s);
    reader.Tell();
    EXPECT_EQ(reader.NextLine(), "detached");
    WaitForStarts(starts);
    ExpectCapacity(capacity);
  }
}

// Otherwise the server would go on writing into the old file, whose section the readers still have.
TEST_F(AttachedReaders, LetTheServerServeTheLogThatIsAtItsNewPath) {
  RunService({.maxMessage = 100});
  SubmitOverPipe(Message("of the old file", 1));
  ExpectTexts({"of the old file"});
  Attach();
  const std::string oldPath = logFile;
  const std::string newPath = ScratchFile("Another.dat");
  TestLogFile another = TestLogFile::Empty(100);
  another.Append(Message("of the new file", 0));
  another.Write(newPath);

  EXPECT_EQ(AskForCode(PathRequest(newPath)), ReplyCode::Done);
  logFile = newPath;
  ChangeCapacity(100);
  SubmitOverPipe(Message("after the restart", 2));
  ExpectTexts({"after the restart", "of the new file"});
  logFile = oldPath;
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"of the old file"});
  logFile = newPath;
  for (const auto& follower : followers) follower->Kill();
}
