// Tests of tamlogctl's commands between files and the real service: continuous export, and import.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <sstream>
#include <thread>

#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class LiveFiles : public SystemTest {
 protected:
  static std::string CommandLine(const std::string& arguments) {
    return "\"" + OwnDirectory() + "\\tamlogctl.exe\" " + arguments;
  }
  static void Expect(const std::string& arguments, std::uint32_t exitCode, const std::string& words) {
    const CommandReport report = RunTool(arguments);
    EXPECT_EQ(report.exitCode, exitCode) << arguments << "\n" << report.output;
    EXPECT_NE(report.output.find(words), std::string::npos) << arguments << "\n" << report.output;
  }

  std::string Quoted(const std::string& name) const { return "\"" + ScratchFile(name) + "\""; }

  static std::string TextOf(int number) {
    std::string digits = std::to_string(number);
    digits.insert(0, 5 - digits.size(), '0');
    return "message " + digits + " " + std::string(static_cast<std::size_t>(number % 50), '.');
  }
  // Returns the number of the message with a text of TextOf.
  static int NumberOf(const std::string& text) { return std::stoi(text.substr(std::strlen("message "))); }
  static std::vector<std::string> Texts(int first, int end) {
    std::vector<std::string> texts;
    for (int number = first; number < end; ++number) texts.push_back(TextOf(number));
    return texts;
  }

  // Submits messages with rising times, one every 10 ms.
  static void Feed(int first, int end) {
    std::optional<ServerConnection> client = ServerConnection::Connect(20s);
    ASSERT_TRUE(client);
    for (int number = first; number < end; ++number) {
      ASSERT_EQ(client->AskForCode(SubmitRequest(Message(TextOf(number), number * 10))), ReplyCode::Done);
    }
  }

  // Returns the lines of the rotated files and of the current one, oldest first.
  std::vector<std::string> Lines(const std::string& name) const {
    std::vector<std::string> lines;
    for (int number = 99; number >= 0; --number) {
      std::istringstream bytes(
          ReadWholeFile(ScratchFile(number > 0 ? name + "." + std::to_string(number) : name)));
      for (std::string line; std::getline(bytes, line);) lines.push_back(line);
    }
    return lines;
  }
  // Returns lines of messages with rising times, one every second.
  static std::string TsvLines(int count) {
    std::string lines;
    const auto twoDigits = [](int value) {
      return std::string(value < 10 ? "0" : "") + std::to_string(value);
    };
    for (int number = 0; number < count; ++number) {
      lines += "2026-01-01 " + twoDigits(number / 3600) + ":" + twoDigits(number / 60 % 60) + ":" +
               twoDigits(number % 60) + ".000\t1\tSaved\t" + TextOf(number) + "\n";
    }
    return lines;
  }
  // Returns a time in the form of an impossible one, for a key of TimeKey.
  static std::string TimeOfKey(std::uint64_t key) {
    std::string words;
    for (const std::uint64_t base : {1000U, 60U, 60U, 24U, 31U, 12U}) {
      words.insert(0, "," + std::to_string(key % base));
      key /= base;
    }
    return "!" + std::to_string(key) + words;
  }
  bool WaitForLine(const std::string& name, int number) const {
    return Eventually(20s, [&] {
      const auto lines = Lines(name);
      return std::find(lines.begin(), lines.end(), TextOf(number)) != lines.end();
    });
  }
  // Kills the export at random moments, also while it starts, as long as messages arrive.
  void ExpectEachOnceOverKills(const std::string& more) {
    constexpr int kMessages = 1600;
    constexpr unsigned kSeed = 1;
    RunService({.maxMessage = 2 * kMessages});
    std::thread feeder([] {
      for (int first = 0; first < kMessages; first += 2) {
        Feed(first, first + 2);
        std::this_thread::sleep_for(20ms);
      }
    });
    std::mt19937 random(kSeed);
    int kills = 0;
    for (; !WaitForMessageCount(kMessages, 1ms) && kills < 150; ++kills) {
      ChildProcess killed(CommandLine(ExportTo("log", more)));
      killed.WaitForEnd(std::chrono::milliseconds(std::uniform_int_distribution<int>(50, 1500)(random)));
      killed.Kill();
      EXPECT_TRUE(killed.WaitForEnd(20s));
      EXPECT_EQ(TestLogFile::ReadHeader(logFile)->readCount, 0);
    }
    feeder.join();
    EXPECT_GE(kills, 5);
    const CommandReport report = RunTool(ExportTo("log", more + " --for 4"));
    EXPECT_EQ(report.exitCode, 0U) << report.output;
    EXPECT_EQ(report.output.find("twice"), std::string::npos) << report.output;
    ExpectLines(Lines("log"), Texts(0, kMessages));
  }
  // Shows the lines around the first difference.
  static void ExpectLines(const std::vector<std::string>& found, const std::vector<std::string>& wanted) {
    const auto [at, unused] = std::mismatch(found.begin(), found.end(), wanted.begin(), wanted.end());
    if (found == wanted) return;
    const auto first = static_cast<std::size_t>(at - found.begin());
    std::string around;
    for (std::size_t i = first < 3 ? 0 : first - 3; i < std::min(first + 50, found.size()); ++i) {
      around += found[i].substr(0, 20) + "\n";
    }
    ADD_FAILURE() << found.size() << " lines, not " << wanted.size() << "; line " << first + 1
                  << " differs:\n"
                  << around;
  }
  std::string ExportTo(const std::string& name, const std::string& more) const {
    return "export " + Quoted(name) + " -o cat --follow --interval 20 --cursor-file " + Quoted("cursor") +
           " " + more;
  }
};

