// Tests of the log files that the server finds at its start: it keeps sound files and empties files that
// break one rule.

#include "tests/system/system_test.h"

#include <cstring>
#include <functional>

#include "util/win32.h"

#undef StartService  // would rename the fixture's operation

using namespace std::chrono_literals;

namespace {

constexpr std::int32_t kCapacity = 20;

// Returns a file with five messages in a ring that has wrapped once, so that walks cross its end.
TestLogFile SoundFile() {
  TestLogFile image = TestLogFile::Empty(kCapacity);
  image.header.nextSlot = kCapacity - 2;
  image.header.changeCount = 40;
  image.header.rewriteCount = 7;
  image.header.nextSequence = 100;
  for (int i = 0; i < 5; ++i) image.Append(Message(std::to_string(i), i));
  return image;
}

struct Damage {
  const char* name;
  std::function<void(TestLogFile&)> apply;
};

void PrintTo(const Damage& damage, std::ostream* out) {
  *out << damage.name;
}

}  // namespace

class DamagedFile : public SystemTest, public ::testing::WithParamInterface<Damage> {
 protected:
  void ExpectEmptyAndAsNew() {
    const TestLogFile image = SlotsOfFile();
    EXPECT_EQ(image.slots.size(), static_cast<std::size_t>(kCapacity));
    EXPECT_EQ(image.header.messageCount, 0);
    EXPECT_EQ(image.header.maxMessages, kCapacity);
    EXPECT_EQ(image.header.nextSlot, 0);
    EXPECT_EQ(image.header.changeCount, 2U);
    EXPECT_EQ(image.header.rewriteCount, 1U);
    EXPECT_EQ(image.header.nextSequence, 0U);
    EXPECT_EQ(image.header.serverRunning, 1);
    EXPECT_STREQ(image.names.name[0], kHeaderLockName);
  }
};
using SoundFileTest = DamagedFile;

TEST_P(DamagedFile, ComesBackEmptyAndIsUsedOn) {
  TestLogFile image = SoundFile();
  GetParam().apply(image);
  image.Write(LogFile());
  RunService({.maxMessage = kCapacity});
  ExpectEmptyAndAsNew();
  SubmitOverPipe(Message("next", 1));
  ExpectTexts({"next"});
  EXPECT_EQ(TakeDiagnostics(), "");
  KillService();  // a stop would add nothing here and costs a second per case
}

INSTANTIATE_TEST_SUITE_P(
    Rules, DamagedFile,
    ::testing::Values(
        Damage{"NegativeMessageCount", [](TestLogFile& image) { image.header.messageCount = -1; }},
        Damage{"NegativeCapacity", [](TestLogFile& image) { image.header.maxMessages = -1; }},
        Damage{"NegativeNextSlot", [](TestLogFile& image) { image.header.nextSlot = -1; }},
        Damage{"MoreMessagesThanSlots",
               [](TestLogFile& image) { image.header.messageCount = kCapacity + 1; }},
        Damage{"NextSlotBehindTheEnd", [](TestLogFile& image) { image.header.nextSlot = kCapacity; }},
        Damage{"CapacityFarBehindTheEndOfTheFile",
               [](TestLogFile& image) {
                 image.header.maxMessages = 1000000;
                 image.header.messageCount = 1000000;
                 image.header.nextSlot = 0;
               }},
        Damage{"OlderMessageInANewerSlot",
               [](TestLogFile& image) { image.Newest(1).body.timestamp[0] = 2027; }},
        Damage{"TextWithoutEnd",
               [](TestLogFile& image) {
                 LogMessageBody& body = image.Newest(4).body;
                 std::memset(body.text, 'x', sizeof(body.text));
               }},
        Damage{"SourceWithoutEnd",
               [](TestLogFile& image) {
                 LogMessageBody& body = image.Newest(0).body;
                 std::memset(body.source, 'x', sizeof(body.source));
               }},
        Damage{"UnknownType", [](TestLogFile& image) { image.Newest(2).body.type = kMessageTypes; }}),
    [](const ::testing::TestParamInfo<Damage>& damage) { return std::string(damage.param.name); });

