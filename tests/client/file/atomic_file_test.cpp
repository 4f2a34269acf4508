#include "client/file/atomic_file.h"

#include <gtest/gtest.h>
#ifdef _WIN32
#include "client/file/file_path.h"
#include "client/file/system_file.h"
#include "client/message/win32.h"
#endif
#ifdef __unix__
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#endif

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using TamLogClient::AtomicFile;
using TamLogClient::FileStatus;
using TamLogClient::Status;
using TestSupport::ReadBytes;
using TestSupport::WriteBytes;

class AtomicFileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder.Path() + "/" + name; }
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.Path()))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  FileStatus Put(AtomicFile& file, const std::string& bytes, bool overwrite = true) const {
    if (const FileStatus status = file.Open(Path("target"), overwrite); status != Status::Ok) return status;
    file.Write(bytes);
    return file.Commit();
  }

  TestSupport::TempDir folder;
};

using Names = std::vector<std::string>;

TEST_F(AtomicFileTest, AppearsWholeOrNotAtAll) {
  {
    AtomicFile file;
    ASSERT_EQ(file.Open(Path("target"), false), Status::Ok);
    EXPECT_TRUE(file.Write("new"));
    EXPECT_FALSE(fs::exists(Path("target")));
    EXPECT_EQ(Files().size(), 1U);
  }
  EXPECT_EQ(Files(), Names{});
  AtomicFile file;
  EXPECT_EQ(Put(file, "new", false), Status::Ok);
  EXPECT_EQ(ReadBytes(Path("target")), "new");
  EXPECT_EQ(Files(), Names({"target"}));
}

TEST_F(AtomicFileTest, NamesOfTemporaryFilesCannotBeGuessed) {
  const std::string first = TamLogClient::RandomName();
  EXPECT_EQ(first.size(), 16U);
  EXPECT_NE(first, TamLogClient::RandomName());
}

TEST_F(AtomicFileTest, FileThatAppearsMeanwhileIsNotReplaced) {
  AtomicFile file;
  ASSERT_EQ(file.Open(Path("target"), false), Status::Ok);
  WriteBytes(Path("target"), "another's");
  file.Write("ours");
  EXPECT_EQ(file.Commit(), Status::Exists);
  EXPECT_EQ(ReadBytes(Path("target")), "another's");
}

TEST_F(AtomicFileTest, PlannedNameThatIsTakenIsPassedOver) {
  WriteBytes(Path("target.new-taken"), "another's");
  int tries = 0;
  AtomicFile file([&tries] { return ++tries < 3 ? std::string("taken") : std::string("free"); });
  EXPECT_EQ(Put(file, "ours"), Status::Ok);
  EXPECT_EQ(tries, 3);
  EXPECT_EQ(ReadBytes(Path("target.new-taken")), "another's");
  AtomicFile never([] { return std::string("taken"); });
  EXPECT_EQ(Put(never, "ours"), Status::Exists);
}

TEST_F(AtomicFileTest, LeftoversOfKilledWritersAreRemovedAndNothingElse) {
  AtomicFile running;
  ASSERT_EQ(running.Open(Path("target"), true), Status::Ok);
  const std::string used = Files().front();
  const std::string other = "other.new-0123456789abcdef";
  const std::string folderName = "target.new-0123456789abcdee";
  const std::string kept = "target.new-0123456789abcde.txt";
  WriteBytes(Path("target.new-0123456789abcdef"), "half");
  WriteBytes(Path(other), "of another target");
  WriteBytes(Path(kept), "the user's");
  fs::create_directory(Path(folderName));
  TamLogClient::RemoveLeftovers(Path("target"));
  Names expected{other, kept, folderName, used};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(Files(), expected);
  EXPECT_TRUE(running.Write("whole"));
  EXPECT_EQ(running.Commit(), Status::Ok);
  EXPECT_EQ(ReadBytes(Path("target")), "whole");
}