// A restart that empties the log ends what a follower knows: messages that are sent again into a log that it
// saw empty are new ones. Between two visits of a follower all of them or the first ones may have come back:
// those it knows.
TEST_F(LiveFiles, FollowersGoOnOverChangesOfTheCapacityAndAClear) {
  RunService({.maxMessage = 50});
  Feed(0, 20);
  ASSERT_TRUE(WaitForMessageCount(20, 20s));
  ChildProcess follower(CommandLine("follow -n 0 -o cat --events none --interval 20"));
  ChildProcess first(CommandLine(ExportTo("log", "")));
  ASSERT_TRUE(WaitForLine("log", 19));
  Expect("settings set --capacity 100 --keep --no-backup", 0, "100 in effect");
  ASSERT_TRUE(WaitForMessageCount(20, 20s));
  Feed(20, 25);
  ASSERT_TRUE(WaitForLine("log", 24));
  std::vector<std::string> wanted = Texts(0, 20);
  const auto append = [&](int from, int end) {
    for (const std::string& text : Texts(from, end)) wanted.push_back(text);
  };
  const auto exported = Lines("log");
  ASSERT_GE(exported.size(), 25U);
  append(NumberOf(exported[20]), 25);
  ExpectLines(Lines("log"), wanted);
  // Of the log with 100 slots. A note of the former one would leave open whether messages were lost.
  ASSERT_TRUE(Eventually(
      20s, [&] { return ReadWholeFile(ScratchFile("cursor")).find("\nmemory2 64 ") != std::string::npos; }));
  first.Kill();
  ASSERT_TRUE(first.WaitForEnd(20s));
  Feed(25, 30);
  ChildProcess second(CommandLine(ExportTo("log", "")));
  ASSERT_TRUE(WaitForLine("log", 29));
  Expect("settings set --capacity 40 --no-keep --no-backup", 0, "40 in effect");
  Feed(30, 35);
  ASSERT_TRUE(WaitForLine("log", 34));
  Expect("clear --yes", 0, "emptied");
  Feed(35, 40);
  ASSERT_TRUE(WaitForLine("log", 39));
  second.Kill();
  ASSERT_TRUE(second.WaitForEnd(20s));
  Feed(40, 45);
  ASSERT_TRUE(WaitForMessageCount(10, 20s));
  const CommandReport report = RunTool(ExportTo("log", "--for 4"));
  EXPECT_EQ(report.exitCode, 0U) << report.output;
  append(25, 45);
  ExpectLines(Lines("log"), wanted);
  // No message that existed when it started.
  std::vector<std::string> followed;
  while (followed.empty() || followed.back() != TextOf(44)) {
    const auto line = follower.ReadLine(20s);
    ASSERT_TRUE(line) << followed.size();
    followed.push_back(*line);
  }
  ExpectLines(followed, Texts(NumberOf(followed.front()), 45));
  follower.Kill();
}

