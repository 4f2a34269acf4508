#include "util/diagnostic_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace TamLogUtil {
namespace {

using TestSupport::ReadBytes;

#ifdef _WIN32
const std::string kLineBreak = "\r\n";
#else
const std::string kLineBreak = "\n";
#endif

std::tm MondayInNovember() {
  std::tm time{};
  time.tm_year = 2026 - 1900;
  time.tm_mon = 10;
  time.tm_mday = 16;
  time.tm_hour = 1;
  time.tm_min = 45;
  time.tm_sec = 13;
  time.tm_wday = 1;
  return time;
}

// Like "Mon Nov 16 01:45:13 2026".
bool IsTime(const std::string& line) {
  const std::string form = "Aaa Aaa 99 99:99:99 9999";
  return line.size() == form.size() &&
         std::equal(line.begin(), line.end(), form.begin(), [](char byte, char kind) {
           if (kind == 'A') return byte >= 'A' && byte <= 'Z';
           if (kind == 'a') return byte >= 'a' && byte <= 'z';
           // The day of the month may begin with a space.
           if (kind == '9') return (byte >= '0' && byte <= '9') || byte == ' ';
           return byte == kind;
         });
}

// A log in a directory of the test; later entries are dropped.
class DiagnosticLog : public testing::Test {
 protected:
  DiagnosticLog() { SetLogFile(path); }
  ~DiagnosticLog() override { SetLogFile(""); }

  // The bytes of the log with every time line replaced by "TIME".
  std::string Contents() const {
    std::string replaced;
    std::istringstream text(ReadBytes(path));
    for (std::string line; std::getline(text, line);) {
      const std::size_t length = line.find_last_not_of('\r') + 1;
      if (IsTime(line.substr(0, length))) line.replace(0, length, "TIME");
      replaced += line + '\n';
    }
    return replaced;
  }
  static std::string Entry(const std::string& text) {
    return "TIME" + kLineBreak + " - " + text + kLineBreak;
  }

