// The test damages a log that a real server wrote, repairs it with tamlogctl and puts it in the server's
// place: the next start keeps every saved message, byte for byte.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>

#include "tests/system/system_test.h"

#undef StartService  // would rename the fixture's operation

using namespace std::chrono_literals;

namespace {

constexpr std::int32_t kCapacity = 20;
constexpr int kMessages = 24;  // 20 to 23 lie in slots 0 to 3, 4 to 19 in the slots of their numbers

constexpr std::size_t OffsetOfSlot(std::size_t slot) {
  return kSlotsOffset + slot * sizeof(LogMessage);
}

void SetHeader(std::string& bytes, std::size_t offset, std::int32_t value) {
  std::memcpy(bytes.data() + offset, &value, sizeof(value));
}

void SetType(std::string& bytes, std::size_t slot, std::uint32_t type) {
  const std::size_t place = OffsetOfSlot(slot) + offsetof(LogMessage, body) + offsetof(LogMessageBody, type);
  std::memcpy(bytes.data() + place, &type, sizeof(type));
}

void FillSlot(std::string& bytes, std::size_t slot, char with) {
  bytes.replace(OffsetOfSlot(slot), sizeof(LogMessage), sizeof(LogMessage), with);
}

using Bodies = std::vector<LogMessageBody>;

void Lose(Bodies& newestFirst, int firstText, int lastText) {
  std::erase_if(newestFirst, [=](const LogMessageBody& body) {
    const int number = std::atoi(&body.text[0]);
    return number >= firstText && number <= lastText;
  });
}

struct Case {
  const char* name;
  std::function<void(std::string&)> damage;
  std::function<void(Bodies&)> expected;  // turns the bodies before the repair into those after it
  const char* report;                     // text that the repair has to report
};

void Nothing(Bodies& /*newestFirst*/) {}

}  // namespace

class RepairedLog : public SystemTest {
 protected:
  // Creates the log of a server that has stopped.
  void MakeLog() {
    RunService({.maxMessage = kCapacity});
    constexpr int kAtOnce = 8;  // a burst of the full capacity would reverse the ring
    for (int i = 0; i < kMessages; i += kAtOnce) {
      for (int j = i; j < i + kAtOnce; ++j) SubmitOverPipe(Message(std::to_string(j), 1000 * j));
      WaitForSequence(static_cast<std::uint64_t>(i) + kAtOnce);
    }
    StopService();
    sound = ReadWholeFile(LogFile());
    soundBodies = BodiesOfFile();
    ASSERT_EQ(soundBodies.size(), static_cast<std::size_t>(kCapacity));
  }
  void WaitForSequence(std::uint64_t next) {
    const bool there = Eventually(20s, [&] {
      const auto header = TestLogFile::ReadHeader(LogFile());
      return header && header->nextSequence >= next;
    });
    ASSERT_TRUE(there) << Header().nextSequence;
  }

  Bodies BodiesOfFile() const {
    Bodies bodies;
    for (const LogMessage& message : SlotsOfFile().NewestFirst()) bodies.push_back(message.body);
    return bodies;
  }
  static void ExpectBodies(const Bodies& seen, const Bodies& expected) {
    ASSERT_EQ(seen.size(), expected.size());
    for (std::size_t i = 0; i < seen.size(); ++i) {
      EXPECT_STREQ(&seen[i].text[0], &expected[i].text[0]) << i;
      EXPECT_EQ(std::memcmp(&seen[i], &expected[i], sizeof(LogMessageBody)), 0) << i;
    }
  }

  // Repairs these bytes, puts the result in the place of the log, and returns the report of the repair.
  std::string Repair(const std::string& damaged, const std::string& options = "") {
    const std::string from = ScratchFile("damaged.dat");
    const std::string to = ScratchFile("repaired.dat");
    WriteWholeFile(from, damaged);
    DeleteFileIfThere(to);
    const CommandReport report = RunTool("repair \"" + from + "\" --output \"" + to + "\" " + options);
    EXPECT_EQ(report.exitCode, 0U) << report.output;
    EXPECT_EQ(RunTool("verify -q --strict \"" + to + "\"").exitCode, 0U);
    EXPECT_EQ(ReadWholeFile(from), damaged) << "the damaged file is only read";
    CopyFileTo(to, LogFile());
    return report.output;
  }