TEST_F(LiveFiles, ExportGoesOnOverRotationsRestartsOfTheServerAndItsOwn) {
  RunService({.maxMessage = 400});
  Feed(0, 40);
  ChildProcess first(CommandLine(ExportTo("log", "--rotate 1K --for 20")));
  ASSERT_TRUE(WaitForLine("log", 39));
  Feed(40, 120);
  ASSERT_TRUE(WaitForLine("log", 119));
  StopService();
  StartService();
  Feed(120, 140);
  const CommandReport report = ReportAtEnd(first);
  EXPECT_EQ(report.exitCode, 0U) << report.output;
  EXPECT_NE(report.output.find("the server is running again"), std::string::npos) << report.output;
  EXPECT_EQ(report.output.find("lost"), std::string::npos) << report.output;
  EXPECT_EQ(Lines("log"), Texts(0, 140));
  Feed(140, 160);
  ASSERT_TRUE(WaitForMessageCount(160, 20s));
  Expect(ExportTo("log", "--rotate 1K --for 3"), 0, ": 20 messages in ");
  EXPECT_EQ(Lines("log"), Texts(0, 160));
  for (int number = 1; FileExists(ScratchFile("log." + std::to_string(number))); ++number) {
    const std::string bytes = ReadWholeFile(ScratchFile("log." + std::to_string(number)));
    EXPECT_LE(bytes.size(), 1024U);
    EXPECT_GE(bytes.size(), 1024U - 80U) << number;
    EXPECT_EQ(bytes.back(), '\n');
  }
}

TEST_F(LiveFiles, ExportThatWasKilledGoesOnWithoutALoss) {
  RunService({.maxMessage = 400});
  Feed(0, 40);
  {
    ChildProcess killed(CommandLine(ExportTo("log", "--rotate 1K")));
    ASSERT_TRUE(WaitForLine("log", 39));
    ASSERT_TRUE(Eventually(20s, [this] { return FileExists(ScratchFile("cursor")); }));
    Feed(40, 100);
    ASSERT_TRUE(WaitForLine("log", 60));
    killed.Kill();
    killed.WaitForEnd(20s);
  }
  Feed(100, 120);
  ASSERT_TRUE(WaitForMessageCount(120, 20s));
  Expect(ExportTo("log", "--rotate 1K --for 3"), 0, " messages in ");
  ExpectLines(Lines("log"), Texts(0, 120));
}

TEST_F(LiveFiles, ExportThatIsKilledAgainAndAgainHasEachMessageOnce) {
  ExpectEachOnceOverKills("");
}

TEST_F(LiveFiles, ExportThatIsKilledAgainAndAgainHasEachMessageOnceInItsRotatedFiles) {
  ExpectEachOnceOverKills("--rotate 2K");
}

TEST_F(LiveFiles, OrderedExportThatIsKilledAgainAndAgainHasEachMessageOnce) {
  ExpectEachOnceOverKills("--ordered");
}

// Some message is always held back then, so the cursor file contains those that are.
TEST_F(LiveFiles, OrderedExportNotesItsPlaceWhileMessagesKeepComing) {
  RunService({.maxMessage = 20000});
  std::atomic<bool> stop{false};
  std::thread feeder([&stop] {
    for (int first = 0; !stop; first += 20) {
      Feed(first, first + 20);
      std::this_thread::sleep_for(20ms);
    }
  });
  ChildProcess killed(CommandLine(ExportTo("log", "--ordered")));
  EXPECT_TRUE(Eventually(20s, [this] {
    const std::string noted = ReadWholeFile(ScratchFile("cursor"));
    return noted.find("\nheld ") != std::string::npos && noted.find("\nmemory") != std::string::npos;
  }));
  killed.Kill();
  killed.WaitForEnd(20s);
  stop = true;
  feeder.join();
}

