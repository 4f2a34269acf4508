#include "tamlogctl/read/rotating_file.h"

#include <gtest/gtest.h>
#ifdef __unix__
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#else
#include "client/live/handle.h"
#include "client/message/win32.h"
#endif

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using TamLogClient::Status;
using TamLogCtl::CutResult;
using TamLogCtl::FilePlace;
using TamLogCtl::RotatingFile;
using TamLogCtl::RotatingFileOptions;
using TamLogCtl::RotationLimits;
using TamLogCtl::TakeRotationLimit;

constexpr std::int64_t kMinute = 60 * 1000;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kMonday = 20003 * kDay;  // 2024-10-07, midnight

class RotatingFileTest : public testing::Test {
 protected:
  RotatingFileTest() { options.target = Path("log"); }
  std::string Path(const std::string& name) const { return folder.Path() + "/" + name; }
  void Put(const std::string& name, const std::string& bytes) const {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
  bool IsThere(const std::string& name) const { return fs::exists(Path(name)); }
  std::string Contents(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
  }
  // All files from the oldest to the one that is being written.
  std::string All() const {
    std::string all;
    for (int number = 99; number > 0; --number) all += Contents("log." + std::to_string(number));
    return all + Contents("log");
  }

  TestSupport::TempDir folder;
  RotatingFileOptions options;
};

TEST_F(RotatingFileTest, LimitsAreSizesAndTimes) {
  RotationLimits limits;
  EXPECT_FALSE(limits.Any());
  for (const char* const size : {"10M", "10MB", "10mb"}) {
    limits.bytes.reset();
    EXPECT_EQ(TakeRotationLimit(size, limits), "");
    EXPECT_EQ(limits.bytes, 10U * 1024 * 1024) << size;
  }
  EXPECT_FALSE(limits.periodMs);
  for (const char* const time : {"15min", "15 minutes", "900s"}) {
    limits.periodMs.reset();
    EXPECT_EQ(TakeRotationLimit(time, limits), "");
    EXPECT_EQ(limits.periodMs, 15 * kMinute) << time;
  }
  EXPECT_EQ(TakeRotationLimit("1w", limits), "");
  EXPECT_EQ(limits.periodMs, 7 * kDay);
  EXPECT_EQ(limits.bytes, 10U * 1024 * 1024);
  EXPECT_EQ(TakeRotationLimit("1000000G", limits), "");
  EXPECT_EQ(limits.bytes, std::uint64_t{1000000} << 30U);
  for (const char* const wrong : {"", "M", "10", "0M", "-1M", "10H", "10MBB", "10B", "1.5M", " 1M", "1M ",
                                  "1000001K", "99999999999M"}) {
    EXPECT_NE(TakeRotationLimit(wrong, limits), "") << wrong;
  }
}

TEST_F(RotatingFileTest, LimitThatMayMeanMinutesOrMegabytesIsRefusedWithBothSpellings) {
  RotationLimits limits;
  EXPECT_EQ(TakeRotationLimit("10m", limits),
            "'10m': may mean a size or a time; expected 10M (mebibytes) or 10min (minutes)");
  EXPECT_FALSE(limits.Any());
}

TEST_F(RotatingFileTest, EveryMessageIsInExactlyOneFileAndNoneIsCut) {
  options.limits.bytes = 100;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  std::string expected;
  for (int i = 0; i < 60; ++i) {
    const std::string message = std::to_string(i) + std::string(static_cast<std::size_t>(i % 37), 'x') + "\n";
    expected += message;
    ASSERT_TRUE(file.Append(message, 0));
    ASSERT_TRUE(i % 7 != 0 || file.Flush(0));
  }
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(All(), expected);
  EXPECT_GE(file.RotatedFiles(), 10U);
  for (std::uint64_t number = 1; number <= file.RotatedFiles(); ++number) {
    const std::string bytes = Contents("log." + std::to_string(number));
    EXPECT_LE(bytes.size(), 100U);
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(bytes.back(), '\n');
  }
}

TEST_F(RotatingFileTest, MessageLargerThanTheLimitHasAFileOfItsOwn) {
  options.limits.bytes = 10;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  const std::string large = std::string(50, 'x') + "\n";
  for (const std::string& message : {std::string("a\n"), large, std::string("b\n"), std::string("c\n")})
    ASSERT_TRUE(file.Append(message, 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(Contents("log.2"), "a\n");
  EXPECT_EQ(Contents("log.1"), large);
  EXPECT_EQ(Contents("log"), "b\nc\n");
}

TEST_F(RotatingFileTest, OlderFilesThanAreKeptGo) {
  options.limits.bytes = 2;
  options.limits.keep = 3;
  Put("log.5", "of a run that kept more\n");
  Put("log.4", "of a run that kept more\n");
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  for (const char* const message : {"1\n", "2\n", "3\n", "4\n", "5\n", "6\n"})
    ASSERT_TRUE(file.Append(message, 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(All(), "3\n4\n5\n6\n");
  EXPECT_FALSE(IsThere("log.4"));
  EXPECT_FALSE(IsThere("log.5"));
}

TEST_F(RotatingFileTest, OneThatIsKeptIsTheOneBefore) {
  options.limits.bytes = 2;
  options.limits.keep = 1;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  for (const char* const message : {"1\n", "2\n", "3\n"}) ASSERT_TRUE(file.Append(message, 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(All(), "2\n3\n");
}

TEST_F(RotatingFileTest, InterruptedShiftIsCompletedWithoutLosingAFile) {
  // As a run leaves them that ended between two renamings.
  Put("log", "c\n");
  Put("log.2", "b\n");
  Put("log.3", "a\n");
  options.limits.bytes = 2;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  ASSERT_TRUE(file.Append("d\n", 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(All(), "a\nb\nc\nd\n");
  EXPECT_EQ(Contents("log.3"), "a\n");
}

TEST_F(RotatingFileTest, PeriodsTurnWithTheClock) {
  options.limits.periodMs = kHour;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(kMonday), Status::Ok);
  ASSERT_TRUE(file.Append("a\n", kMonday + 59 * kMinute));
  ASSERT_TRUE(file.Append("b\n", kMonday + kHour - 1));
  ASSERT_TRUE(file.Flush(kMonday + kHour - 1));
  EXPECT_EQ(file.RotatedFiles(), 0U);
  ASSERT_TRUE(file.Append("c\n", kMonday + kHour));
  // Without a message the hour ends, too, but nothing empty is rotated.
  ASSERT_TRUE(file.Flush(kMonday + 2 * kHour));
  ASSERT_TRUE(file.Flush(kMonday + 9 * kHour));
  ASSERT_TRUE(file.Append("d\n", kMonday + 10 * kHour));
  ASSERT_TRUE(file.Flush(kMonday + 10 * kHour));
  EXPECT_EQ(file.RotatedFiles(), 2U);
  EXPECT_EQ(Contents("log.2"), "a\nb\n");
  EXPECT_EQ(Contents("log.1"), "c\n");
  EXPECT_EQ(Contents("log"), "d\n");
}

TEST_F(RotatingFileTest, WeeksBeginWithMondayAndDaysWithMidnight) {
  for (const auto& [period, turn] : {std::pair{7 * kDay, kMonday}, {kDay, kMonday + 3 * kDay}}) {
    options.target = Path("log" + std::to_string(period));
    options.limits.periodMs = period;
    RotatingFile file(options);
    ASSERT_EQ(file.Open(0), Status::Ok);
    ASSERT_TRUE(file.Append("a\n", turn - 1));
    ASSERT_TRUE(file.Append("b\n", turn));
    ASSERT_TRUE(file.Append("c\n", turn + period - 1));
    EXPECT_EQ(file.RotatedFiles(), 1U);
    ASSERT_TRUE(file.Append("d\n", turn + period));
    EXPECT_EQ(file.RotatedFiles(), 2U);
  }
}

TEST_F(RotatingFileTest, LaterRunGoesOnInTheSameFileUnlessItsPeriodIsOver) {
  options.limits.periodMs = kDay;
  options.limits.bytes = 1000;
  options.head = "head\n";
  const std::int64_t noon = kMonday + 12 * kHour;
  const auto run = [this](const char* message, std::int64_t now) {
    RotatingFile file(options);
    ASSERT_EQ(file.Open(now), Status::Ok);
    ASSERT_TRUE(file.Append(message, now));
    ASSERT_TRUE(file.Flush(now));
  };
  run("a\n", noon);
  run("b\n", noon);
  EXPECT_EQ(Contents("log"), "head\na\nb\n");
  fs::last_write_time(Path("log"), fs::file_time_type::clock::now() - std::chrono::hours(13));
  run("c\n", noon);
  EXPECT_EQ(Contents("log.1"), "head\na\nb\n");
  EXPECT_EQ(Contents("log"), "head\nc\n");
}

TEST_F(RotatingFileTest, AFileThatEndsWithinAMessageIsRotatedAsItIs) {
  Put("log", "whole\nhal");
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  ASSERT_TRUE(file.Append("new\n", 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(Contents("log.1"), "whole\nhal");
  EXPECT_EQ(Contents("log"), "new\n");
}

TEST_F(RotatingFileTest, OfRecordsOnlyWholeOnesAreGoneOnBehind) {
  options.ending.clear();
  options.unit = 4;
  Put("log", "12345678");
  {
    RotatingFile file(options);
    ASSERT_EQ(file.Open(0), Status::Ok);
    ASSERT_TRUE(file.Append("abcd", 0));
    ASSERT_TRUE(file.Flush(0));
  }
  EXPECT_EQ(Contents("log"), "12345678abcd");
  Put("log", "12345");
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  EXPECT_EQ(Contents("log.1"), "12345");
}

TEST_F(RotatingFileTest, EveryFileHasTheHeadAndOneWithAnotherIsRotated) {
  options.head = "time,text\n";
  options.limits.bytes = 20;
  Put("log", "time\nold\n");
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  for (const char* const message : {"1,aaaaa\n", "2,bbbbb\n", "3,ccccc\n"})
    ASSERT_TRUE(file.Append(message, 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(Contents("log.3"), "time\nold\n");
  EXPECT_EQ(Contents("log.2"), "time,text\n1,aaaaa\n");
  EXPECT_EQ(Contents("log.1"), "time,text\n2,bbbbb\n");
  EXPECT_EQ(Contents("log"), "time,text\n3,ccccc\n");
}

TEST_F(RotatingFileTest, ReplacingBeginsWithAnEmptyFile) {
  Put("log", "old\n");
  options.replace = true;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  ASSERT_TRUE(file.Append("new\n", 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_EQ(All(), "new\n");
}

// A directory with something in it in the place of a file cannot be removed, as one that is open elsewhere.
TEST_F(RotatingFileTest, AFileThatCannotBeRotatedIsAppendedToUntilItCan) {
  fs::create_directory(Path("log.1"));
  Put("log.1/held", "");
  options.limits.bytes = 4;
  options.limits.keep = 1;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  for (const char* const message : {"aa\n", "bb\n", "cc\n"}) ASSERT_TRUE(file.Append(message, 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_TRUE(file.RotationBlocked());
  const std::string blocker = file.Blocker();
  EXPECT_EQ(blocker.rfind(Path("log.1") + ": ", 0), 0U) << blocker;
#ifdef __unix__
  EXPECT_EQ(blocker, Path("log.1") + ": Directory not empty");
#endif
  EXPECT_EQ(Contents("log"), "aa\nbb\ncc\n");
  fs::remove_all(Path("log.1"));
  ASSERT_TRUE(file.Append("dd\n", 999));  // tried again once a second
  ASSERT_TRUE(file.Append("ee\n", 1000));
  ASSERT_TRUE(file.Flush(1000));
  EXPECT_FALSE(file.RotationBlocked());
  EXPECT_EQ(Contents("log.1"), "aa\nbb\ncc\ndd\n");
  EXPECT_EQ(Contents("log"), "ee\n");
}

#ifdef _WIN32
TEST_F(RotatingFileTest, FileThatAReaderHasOpenGrowsOnUntilItIsLetGo) {
  options.limits.bytes = 4;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  ASSERT_TRUE(file.Append("aa\n", 0));
  ASSERT_TRUE(file.Flush(0));
  TamLogClient::Handle reader(CreateFileA(Path("log").c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                          nullptr));
  ASSERT_TRUE(reader);
  ASSERT_TRUE(file.Append("bb\n", 0));
  ASSERT_TRUE(file.Flush(0));
  EXPECT_TRUE(file.RotationBlocked());
  EXPECT_EQ(Contents("log"), "aa\nbb\n");
  reader.Close();
  ASSERT_TRUE(file.Append("cc\n", 5000));
  ASSERT_TRUE(file.Flush(5000));
  EXPECT_FALSE(file.RotationBlocked());
  EXPECT_EQ(Contents("log.1"), "aa\nbb\n");
  EXPECT_EQ(Contents("log"), "cc\n");
}
#endif

// Runs are ended by a kill after `after` of the messages that follow the noted place.
TEST_F(RotatingFileTest, RunThatWasKilledIsCutBackToItsNotedPlaceWhereverThatIs) {
  options.limits.bytes = 9;  // three messages
  for (int before = 0; before < 8; ++before) {
    for (int after = 0; after < 14; ++after) {
      for (const auto& entry : fs::directory_iterator(folder.Path())) fs::remove(entry);
      FilePlace place;
      std::string expected;
      {
        RotatingFile file(options);
        ASSERT_EQ(file.Open(0), Status::Ok);
        for (int i = 0; i < before; ++i) {
          expected += std::to_string(i) + "_\n";
          ASSERT_TRUE(file.Append(std::to_string(i) + "_\n", 0));
        }
        ASSERT_TRUE(file.Flush(0));
        place = *file.Note();
        for (int i = 0; i < after; ++i) ASSERT_TRUE(file.Append("x\n", 0));
        ASSERT_TRUE(file.Flush(0));
      }
      RotatingFile next(options);
      EXPECT_EQ(next.GoesOn(place), after > 0);
      CutResult result = CutResult::Other;
      ASSERT_EQ(next.CutBack(place, result), Status::Ok);
      EXPECT_EQ(result, after > 0 ? CutResult::Cut : CutResult::Nothing) << before << " " << after;
      EXPECT_EQ(All(), expected) << before << " " << after;
      EXPECT_FALSE(next.GoesOn(place));
      ASSERT_EQ(next.Open(0), Status::Ok);
      ASSERT_TRUE(next.Append("y\n", 0));
      ASSERT_TRUE(next.Flush(0));
      EXPECT_EQ(All(), expected + "y\n") << before << " " << after;
    }
  }
}

TEST_F(RotatingFileTest, PlaceMovesWhenItsFileIsTheOldestThatGoes) {
  options.limits.bytes = 6;
  options.limits.keep = 2;
  FilePlace place;
  options.placeMoves = [&place](const FilePlace& moved) {
    place = moved;
    return true;
  };
  {
    RotatingFile file(options);
    ASSERT_EQ(file.Open(0), Status::Ok);
    ASSERT_TRUE(file.Append("aa\n", 0));
    ASSERT_TRUE(file.Flush(0));
    place = *file.Note();
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(file.Append("xx\n", 0));
    ASSERT_TRUE(file.Flush(0));
  }
  ASSERT_TRUE(IsThere("log.2"));
  RotatingFile next(options);
  CutResult result = CutResult::Other;
  ASSERT_EQ(next.CutBack(place, result), Status::Ok);
  EXPECT_EQ(result, CutResult::Cut);
  EXPECT_EQ(All(), "");  // all that is left was written after the place
}

TEST_F(RotatingFileTest, FilesThatAreNotTheNotedOneStayAsTheyAre) {
  options.limits.bytes = 100;
  FilePlace place;
  {
    RotatingFile file(options);
    ASSERT_EQ(file.Open(0), Status::Ok);
    ASSERT_TRUE(file.Append("aa\n", 0));
    ASSERT_TRUE(file.Flush(0));
    place = *file.Note();
  }
  CutResult result = CutResult::Cut;
  Put("log", "a\n");
  ASSERT_EQ(RotatingFile(options).CutBack(place, result), Status::Ok);
  EXPECT_EQ(result, CutResult::Shorter);
  Put("another", "another's\n");  // exists while the noted one is removed, so it cannot have the same id
  fs::rename(Path("another"), Path("log"));
  ASSERT_EQ(RotatingFile(options).CutBack(place, result), Status::Ok);
  EXPECT_EQ(result, CutResult::Other);
  EXPECT_EQ(All(), "another's\n");
}

TEST_F(RotatingFileTest, DirectoriesAreNoTargets) {
  fs::create_directory(Path("log"));
  EXPECT_EQ(RotatingFile(options).Open(0), Status::NotAFile);
  options.target = Path("nowhere/log");
  EXPECT_EQ(RotatingFile(options).Open(0), Status::NotFound);
}

#ifdef __unix__
// Nothing has the target's name between the rotation and the next file.
TEST_F(RotatingFileTest, LinkThatIsPlantedDuringARotationIsNotFollowed) {
  Put("victim", "precious");
  options.limits.bytes = 3;
  options.limits.keep = 1;
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  std::atomic<bool> stop{false};
  std::thread attacker([&] {
    while (!stop) {
      if (symlink(Path("victim").c_str(), Path("log").c_str()) == 0) std::this_thread::yield();
    }
  });
  for (int i = 0; i < 20000 && !file.Failed(); ++i) file.Append("aa\n", 0) && file.Flush(0);
  stop = true;
  attacker.join();
  EXPECT_EQ(Contents("victim"), "precious");
  EXPECT_EQ(file.Failure(), Status::Exists);
}

TEST_F(RotatingFileTest, DevicesCanBeWrittenButNotRotated) {
  options.target = "/dev/full";
  {
    RotatingFile file(options);
    ASSERT_EQ(file.Open(0), Status::Ok);
    ASSERT_TRUE(file.Append("a\n", 0));
    EXPECT_FALSE(file.Flush(0));
    EXPECT_TRUE(file.Failed());
    EXPECT_EQ(file.Failure().Reason(), "No space left on device");
    EXPECT_FALSE(file.Append("b\n", 0));
  }
  options.limits.bytes = 4;
  EXPECT_EQ(RotatingFile(options).Open(0), Status::NotAFile);
  EXPECT_TRUE(fs::exists("/dev/full"));
}

// The system takes a part of a message and then no more, as on a full disk.
class LimitOfFileSizes {
 public:
  explicit LimitOfFileSizes(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit limit = before;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
    handler = std::signal(SIGXFSZ, SIG_IGN);
  }
  ~LimitOfFileSizes() {
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
  }
  LimitOfFileSizes(const LimitOfFileSizes&) = delete;
  LimitOfFileSizes& operator=(const LimitOfFileSizes&) = delete;

 private:
  rlimit before{};
  void (*handler)(int) = SIG_DFL;
};

TEST_F(RotatingFileTest, FullDiskLeavesWholeMessagesOnly) {
  RotatingFile file(options);
  ASSERT_EQ(file.Open(0), Status::Ok);
  ASSERT_TRUE(file.Append("whole\n", 0));
  ASSERT_TRUE(file.Flush(0));
  {
    const LimitOfFileSizes limit(10);
    ASSERT_TRUE(file.Append("too much\n", 0));
    EXPECT_FALSE(file.Flush(0));
  }
  EXPECT_EQ(Contents("log"), "whole\n");
  EXPECT_FALSE(file.Append("later\n", 0));
}
#endif

}  // namespace