  // A reformat would reset the counters.
  void StartAndExpect(const Bodies& newestFirst) {
    const LogFileHeader before = Header();
    ASSERT_EQ(before.messageCount, static_cast<std::int32_t>(newestFirst.size()));
    StartService();
    EXPECT_EQ(Header().messageCount, before.messageCount);
    EXPECT_EQ(Header().nextSequence, before.nextSequence);
    EXPECT_EQ(Header().changeCount, before.changeCount);
    EXPECT_EQ(Header().rewriteCount, before.rewriteCount);
    EXPECT_EQ(Header().serverRunning, 1);
    ExpectBodies(BodiesOfFile(), newestFirst);
    const CommandReport shown = RunTool("show -o cat -r");
    std::string texts;
    for (const LogMessageBody& body : newestFirst) texts += std::string(&body.text[0]) + "\n";
    EXPECT_EQ(shown.output, texts);
    EXPECT_EQ(TakeDiagnostics(), "");
  }

  void RunCases(const std::vector<Case>& cases) {
    MakeLog();
    for (const Case& one : cases) {
      SCOPED_TRACE(one.name);
      std::string damaged = sound;
      one.damage(damaged);
      const std::string report = Repair(damaged);
      EXPECT_NE(report.find(one.report), std::string::npos) << report;
      Bodies expected = soundBodies;
      one.expected(expected);
      StartAndExpect(expected);
      StopService();
    }
  }

  void SetCapacity(std::uint32_t capacity) { ServerRegistry::Write("MaxMessage", capacity); }

  std::string sound;
  Bodies soundBodies;  // newest first
};

TEST_F(RepairedLog, IsKeptByTheServerWhateverBecameOfTheSlots) {
  RunCases({
      {"a slot in the middle scribbled over", [](std::string& bytes) { FillSlot(bytes, 10, 'Z'); },
       [](Bodies& bodies) { Lose(bodies, 10, 10); }, "slot 10 at byte 5840: its type does not exist"},
      {"the next slot, which holds the oldest message, zeroed",
       [](std::string& bytes) { FillSlot(bytes, 4, '\0'); }, [](Bodies& bodies) { Lose(bodies, 4, 4); },
       "slot 4 at byte 2480: zeros only"},
      {"a type that does not exist", [](std::string& bytes) { SetType(bytes, 12, 0x00020001); }, Nothing,
       "slot 12 at byte 6960: type 131073 became 1"},
      {"a text without end",
       [](std::string& bytes) {
         bytes.replace(OffsetOfSlot(19) + offsetof(LogMessage, body) + offsetof(LogMessageBody, text),
                       kTextSize, kTextSize, 'x');
       },
       [](Bodies& bodies) {
         LogMessageBody& body = bodies.at(4);
         std::memset(body.text, 'x', kTextSize - 1);
         body.text[kTextSize - 1] = '\0';
       },
       "slot 19 at byte 10880: the text was cut"},
      {"a newer time in an older message",
       [](std::string& bytes) {
         constexpr std::int16_t kYear = 2031;
         std::memcpy(bytes.data() + OffsetOfSlot(5) + offsetof(LogMessage, body) +
                         offsetof(LogMessageBody, timestamp),
                     &kYear, sizeof(kYear));
       },
       [](Bodies& bodies) {
         bodies.at(18).timestamp[0] = 2031;
         std::rotate(bodies.begin(), bodies.begin() + 18, bodies.begin() + 19);
       },
       "20 messages"},
  });
}

TEST_F(RepairedLog, IsKeptByTheServerWhateverBecameOfHeaderAndSize) {
  RunCases({
      {"cut", [](std::string& bytes) { bytes.resize(OffsetOfSlot(15) + 100); },
       [](Bodies& bodies) { Lose(bodies, 15, 19); }, "5 messages"},
      {"grown", [](std::string& bytes) { bytes.append(1000, '\x7F'); }, Nothing, "20 messages"},
      {"messageCount negative",
       [](std::string& bytes) { SetHeader(bytes, offsetof(LogFileHeader, messageCount), -1); }, Nothing,
       "the header is not valid"},
      {"maxMessages zero",
       [](std::string& bytes) { SetHeader(bytes, offsetof(LogFileHeader, maxMessages), 0); }, Nothing,
       "the header is not valid"},
      {"nextSlot behind the end",
       [](std::string& bytes) { SetHeader(bytes, offsetof(LogFileHeader, nextSlot), 99); }, Nothing,
       "the header is not valid"},
      {"nextSlot zero", [](std::string& bytes) { SetHeader(bytes, offsetof(LogFileHeader, nextSlot), 0); },
       Nothing, "20 messages"},
  });
}

