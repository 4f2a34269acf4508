// The parts of the setup program that need no installed service.

#include <gtest/gtest.h>

#include <fstream>

#include "client/message/win32.h"
#include "packaging/setup/file_set.h"
#include "packaging/setup/path_list.h"
#include "packaging/setup/setup.h"
#include "packaging/setup/setup_error.h"
#include "packaging/setup/transaction.h"
#include "tests/support/temp_dir.h"

namespace TamLogSetup {

namespace {

TEST(PathList, DirectoryIsAddedOnceWithoutChangingTheRest) {
  EXPECT_EQ(WithDirectory(L"", L"C:\\A"), L"C:\\A");
  EXPECT_EQ(WithDirectory(L"%SystemRoot%;;C:\\B", L"C:\\A"), L"%SystemRoot%;;C:\\B;C:\\A");
  EXPECT_EQ(WithDirectory(L"C:\\B;", L"C:\\A"), L"C:\\B;C:\\A");
  EXPECT_EQ(WithDirectory(L"c:\\a\\;C:\\B", L"C:\\A"), L"c:\\a\\;C:\\B");
  EXPECT_EQ(WithDirectory(L"C:\\A B", L"C:\\A"), L"C:\\A B;C:\\A");
}

TEST(PathList, EveryOccurrenceIsRemovedAndTheRestStays) {
  EXPECT_EQ(WithoutDirectory(L"C:\\A", L"C:\\A"), L"");
  EXPECT_EQ(WithoutDirectory(L"%SystemRoot%;;C:\\B;c:\\a\\;C:\\AB", L"C:\\A"), L"%SystemRoot%;;C:\\B;C:\\AB");
  EXPECT_EQ(WithoutDirectory(L"C:\\A;C:\\B;C:\\A", L"C:\\A"), L"C:\\B");
  EXPECT_EQ(WithoutDirectory(L"C:\\B", L"C:\\A"), L"C:\\B");
}

TEST(PathList, LongListIsKeptWhole) {
  std::wstring list;
  for (int i = 0; i < 2000; ++i) list += L"C:\\Program Files\\Number " + std::to_wstring(i) + L";";
  EXPECT_EQ(WithoutDirectory(WithDirectory(list, L"C:\\A"), L"C:\\A") + L";", list);
}

TEST(Version, IsComparedNumberByNumber) {
  EXPECT_TRUE(IsOlder(L"0.1.0", L"0.2.0"));
  EXPECT_TRUE(IsOlder(L"0.9.0", L"0.10.0"));
  EXPECT_TRUE(IsOlder(L"1.2", L"1.2.1"));
  EXPECT_FALSE(IsOlder(L"0.2.0", L"0.1.9"));
  EXPECT_FALSE(IsOlder(L"1.2.0", L"1.2.0"));
  EXPECT_FALSE(IsOlder(L"1.2.0", L""));
}

TEST(Transaction, FailureUndoesTheStepsBackwardsTheFailedOneIncluded) {
  for (unsigned failAt = 1; failAt <= 3; ++failAt) {
    std::string seen;
    Transaction steps(failAt);
    EXPECT_THROW(
        {
          for (const char name : {'a', 'b', 'c'}) {
            steps.Do(
                std::string(1, name), [&seen, name] { seen += name; },
                [&seen, name] { seen += static_cast<char>(name - 'a' + 'A'); });
          }
        },
        SetupError);
    EXPECT_EQ(seen, std::string("abc").substr(0, failAt) + std::string("CBA").substr(3 - failAt));
    EXPECT_FALSE(steps.IsIncomplete());
  }
}

TEST(Transaction, UndoThatFailsDoesNotKeepTheOthersFromIt) {
  bool undone = false;
  Transaction steps(2);
  steps.Do(
      "first", [] {}, [&] { undone = true; });
  EXPECT_THROW(steps.Do(
                   "second", [] {}, [] { throw SetupError("no"); }),
               SetupError);
  EXPECT_TRUE(undone);
  EXPECT_TRUE(steps.IsIncomplete());
}

TEST(Transaction, CommittedStepsStay) {
  bool undone = false;
  Transaction steps(2);
  steps.Do(
      "first", [] {}, [&] { undone = true; });
  steps.Commit();
  EXPECT_THROW(steps.Do(
                   "second", [] {}, [] {}),
               SetupError);
  EXPECT_FALSE(undone);
}

class Files : public testing::Test {
 protected:
  // Links of Unix: Wine shows those to directories as Windows shows its own, and cannot make any. It runs
  // programs of Linux like its own.
  static void LinkDirectory(const std::filesystem::path& target, const std::filesystem::path& link) {
    const auto unixPath = [](const std::filesystem::path& path) {
      return std::filesystem::absolute(path).generic_wstring().substr(2);
    };
    std::wstring command = L"ln -s " + unixPath(target) + L" " + unixPath(link);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION made{};
    ASSERT_TRUE(CreateProcessW(L"Z:\\bin\\ln", command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &start, &made));
    const auto isLink = [&link] {
      const DWORD attributes = GetFileAttributesW(link.c_str());
      return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    };
    for (int tries = 0; tries < 500 && !isLink(); ++tries)
      Sleep(10);  // the handle of such a program does not signal its end
    EXPECT_TRUE(isLink());
    CloseHandle(made.hThread);
    CloseHandle(made.hProcess);
  }
  void Write(const std::filesystem::path& file, const std::string& text) const {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }
  std::string Read(const std::filesystem::path& file) const {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  TestSupport::TempDir temp;
  const std::filesystem::path directory = std::filesystem::path(temp.File("package"));
};

TEST_F(Files, MovedAsideComeBackUnchanged) {
  Write(directory / "a.txt", "one");
  Write(directory / "docs" / "b.txt", "two");
  Write(directory / "Logs.dat", "log");
  FilesAside aside(directory);
  aside.Move({"a.txt", "docs\\b.txt", "missing.txt"});
  EXPECT_FALSE(std::filesystem::exists(directory / "a.txt"));
  EXPECT_EQ(Read(directory / "Logs.dat"), "log");
  aside.MoveBack();
  EXPECT_EQ(Read(directory / "a.txt"), "one");
  EXPECT_EQ(Read(directory / "docs" / "b.txt"), "two");
  EXPECT_FALSE(std::filesystem::exists(directory / "setup-old-1"));
}

TEST_F(Files, DeletedLeaveForeignFilesAndTheirDirectories) {
  Write(directory / "a.txt", "one");
  Write(directory / "docs" / "deep" / "b.txt", "two");
  Write(directory / "docs" / "mine.txt", "mine");
  FilesAside aside(directory);
  const FileList files{"a.txt", "docs\\deep\\b.txt"};
  aside.Move(files);
  aside.Delete();
  DeleteEmptyDirectories(files, directory);
  EXPECT_EQ(Read(directory / "docs" / "mine.txt"), "mine");
  EXPECT_FALSE(std::filesystem::exists(directory / "docs" / "deep"));
  EXPECT_FALSE(std::filesystem::exists(directory / "setup-old-1"));
}

TEST_F(Files, DirectoryMayEndInABackslash) {
  Write(directory / "docs" / "b.txt", "two");
  Write(directory / "Logs.dat", "log");
  DeleteFiles({"Logs.dat", "docs\\b.txt"}, directory.wstring() + L"\\");
  EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST_F(Files, ListThatLeavesTheDirectoryIsRefused) {
  const std::filesystem::path list = directory / kListName;
  for (const char* const bad : {"..\\x.txt", "docs/../../x.txt", "C:\\x.txt", "\\x.txt", "C:x.txt"}) {
    Write(list, std::string("a.txt\r\n") + bad + "\r\n");
    EXPECT_THROW(ReadList(list), SetupError) << bad;
  }
  Write(list, "a.txt\r\ndocs/b.txt\r\n");
  EXPECT_EQ(ReadList(list), (FileList{"a.txt", "docs\\b.txt"}));
  EXPECT_TRUE(ReadList(directory / "none.txt").empty());
}

TEST_F(Files, DeletionOfThoseMovedAsideDoesNotFollowLinks) {
  const std::filesystem::path elsewhere(temp.File("elsewhere"));
  Write(elsewhere / "foreign.txt", "foreign");
  Write(directory / "setup-old-1" / "a.txt", "old");
  LinkDirectory(elsewhere, directory / "setup-old-1" / "link");
  LinkDirectory(elsewhere, directory / "setup-old-2");
  DeleteLeftAside(directory);
  EXPECT_EQ(Read(elsewhere / "foreign.txt"), "foreign");
  EXPECT_FALSE(std::filesystem::exists(directory / "setup-old-1" / "a.txt"));  // the links Wine cannot delete
}

TEST_F(Files, DirectoryThatIsALinkIsRefused) {
  const std::filesystem::path elsewhere(temp.File("elsewhere"));
  Write(elsewhere / "b.txt", "foreign");
  Write(directory / "from" / "docs" / "c.txt", "ours");
  LinkDirectory(elsewhere, directory / "docs");
  FilesAside aside(directory);
  EXPECT_THROW(aside.Move({"docs\\b.txt"}), SetupError);
  EXPECT_THROW(CopyFiles({"docs\\c.txt"}, directory / "from", directory), SetupError);
  EXPECT_EQ(Read(elsewhere / "b.txt"), "foreign");
  EXPECT_FALSE(std::filesystem::exists(elsewhere / "c.txt"));
}

TEST_F(Files, AsideNeverUsesADirectoryThatExists) {
  Write(directory / "a.txt", "one");
  Write(directory / "setup-old-1" / "foreign.txt", "foreign");
  FilesAside aside(directory);
  aside.Move({"a.txt"});
  EXPECT_TRUE(std::filesystem::exists(directory / "setup-old-2" / "a.txt"));
  aside.MoveBack();
  EXPECT_EQ(Read(directory / "setup-old-1" / "foreign.txt"), "foreign");
}

TEST_F(Files, LogIsAppendedToAndALinkIsRefused) {
  const std::filesystem::path log = directory / "setup.log";
  Write(log, "before\n");
  OpenLog(log.wstring());
  Say("after");
  EXPECT_NE(Read(log).find("before\n"), std::string::npos);
  EXPECT_NE(Read(log).find("after"), std::string::npos);
  const std::filesystem::path linked = directory / "linked.log";
  ASSERT_TRUE(CreateHardLinkW(linked.c_str(), log.c_str(), nullptr));
  EXPECT_THROW(OpenLog(linked.wstring()), SetupError);
  EXPECT_THROW(OpenLog((directory / "missing" / "setup.log").wstring()), SetupError);
}

TEST_F(Files, CopyDoesNotOverwrite) {
  Write(directory / "a.txt", "foreign");
  Write(directory / "from" / "a.txt", "ours");
  EXPECT_THROW(CopyFiles({"a.txt"}, directory / "from", directory), SetupError);
  EXPECT_EQ(Read(directory / "a.txt"), "foreign");
}

}  // namespace

}  // namespace TamLogSetup