  const TestSupport::TempDir directory;
  const std::string path = directory.File("Trouble.txt");
};

TEST(LogTimeLine, HasAsctimesFormAndItsLineBreak) {
  EXPECT_EQ(LogTimeLine(MondayInNovember()), "Mon Nov 16 01:45:13 2026\n");
}

TEST(LogEntry, TakesTwoLines) {
  EXPECT_EQ(LogEntry(LogTimeLine(MondayInNovember()), "X"), "Mon Nov 16 01:45:13 2026\n - X\n");
}

TEST(LogEntry, AnEmptyTextStillTakesTwoLines) {
  EXPECT_EQ(LogEntry(LogTimeLine(MondayInNovember()), ""), "Mon Nov 16 01:45:13 2026\n - \n");
}

TEST_F(DiagnosticLog, AppendsOneEntryAfterTheOther) {
  WriteLog("first");
  WriteLog("");
  WriteLog("two\nlines");
  EXPECT_EQ(Contents(), Entry("first") + Entry("") + Entry("two" + kLineBreak + "lines"));
}

TEST_F(DiagnosticLog, StampsTheLocalTime) {
  const std::time_t before = std::time(nullptr);
  WriteLog("now");
  const std::time_t after = std::time(nullptr);
  const std::string stamp = ReadBytes(path).substr(0, 24);
  bool found = false;
  for (std::time_t moment = before; moment <= after; ++moment) {
    found = found || stamp + "\n" == LogTimeLine(*std::localtime(&moment));
  }
  EXPECT_TRUE(found) << stamp;
}

TEST_F(DiagnosticLog, AFileDeletedBetweenEntriesIsCreatedAgain) {
  WriteLog("first");
  ASSERT_EQ(std::remove(path.c_str()), 0);
  WriteLog("second");
  EXPECT_EQ(Contents(), Entry("second"));
}

TEST_F(DiagnosticLog, IsSharedWithOtherOpeners) {
  WriteLog("first");
  std::fstream other(path, std::ios::in | std::ios::out | std::ios::app);
  ASSERT_TRUE(other.is_open());
  WriteLog("second");
  other.close();
  EXPECT_EQ(Contents(), Entry("first") + Entry("second"));
}

TEST_F(DiagnosticLog, WithAnEmptyNameNothingIsWritten) {
  SetLogFile("");
  WriteLog("lost");
  EXPECT_EQ(ReadBytes(path), "");
}

TEST_F(DiagnosticLog, AFileThatCannotBeOpenedLosesTheEntrySilently) {
  SetLogFile(directory.File("missing") + "/Trouble.txt");
  WriteLog("lost");
  SetLogFile(path);
  WriteLog("kept");
  EXPECT_EQ(Contents(), Entry("kept"));
}

TEST_F(DiagnosticLog, AStreamTakesTheEntriesInsteadOfTheFile) {
  std::ostringstream stream;
  SetLogStream(&stream);
  WriteLog("to the stream");
  EXPECT_EQ(stream.str().substr(24), "\n - to the stream\n");
  EXPECT_EQ(ReadBytes(path), "");
  SetLogStream(nullptr);
}

TEST_F(DiagnosticLog, SettingTheFileDropsTheStream) {
  std::ostringstream stream;
  SetLogStream(&stream);
  SetLogFile(path);
  WriteLog("to the file");
  EXPECT_EQ(stream.str(), "");
  EXPECT_EQ(Contents(), Entry("to the file"));
}

TEST_F(DiagnosticLog, EntriesOfSeveralThreadsAreAllKept) {
  constexpr int kThreads = 4;
  constexpr int kEntries = 100;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([] {
      for (int entry = 0; entry < kEntries; ++entry) WriteLog("entry");
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string contents = Contents();
  std::size_t found = 0;
  for (std::size_t at = contents.find(" - entry"); at != std::string::npos;
       at = contents.find(" - entry", at + 1)) {
    ++found;
  }
  EXPECT_EQ(found, std::size_t{kThreads} * kEntries);
}

#ifndef _WIN32

// Opening a pipe without a reader blocks, like a writer that was terminated in the middle of its turn and
// keeps the turn forever.
TEST_F(DiagnosticLog, AWriterThatDoesNotComeToItsEndHoldsUpTheOthersForAMomentOnly) {
  const std::string pipe = directory.File("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
  SetLogFile(pipe);
  std::thread stuck([] { WriteLog("stuck"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  SetLogFile(path);
  WriteLog("goes on");
  EXPECT_EQ(Contents(), Entry("goes on"));
  std::ifstream reader(pipe);
  stuck.join();
}

#endif

// Its destructor runs after those of all static objects that the first entry created.
struct WritesAtTheVeryEnd {
  ~WritesAtTheVeryEnd() { WriteLog("the last"); }
};

// A late thread writes while static objects are destroyed; the process must still end normally.
TEST(DiagnosticLogDeathTest, EntriesCanStillBeWrittenWhenStaticObjectsAreGone) {
  const std::string name = testing::TempDir() + "tamlog-entries-at-the-end.txt";
  EXPECT_EXIT(
      {
        static const WritesAtTheVeryEnd end;
        std::remove(name.c_str());
        SetLogFile(name);
        WriteLog("the first");
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
  const std::string entries = TestSupport::ReadBytes(name);
  EXPECT_NE(entries.find("the first"), std::string::npos);
  EXPECT_NE(entries.find("the last"), std::string::npos);
  std::remove(name.c_str());
}

TEST(DiagnosticLogCapture, ReturnsTheTextsWithoutTheTime) {
  TestSupport::DiagnosticLogCapture log;
  WriteLog("one");
  WriteLog("");
  WriteLog("three\n - lines");
  EXPECT_EQ(log.Texts(), (std::vector<std::string>{"one", "", "three\n - lines"}));
  log.Clear();
  EXPECT_EQ(log.Count(), 0U);
}

TEST(DiagnosticLogCapture, TakesEntriesFromManyThreads) {
  TestSupport::DiagnosticLogCapture log;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int entry = 0; entry < 100; ++entry) WriteLog("entry");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(log.Texts(), std::vector<std::string>(400, "entry"));
}

}  // namespace
}  // namespace TamLogUtil