TEST_F(RepairedLog, GoesOnWhereTheDamagedOneEnded) {
  MakeLog();
  std::string damaged = sound;
  FillSlot(damaged, 10, 'Z');
  Repair(damaged);
  Bodies expected = soundBodies;
  Lose(expected, 10, 10);
  StartAndExpect(expected);
  // The ring has room for one more; the message after it takes the place of the oldest.
  Bodies grown = {Message("25", 25000), Message("24", 24000)};
  SubmitOverPipe(grown[1]);
  SubmitOverPipe(grown[0]);
  grown.insert(grown.end(), expected.begin(), expected.end() - 1);
  expected = grown;
  WaitForSequence(21);
  ExpectBodies(BodiesOfFile(), expected);
  StopService();
  StartService();
  ExpectBodies(BodiesOfFile(), expected);
}

// A burst of the full capacity leaves a reversed ring, which the server's own next start would empty.
TEST_F(RepairedLog, IsKeptThoughTheServerLeftItInReverse) {
  RunService({.maxMessage = kCapacity});
  Bodies burst;
  std::string newest;
  bool isReversed = false;
  // A flush between the messages of a burst splits it: then the ring is in the usual order.
  for (int attempt = 0; attempt < 20 && !isReversed; ++attempt) {
    burst.clear();
    for (int i = attempt * kMessages; i < (attempt + 1) * kMessages; ++i) {
      newest = std::to_string(i);
      burst.push_back(Message(newest, 1000 * i));
    }
    Driver().Put(burst);
    ASSERT_TRUE(Eventually(20s, [&] {
      const TestLogFile file = SlotsOfFile();
      return std::any_of(file.slots.begin(), file.slots.end(),
                         [&](const LogMessage& message) { return newest == &message.body.text[0]; });
    }));
    isReversed = newest == &SlotsOfFile().slots[0].body.text[0];
  }
  StopService();
  ASSERT_EQ(newest, &SlotsOfFile().slots[0].body.text[0]) << "the newest in slot 0";
  const CommandReport verified = RunTool("verify -q --strict \"" + LogFile() + "\"");
  EXPECT_EQ(verified.exitCode, 1U);
  EXPECT_EQ(RunTool("verify -q \"" + LogFile() + "\"").exitCode, 0U) << "a server wrote it: no damage";
  Repair(ReadWholeFile(LogFile()));
  Bodies expected(burst.rbegin(), burst.rbegin() + kCapacity);
  StartAndExpect(expected);
}

// The capacity in the settings decides, not that of the file.
TEST_F(RepairedLog, OfAnotherCapacityIsEmptiedUnlessItIsRepairedForTheServersOwn) {
  MakeLog();
  std::string damaged = sound;
  FillSlot(damaged, 10, 'Z');
  Bodies expected = soundBodies;
  Lose(expected, 10, 10);
  SetCapacity(30);
  EXPECT_NE(Repair(damaged, "--capacity 30").find("if its capacity is set to 30"), std::string::npos);
  StartAndExpect(expected);
  StopService();
  SetCapacity(8);
  const std::string report = Repair(damaged, "--capacity 8");
  EXPECT_NE(report.find("the oldest 11, for which a capacity of 8 has no room"), std::string::npos) << report;
  StartAndExpect(Bodies(expected.begin(), expected.begin() + 8));
  StopService();
  // The server writes the messages that it loads newest first, and then rejects its own order.
  for (const std::uint32_t other : {12U, 40U}) {
    SetCapacity(other);
    Repair(damaged);
    StartService();
    EXPECT_EQ(Header().messageCount, 0) << other;
    EXPECT_EQ(Header().maxMessages, static_cast<std::int32_t>(other));
    EXPECT_EQ(Header().nextSequence, 0U);
    StopService();
  }
}