// What the last run wrote after its note is only there: it has to stay.
TEST_F(LiveFiles, ExportKeepsWhatTheLogLostAfterAKill) {
  RunService({.maxMessage = 40});
  Feed(0, 20);
  {
    ChildProcess killed(CommandLine(ExportTo("log", "")));
    ASSERT_TRUE(WaitForLine("log", 19));
    std::string noted;
    ASSERT_TRUE(Eventually(20s, [this, &noted] {
      std::ostringstream length;
      length << ' ' << std::hex << ReadWholeFile(ScratchFile("log")).size() << '\n';
      noted = FileExists(ScratchFile("cursor")) ? ReadWholeFile(ScratchFile("cursor")) : "";
      return noted.find(length.str()) != std::string::npos;
    }));
    Feed(20, 30);
    ASSERT_TRUE(WaitForLine("log", 29));
    killed.Kill();
    killed.WaitForEnd(20s);
    // As if it had been killed before it noted them.
    WriteWholeFile(ScratchFile("cursor"), noted);
  }
  Feed(30, 150);
  ASSERT_TRUE(Eventually(20s, [this] {
    const auto texts = TextsOfFile();
    return std::find(texts.begin(), texts.end(), TextOf(149)) != texts.end();
  }));
  Expect(ExportTo("log", "--for 3"), 0, "it stays");
  // Which 40 of them the ring has kept depends on how many came in one flush.
  std::vector<std::string> rest = TextsOfFile();
  std::sort(rest.begin(), rest.end());
  std::vector<std::string> expected = Texts(0, 30);
  expected.insert(expected.end(), rest.begin(), rest.end());
  ExpectLines(Lines("log"), expected);
}

TEST_F(LiveFiles, ExportKeepsTheNewestFilesAndTakesNothingThatIsNotItsOwn) {
  RunService({.maxMessage = 400});
  Feed(0, 100);
  ASSERT_TRUE(WaitForMessageCount(100, 20s));
  Expect(ExportTo("log", "--rotate 1K --keep 2 --for 0.5"), 0, ": 100 messages in ");
  EXPECT_FALSE(FileExists(ScratchFile("log.3")));
  const std::vector<std::string> lines = Lines("log");
  ASSERT_GE(lines.size(), 20U);
  EXPECT_EQ(lines, Texts(100 - static_cast<int>(lines.size()), 100));
  Expect("export " + Quoted("log") + " --follow --for 0.5", 2, "--cursor-file of the run that wrote it");
  EXPECT_EQ(Lines("log"), lines);
  Expect("export " + Quoted("log") + " --follow --for 0.5 -o csv --force -n 1 ", 2, "-n");
  Expect("export " + Quoted("log") + " --follow --for 0.5 -o csv --force -g nothing", 1, ": 0 messages");
  EXPECT_EQ(ReadWholeFile(ScratchFile("log")), "");
  Expect("export " + Quoted("nowhere\\log") + " --follow --for 0.5", 8, "cannot be written");
}

TEST_F(LiveFiles, ImportBringsBackWhatEachFormatHasSaved) {
  RunService({.maxMessage = 400});
  Feed(0, 30);
  ASSERT_TRUE(WaitForMessageCount(30, 20s));
  const std::string before = RunTool("show -o json --fields time,type,source,text,origin,tail").output;
  Expect("export " + Quoted("saved.dat") + " --log", 0, "30 messages");
  Expect("export " + Quoted("saved.json") + " -o json", 0, "30 messages");
  Expect("export " + Quoted("saved.tsv") + " -o tsv", 0, "30 messages");
  for (const char* const name : {"saved.dat", "saved.json", "saved.tsv"}) {
    Expect("clear --yes", 0, "emptied");
    Expect("import " + Quoted(name), 0, "30 messages: 30 in the log, 0 not, 0 refused");
    const std::string now = RunTool("show -o json --fields time,type,source,text,origin,tail").output;
    EXPECT_EQ(now, before) << name;
    EXPECT_EQ(std::count(now.begin(), now.end(), '\n'), 30) << name;
    Expect("show -o cat -n 1", 0, TextOf(29));
    Expect("import " + Quoted(name), 0, "30 messages: 30 in the log (30 already were), 0 not, 0 refused");
    Expect("show --count", 0, "30");
    Expect("import " + Quoted(name) + " " + Quoted(name), 0, "30 messages: 30 in the log (30 already were)");
    Expect("import --again " + Quoted(name), 0, "30 messages: 30 in the log, 0 not, 0 refused");
    Expect("show --count", 0, "60");
  }
}