#ifdef __unix__
TEST_F(AtomicFileTest, PlantedLinkIsNotFollowed) {
  WriteBytes(Path("victim"), "precious");
  fs::create_symlink(Path("victim"), Path("target.new-planted"));
  fs::create_symlink(Path("nowhere"), Path("target.new-dangling"));
  Names names{"free", "dangling", "planted"};
  AtomicFile file([&names] {
    std::string name = names.back();
    names.pop_back();
    return name;
  });
  EXPECT_EQ(Put(file, "ours"), Status::Ok);
  EXPECT_EQ(ReadBytes(Path("victim")), "precious");
  EXPECT_FALSE(fs::exists(Path("nowhere")));
  EXPECT_EQ(ReadBytes(Path("target")), "ours");
}

// The attacker even knows the name. What it can do is to plant a link there at any moment.
TEST_F(AtomicFileTest, LinksThatAreRacedForDoNotReachTheirTarget) {
  WriteBytes(Path("victim"), "precious");
  const std::string raced = Path("target.new-raced");
  std::atomic<bool> stop{false};
  std::atomic<int> planted{0};
  std::thread attacker([&] {
    while (!stop) {
      if (symlink(Path("victim").c_str(), raced.c_str()) == 0) ++planted;
      unlink(raced.c_str());
    }
  });
  int written = 0;
  for (int i = 0; i < 3000 || (planted < 100 && i < 300000); ++i) {
    AtomicFile file([] { return std::string("raced"); });
    if (Put(file, "ours") == Status::Ok) ++written;
  }
  stop = true;
  attacker.join();
  EXPECT_GT(written, 0);
  EXPECT_GE(planted, 100);
  EXPECT_EQ(ReadBytes(Path("victim")), "precious");
}

TEST_F(AtomicFileTest, FailureNamesTheReasonOfTheSystem) {
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit limit = before;
  limit.rlim_cur = 10;
  setrlimit(RLIMIT_FSIZE, &limit);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  AtomicFile file;
  const FileStatus status = Put(file, "more than ten bytes");
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(status, Status::SystemError);
  EXPECT_EQ(status.Reason(), "File too large");
  EXPECT_FALSE(fs::exists(Path("target")));
}
#endif

#ifdef _WIN32

// Has a file open without sharing, as scanners and backups do for a moment.
class Scanner {
 public:
  Scanner(const std::string& path, DWORD milliseconds)
      : file(CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr)),
        leaving([this, milliseconds] {
          Sleep(milliseconds);
          CloseHandle(file);
        }) {}
  ~Scanner() { leaving.join(); }
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

 private:
  HANDLE file;
  std::thread leaving;
};

TEST_F(AtomicFileTest, ReplacesATargetThatAScannerHasOpenForAMoment) {
  WriteBytes(Path("target"), "old");
  const Scanner scanner(Path("target"), 200);
  AtomicFile file;
  const FileStatus status = Put(file, "new");
  EXPECT_EQ(status, Status::Ok) << status.Reason();
  EXPECT_EQ(ReadBytes(Path("target")), "new");
}

TEST_F(AtomicFileTest, OpensWaitForAScannerForAMoment) {
  WriteBytes(Path("target"), "old");
  {
    const Scanner scanner(Path("target"), 200);
    std::ifstream file;
    EXPECT_EQ(TamLogClient::OpenForReading(Path("target"), file), Status::Ok);
  }
  {
    const Scanner scanner(Path("target"), 200);
    TamLogClient::SystemFile file;
    EXPECT_EQ(file.OpenToAppend(Path("target")), Status::Ok);
  }
  const Scanner scanner(Path("target"), 3000);
  std::ifstream file;
  const FileStatus status = TamLogClient::OpenForReading(Path("target"), file);
  EXPECT_EQ(status, Status::AccessDenied);
  EXPECT_TRUE(status.HasReason());
}

#endif

}  // namespace