// The rule that readCount is 1 under the check's own access cannot be broken by a file, because mapping it
// sets the count to 0. A reader whose events have outlived the server can break it by entering between the
// mapping and the check.
TEST_F(SoundFileTest, IsGivenUpWhenAReaderIsInsideDuringTheCheck) {
  TestLogFile marked = SoundFile();
  marked.header.readCount = 9;
  marked.Write(LogFile());
  Settings({.maxMessage = kCapacity});
  InstallService();
  // The reader holds the header lock when the server starts.
  const OwnedHandle headerLock = Own(CreateEventA(nullptr, FALSE, FALSE, kHeaderLockName));
  const OwnedHandle readWait = Own(CreateEventA(nullptr, TRUE, TRUE, kReadWaitEventName));
  const OwnedHandle writeWait = Own(CreateEventA(nullptr, TRUE, TRUE, kWriteWaitEventName));
  ASSERT_TRUE(headerLock && readWait && writeWait);
  ASSERT_EQ(ServiceControl::Start(), 0U);
  {
    OwnedHandle mapping;
    ASSERT_TRUE(Eventually(10s, [&mapping] {
      mapping = Own(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, kFileMapName));
      return mapping != nullptr;
    }));
    auto* view = static_cast<volatile LogFileHeader*>(
        MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    ASSERT_TRUE(Eventually(10s, [view] { return view->readCount == 0; }));  // the mapping is complete
    view->readCount = 1;
    ResetEvent(writeWait.get());
    SetEvent(headerLock.get());
    // The check continues now; the reader stays inside until the check is over and then leaves.
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(ServiceControl::State(), ServiceState::StartPending);  // the reformat waits for this reader
    WaitForSingleObject(headerLock.get(), 5000);
    view->readCount = 0;
    SetEvent(writeWait.get());
    SetEvent(headerLock.get());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the call takes no volatile pointer
    UnmapViewOfFile(const_cast<LogFileHeader*>(view));
  }
  AdoptService();
  WaitForStarts(1);
  ExpectEmptyAndAsNew();
}

TEST_F(SoundFileTest, IsAcceptedWithAReadCountThatIsNotZero) {
  TestLogFile image = SoundFile();
  image.header.readCount = 3;
  image.header.serverRunning = 1;  // the state that a killed server leaves
  image.Write(LogFile());
  RunService({.maxMessage = kCapacity});
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"4", "3", "2", "1", "0"}));
  EXPECT_EQ(Header().readCount, 0);
}

TEST_F(SoundFileTest, KeepsItsMessagesAndCountersOverStopAndStart) {
  SoundFile().Write(LogFile());
  RunService({.maxMessage = kCapacity});
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"4", "3", "2", "1", "0"}));
  EXPECT_EQ(Header().changeCount, 40U);
  EXPECT_EQ(Header().rewriteCount, 7U);
  EXPECT_EQ(Header().nextSequence, 105U);
  EXPECT_STREQ(SlotsOfFile().names.name[2], kWriteWaitEventName);
  SubmitOverPipe(Message("5", 5));
  ExpectTexts({"5", "4", "3", "2", "1", "0"});
  EXPECT_EQ(SlotsOfFile().NewestFirst()[0].sequence, 105U);
  StopService();
  StartService();
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"5", "4", "3", "2", "1", "0"}));
}

TEST_F(SoundFileTest, OfASizeThatIsNoneIsBroughtToTheRightSizeAndEmptied) {
  WriteWholeFile(LogFile(), "this was never a log file");
  RunService({.maxMessage = kCapacity});
  ExpectEmptyAndAsNew();
}

TEST_F(SoundFileTest, WithNothingInItIsSizedAndFormatted) {
  WriteWholeFile(LogFile(), "");
  RunService({.maxMessage = kCapacity});
  ExpectEmptyAndAsNew();
}