// Any user can send times that do not exist, here some that fall into one bucket of a hash table that does
// not mix its keys.
TEST_F(LiveFiles, MessagesWithImpossibleTimesAreSentAndSentAgainExactlyOnce) {
  constexpr std::uint64_t kCount = 3000;
  constexpr std::uint64_t kDistance = 3739;  // a prime
  RunService({.maxMessage = kCount});
  std::string lines;
  for (std::uint64_t i = 1; i <= kCount; ++i) lines += TimeOfKey(i * kDistance) + "\t1\tCrafted\ttext\n";
  WriteWholeFile(ScratchFile("crafted.tsv"), lines);
  const std::string import = "import --input tsv " + Quoted("crafted.tsv");
  Expect(import, 0, "3000 messages: 3000 in the log, 0 not, 0 refused");
  Expect(import, 0, "3000 in the log (3000 already were)");
  Expect("settings set --no-backup --capacity 6000", 0, "3000 of 3000 missing ones are in the log");
  Expect(import, 0, "3000 in the log (3000 already were)");
  Expect("show --count", 0, "3000");
}

TEST_F(LiveFiles, ImportSaysWhatDidNotStayInTheLog) {
  RunService({.maxMessage = 400});
  Feed(0, 30);
  ASSERT_TRUE(WaitForMessageCount(30, 20s));
  Expect("export " + Quoted("saved.dat") + " --log", 0, "30 messages");
  Expect("clear --yes", 0, "emptied");
  Expect("filter add -x System", 0, "");
  Expect("import " + Quoted("saved.dat"), 1, "0 in the log, 30 not, 0 refused");
  Expect("import -q " + Quoted("saved.dat"), 1, "not in the log: 30 dropped by a filter or a disabled type");
  Expect("filter clear", 0, "");
  // An unterminated text costs one message; the others are submitted.
  std::string bytes = ReadWholeFile(ScratchFile("saved.dat"));
  const std::size_t slot = kSlotsOffset + 5 * sizeof(LogMessage);
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(slot), sizeof(LogMessage), '\xFF');
  WriteWholeFile(ScratchFile("damaged.dat"), bytes);
  Expect("import " + Quoted("damaged.dat"), 7, "29 in the log, 0 not, 0 refused");
  WriteWholeFile(ScratchFile("bad.json"), "{\"time\":\"2026-01-01T00:00:00\"}\n");
  Expect("import " + Quoted("bad.json"), 2, "line 1: expected \"text\"");
  Expect("import " + Quoted("missing.json"), 3, "no such file");
  EXPECT_EQ(Header().messageCount, 29);
  StopService();
  Expect("import " + Quoted("saved.dat"), 3, "the server is not running");
}

// The import holds more messages than the ring, older than the present ones: the log must not be written
// newest first, because the next start would then empty it.
TEST_F(LiveFiles, ImportOfMoreThanTheCapacityLeavesALogThatIsKept) {
  RunService({.maxMessage = 100});
  WriteWholeFile(ScratchFile("many.tsv"), TsvLines(250));
  Expect("import " + Quoted("many.tsv"), 1, "100 in the log, 150 not, 0 refused");
  Expect("import -q " + Quoted("many.tsv"), 1, "not in the log: 150 older than the full log holds");
  Expect("verify --live --strict -q", 0, "");
  StopService();
  StartService();
  Expect("show --count", 0, "100");
  Expect("show -o cat -n 1", 0, TextOf(249));
}

TEST_F(LiveFiles, ImportGoesOnOverARestartOfTheServerWithoutRepeatingAMessage) {
  RunService({.maxMessage = 1000});
  // The number of messages keeps the import running until the stop.
  WriteWholeFile(ScratchFile("many.tsv"), TsvLines(10000));
  ChildProcess import(CommandLine("import " + Quoted("many.tsv")));
  import.CloseInput();
  ASSERT_TRUE(Eventually(20s, [this] { return Header().messageCount >= 200; }));
  StopService();
  StartService();
  const CommandReport report = ReportAtEnd(import);
  EXPECT_EQ(report.exitCode, 1U) << report.output;
  EXPECT_NE(report.output.find("the connection was lost after "), std::string::npos) << report.output;
  EXPECT_NE(report.output.find("10000 messages: 1000 in the log, 9000 not, 0 refused"), std::string::npos)
      << report.output;
  std::string expected;
  for (const std::string& text : Texts(9000, 10000)) expected += text + "\n";
  EXPECT_EQ(RunTool("show -o cat").output, expected);
}

// The texts come from a pipe, which cannot be read a second time.
TEST_F(LiveFiles, SendGoesOnOverRestartsOfTheServerWithoutLosingOrRepeatingALine) {
  RunService({.maxMessage = 4000});
  ChildProcess sender(CommandLine("send -s Piped --retry 60"));
  std::thread feeder([&sender] {
    for (int number = 0; number < 2000; ++number) {
      sender.WriteLine(TextOf(number));
      if (number % 10 == 0) std::this_thread::sleep_for(20ms);
    }
  });
  for (int count = 200; count <= 1000; count += 400) {
    EXPECT_TRUE(Eventually(20s, [&] { return Header().messageCount >= count; }));
    StopService();
    StartService();
  }
  feeder.join();
  sender.CloseInput();
  const CommandReport report = ReportAtEnd(sender);
  EXPECT_EQ(report.exitCode, 0U) << report.output;
  EXPECT_NE(report.output.find("2000 messages: 2000 in the log, 0 not; "), std::string::npos)
      << report.output;
  // One that was sent again comes after others of its millisecond.
  std::istringstream shown(RunTool("show -o cat").output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(shown, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  ExpectLines(lines, Texts(0, 2000));
}

// The account names the line from which on a second run loses and repeats the fewest.
TEST_F(LiveFiles, SendThatGivesUpSaysWhichLinesHaveArrived) {
  RunService({.maxMessage = 400});
  ChildProcess sender(CommandLine("send -s Piped --retry 2"));
  for (int number = 0; number < 20; ++number) sender.WriteLine(TextOf(number));
  ASSERT_TRUE(WaitForMessageCount(20, 20s));
  std::this_thread::sleep_for(2500ms);
  sender.WriteLine(TextOf(20));  // the log is read after it, and before the next line
  sender.WriteLine(TextOf(21));
  ASSERT_TRUE(WaitForMessageCount(22, 10s));
  StopService();
  sender.WriteLine(TextOf(22));
  const CommandReport report = ReportAtEnd(sender);
  EXPECT_EQ(report.exitCode, 3U) << report.output;
  EXPECT_NE(report.output.find("the server did not come back for 2 s"), std::string::npos) << report.output;
  EXPECT_NE(report.output.find("whether line 2"), std::string::npos) << report.output;
  EXPECT_NE(report.output.find("arrived is not known; to continue from there: tail -n +2"), std::string::npos)
      << report.output;
}

TEST_F(LiveFiles, LongTextsAreMarkedWhereTheyWereCutAndStatusKnowsBothEnds) {
  RunService();
  const std::string text(300, 'x');
  const std::string time = "--time \"2026-03-14 12:00:0";
  Expect("send --split " + time + "1.000\" " + text, 0, "");
  Expect("send --truncate " + time + "2.000\" " + text, 0, "");
  ASSERT_TRUE(WaitForMessageCount(3, 20s));
  EXPECT_EQ(RunTool("show -o cat").output, std::string(253, 'x') + "...\n..." + std::string(47, 'x') + "\n" +
                                               std::string(253, 'x') + "...\n");
  Expect("send " + time + "0.000\" early", 0, "");
  ASSERT_TRUE(WaitForMessageCount(4, 20s));
  Expect("status", 0, "oldest    2026-03-14 12:00:00.000\nnewest    2026-03-14 12:00:02.000\n");
  // More messages arrive at once than the ring holds: the ring runs backwards.
  std::optional<ServerConnection> client = ServerConnection::Connect(20s);
  ASSERT_TRUE(client);
  for (int i = 0; i < 150; ++i) {
    ASSERT_EQ(client->AskForCode(SubmitRequest(Message("burst", 10000 + i * 1000))), ReplyCode::Done);
  }
  ASSERT_TRUE(WaitForMessageCount(100, 20s));
  ASSERT_TRUE(
      Eventually(20s, [] { return RunTool("show -n 1").output.rfind("2026-03-14 12:02:39.000", 0) == 0; }));
  const std::string times = RunTool("show -o template={time}").output;
  constexpr std::size_t kLine = 24;  // 2026-03-14 12:00:00.000 and a line end
  ASSERT_EQ(times.size(), 100 * kLine) << times;
  Expect("status", 0, "oldest    " + times.substr(0, kLine) + "newest    " + times.substr(99 * kLine));
}
