// Every exit code that the verbs of files can return without a server, and their reports of a wrong command
// line. Runs the program itself.

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using TestSupport::Outcome;

class FileVerbs : public testing::Test {
 protected:
  // Drops the capabilities by which programs that root starts bypass file permissions.
  static void SetUpTestSuite() {
    if (geteuid() != 0) return;
    ASSERT_EQ(prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0), 0);
  }

  FileVerbs() {
    RingModel log(8);
    for (int i = 0; i < 6; ++i) log.Submit(MakeBody(i * 1000, "message " + std::to_string(i), "Even"));
    log.Flush();
    std::string bytes = log.FileBytes();
    Put("good.dat", bytes);
    Put("secret.dat", bytes);
    chmod(folder.File("secret.dat").c_str(), 0);
    std::filesystem::create_directory(folder.File("locked"));
    chmod(folder.File("locked").c_str(), 0500);
    // A source without an end.
    const std::size_t third = kSlotsOffset + 2 * sizeof(LogMessage);
    bytes.replace(third, sizeof(LogMessage), sizeof(LogMessage), '\xFF');
    Put("bad.dat", bytes);
  }

  void Put(const std::string& name, const std::string& bytes) const {
    TestSupport::WriteBytes(folder.File(name), bytes);
  }
  std::string Contents(const std::string& name) const { return TestSupport::ReadBytes(folder.File(name)); }
  // Returns the name of a temporary file for `target`; empty when there is none.
  std::string TemporaryOf(const std::string& target) const {
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
      std::string name = entry.path().filename().string();
      if (name.starts_with(target + ".new-")) return name;
    }
    return "";
  }
  // Runs the program, and interrupts it once it has begun to write `target`.
  int InterruptAt(const std::string& target, std::vector<std::string> arguments) const {
    const std::string home = folder.File("");
    const pid_t child = fork();
    if (child == 0) {
      std::vector<char*> words{const_cast<char*>(TAMLOGCTL)};
      for (std::string& argument : arguments) words.push_back(argument.data());
      words.push_back(nullptr);
      if (chdir(home.c_str()) == 0) execv(TAMLOGCTL, words.data());
      _exit(127);
    }
    int status = 0;
    while (TemporaryOf(target).empty()) {
      if (waitpid(child, &status, WNOHANG) != 0) return -1;  // ended before its file was seen
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(child, SIGINT);
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  bool IsThere(const std::string& name) const { return std::filesystem::exists(folder.File(name)); }

  // `before`: of the shell that starts the program.
  Outcome Run(const std::string& arguments, const std::string& before = "", const char* out = "out") const {
    return Shell(before + " $T " + arguments + " >" + out);
  }
  // A line of the shell, in which $T is the program.
  Outcome Shell(const std::string& line) const {
    return TestSupport::RunIn(folder.Path(), "T='" TAMLOGCTL "'; " + line);
  }
  void Expect(const std::string& arguments, int exitCode, const std::string& said) const {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.exitCode, exitCode) << arguments << "\n" << outcome.err;
    EXPECT_NE(outcome.err.find(said), std::string::npos) << arguments << "\n" << outcome.err;
  }
  // Files cannot become longer than a block of 512 bytes, as on a full disk.
  Outcome RunOnFullDisk(const std::string& arguments) const { return Run(arguments, "ulimit -f 1;"); }

  TestSupport::TempDir folder;
};

TEST_F(FileVerbs, Verify) {
  EXPECT_EQ(Run("verify good.dat").exitCode, 0);
  EXPECT_EQ(Run("verify -q --strict good.dat").out, "");
  EXPECT_EQ(Run("verify bad.dat").exitCode, 1);
  EXPECT_EQ(Run("verify good.dat bad.dat").exitCode, 1);
  Expect("verify missing.dat bad.dat", 3, "missing.dat: no such file");
  Expect("verify --live", 3, "this operating system has no log server; show, stats and export read");
  Expect("verify secret.dat missing.dat", 4, "secret.dat: access denied");
  EXPECT_EQ(Run("verify good.dat", "", "/dev/full").exitCode, 8);
}

TEST_F(FileVerbs, Repair) {
  Expect("repair bad.dat new.dat", 0, "");
  EXPECT_EQ(Run("verify -q --strict new.dat").exitCode, 0);
  Expect("repair bad.dat --output old.dat", 0, "");
  EXPECT_EQ(Contents("old.dat"), Contents("new.dat"));
  Expect("repair bad.dat new.dat --output old.dat", 2, "NEW: cannot be used with --output");
  Expect("repair bad.dat new.dat", 2, "new.dat: already exists; give another name, or --force");
  Expect("repair bad.dat ./bad.dat --force", 2, "NEW './bad.dat': is the damaged file itself");
  Expect("repair bad.dat /dev/full --force", 3, "/dev/full: is not an ordinary file");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
  Put("cut.dat", Contents("good.dat").substr(0, 100));  // ends within the header: nothing is left to save
  EXPECT_EQ(Run("repair cut.dat cut-new.dat").exitCode, 7);
  Expect("repair missing.dat other.dat", 3, "missing.dat: no such file");
  Expect("repair secret.dat other.dat", 4, "secret.dat: access denied");
  Expect("repair bad.dat locked/other.dat", 4, "locked/other.dat: cannot be written: access denied");
  Expect("repair bad.dat nowhere/other.dat", 8, "nowhere/other.dat: cannot be written");
  const Outcome full = RunOnFullDisk("repair bad.dat other.dat");
  EXPECT_EQ(full.exitCode, 8);
  EXPECT_NE(full.err.find("other.dat: cannot be written: File too large"), std::string::npos) << full.err;
  EXPECT_FALSE(IsThere("other.dat"));
  EXPECT_EQ(TemporaryOf("other.dat"), "");
  EXPECT_EQ(Run("repair bad.dat other.dat", "", "/dev/full").exitCode, 8);
}

TEST_F(FileVerbs, Merge) {
  Expect("merge good.dat good.dat", 0, "");
  Expect("merge good.dat -g nothing", 1, "");
  Expect("merge missing.dat good.dat", 3, "missing.dat: no such file");
  Expect("merge secret.dat", 4, "secret.dat: access denied");
  Expect("merge bad.dat", 7, "");
  EXPECT_NE(Run("merge bad.dat").out.find("message 5"), std::string::npos);
  EXPECT_EQ(Run("merge good.dat", "", "/dev/full").exitCode, 8);
}

TEST_F(FileVerbs, CursorFileNeverReplacesWhatIsExported) {
  for (const char* const name : {"new.txt", "./new.txt"}) {
    Expect("export new.txt --file good.dat --cursor-file " + std::string(name), 2,
           "is the file to write; give another name");
    EXPECT_EQ(Contents("new.txt"), "");
  }
  Expect("export log.txt --file good.dat --cursor-file cursor", 0, "log.txt: 6 messages");
  const std::string before = Contents("cursor");
  Expect("export cursor --force --file good.dat --cursor-file cursor", 2, "is the file to write");
  EXPECT_EQ(Contents("cursor"), before);
}

TEST_F(FileVerbs, Export) {
  Expect("export log.txt --file good.dat", 0, "log.txt: 6 messages");
  Expect("export copy.dat --log --file good.dat", 0, "copy.dat: 6 messages");
  EXPECT_EQ(Run("verify -q --strict copy.dat").exitCode, 0);
  Expect("export none.txt --file good.dat -g nothing", 1, "none.txt: 0 messages");
  Expect("export log.txt --file good.dat", 2, "log.txt: already exists; give another name, or --force");
  Expect("export log.txt --file good.dat --force -q", 0, "");
  Put("own.dat", Contents("good.dat"));
  Expect("export ./own.dat --force --file own.dat", 2,
         "./own.dat: is the log that is read; give another name");
  EXPECT_EQ(Contents("own.dat"), Contents("good.dat"));
  Expect("export ./own.dat --log --capacity 20 --force --file own.dat", 0, "own.dat: 6 messages");
  Expect("export two.dat --log --capacity 2 --file good.dat", 2, "--capacity 2: 6 messages do not fit");
  Expect("export other.txt --file missing.dat", 3, "missing.dat: no such file");
  Expect("export other.txt", 3, "this operating system has no log server; show, stats and export read");
  Expect("export other.txt --follow", 3,
         "this operating system has no log server; show, stats and export read");
  Expect("export other.txt --file secret.dat", 4, "secret.dat: access denied");
  Expect("export locked/log.txt --file good.dat", 4, "locked/log.txt: cannot be written: access denied");
  Expect("export bad.txt --file bad.dat", 7, "bad.txt: ");
  EXPECT_NE(Contents("bad.txt").find("message 5"), std::string::npos);
  Expect("export nowhere/log.txt --file good.dat", 8, "nowhere/log.txt: cannot be written");
  const Outcome full = RunOnFullDisk("export other.txt -o full --file good.dat --file good.dat");
  EXPECT_EQ(full.exitCode, 8);
  EXPECT_NE(full.err.find("other.txt: cannot be written: File too large"), std::string::npos) << full.err;
  EXPECT_FALSE(IsThere("other.txt"));
  EXPECT_EQ(TemporaryOf("other.txt"), "");
}

// Each defect has one exit code and one report, whichever verb reads the file.
TEST_F(FileVerbs, DamageIsReportedAlikeByEveryVerb) {
  const std::string good = Contents("good.dat");
  Put("grown.dat", good + "more");
  Put("cut.dat", good.substr(0, kSlotsOffset + 3 * sizeof(LogMessage) + 100));
  std::string bytes = good;
  Put("shifted.dat", bytes.erase(kSlotsOffset + sizeof(LogMessage) + 50, 20));
  Put("two.dat", good + good);
  bytes = good;
  for (std::size_t i = kSlotsOffset; i < kSlotsOffset + sizeof(LogMessage); ++i)
    std::swap(bytes[i + 2 * sizeof(LogMessage)], bytes[i + 3 * sizeof(LogMessage)]);
  Put("swapped.dat", bytes);
  bytes = good;
  bytes[11] = '\x80';
  Put("header.dat", bytes);
  const struct {
    const char* file;
    const char* said;
  } cases[] = {{"bad.dat", "bad.dat: 1 message breaks a rule of the format; see: tamlogctl verify"},
               {"grown.dat", "grown.dat: the file's size of 4724 bytes does not fit its capacity of 8"},
               {"cut.dat", "cut.dat: the file is too short: it has 3 of 8 slots"},
               {"shifted.dat", "shifted.dat: bytes are missing or were added at byte 800"},
               {"two.dat", "two.dat: another log begins at byte 4720"},
               {"swapped.dat", "swapped.dat: 1 message is older than the message before"},
               {"header.dat", "header.dat: the header is not valid"}};
  for (const auto& each : cases) {
    const std::string file = each.file;
    for (const std::string& arguments :
         {"show --file " + file, "show -r --file " + file, "show --count --file " + file,
          "show -n 2 --file " + file, "stats --file " + file, "merge " + file, "merge good.dat " + file,
          "export new.txt --force --file " + file, "export new.dat --force --log --file " + file,
          "show -g nothing --file " + file}) {
      Expect(arguments, 7, each.said);
      const Outcome quiet = Run(arguments + " -q");
      EXPECT_EQ(quiet.exitCode, 7) << arguments;
      EXPECT_EQ(quiet.err.find(each.said), std::string::npos) << arguments;
    }
    EXPECT_EQ(Run("verify " + file).exitCode, 1) << file;
  }
  EXPECT_NE(Run("merge good.dat cut.dat").out.find("message 5"), std::string::npos);
}

TEST_F(FileVerbs, WhatIsNoLogIsNamedByEveryVerbAndNothingIsWritten) {
  Put("text.dat", std::string(5000, 'x'));
  Put("packed.dat", "\x1f\x8b\x08" + std::string(5000, '\x99'));
  Put("zeros.dat", std::string(5000, '\0'));
  Put("empty.dat", "");
  const struct {
    const char* file;
    const char* said;
  } cases[] = {{"text.dat", "text.dat is not a log (it begins like text)"},
               {"packed.dat", "packed.dat is not a log (it begins like gzip)"},
               {"zeros.dat", "zeros.dat is not a log (it begins with zeros)"},
               {"empty.dat", "empty.dat is not a log (it is empty)"}};
  for (const auto& each : cases) {
    const std::string file = each.file;
    for (const std::string& arguments :
         {"show --file " + file, "show -r --file " + file, "show --count --file " + file,
          "show -n 2 --file " + file, "stats --file " + file, "merge " + file,
          "export new.txt --file " + file, "export new.txt --log --file " + file, "verify " + file,
          "verify --strict -o json " + file, "repair " + file + " new.txt",
          "repair --carve " + file + " new.txt"}) {
      Expect(arguments, 9, each.said);
      EXPECT_EQ(Contents("out"), "") << arguments;
      EXPECT_FALSE(IsThere("new.txt")) << arguments;
    }
  }
  Expect("import --input log text.dat", 9, "text.dat is not a log (it begins like text)");
  Expect("merge good.dat text.dat", 9, "text.dat is not a log");
  EXPECT_NE(Contents("out").find("message 5"), std::string::npos) << "the other file is printed all the same";
  Expect("verify good.dat text.dat", 9, "text.dat is not a log");
}

TEST_F(FileVerbs, RepairFindsTheSlotsAgainAndSaysSo) {
  const std::string good = Contents("good.dat");
  std::string bytes = good;
  Put("cut.dat", bytes.erase(kSlotsOffset + sizeof(LogMessage) + 50, 20));
  const Outcome outcome = Run("repair cut.dat new.dat");
  EXPECT_EQ(outcome.exitCode, 0);
  const std::string report = Contents("out");
  EXPECT_NE(report.find("new.dat: 5 messages\n  the file lost or gained bytes at 1 place"), std::string::npos)
      << report;
  EXPECT_NE(report.find("slot 1 at byte 800: 20 bytes missing; slots go on at byte 1340"), std::string::npos)
      << report;
  EXPECT_NE(report.find("lost: at most 1 message"), std::string::npos) << report;
  EXPECT_EQ(Run("verify -q --strict new.dat").exitCode, 0);
  EXPECT_EQ(Run("show -o cat --file new.dat").out, "message 0\nmessage 2\nmessage 3\nmessage 4\nmessage 5\n");
  EXPECT_EQ(Run("show -o cat -q --file cut.dat").out, Run("show -o cat --file new.dat").out)
      << "show finds the same messages";
  EXPECT_NE(Run("verify cut.dat").out.find("DAMAGE  shifted-slots  at byte 800: 20 bytes missing"),
            std::string::npos);
  Put("two.dat", good + good);
  EXPECT_EQ(Run("repair two.dat both.dat").exitCode, 0);
  EXPECT_NE(Contents("out").find("2 logs were found one behind the other"), std::string::npos)
      << Contents("out");
  EXPECT_EQ(Run("show --count --file both.dat").out, "12\n");
}

TEST_F(FileVerbs, RepairThatSavesMostlyDoubtfulBytesIsNoSuccess) {
  std::string bytes = Contents("good.dat");
  for (std::size_t slot = 0; slot < 4; ++slot) {  // bytes that a server accepts and that have no date
    std::string junk(sizeof(LogMessage), '\0');
    junk[100] = static_cast<char>('a' + slot);
    bytes.replace(kSlotsOffset + slot * sizeof(LogMessage), sizeof(LogMessage), junk);
  }
  Put("junk.dat", bytes);
  Expect("repair junk.dat new.dat", 7, "");
  EXPECT_NE(Contents("out").find("in doubt: 4 messages without a date"), std::string::npos)
      << Contents("out");
  Expect("repair -q junk.dat new.dat --force", 7, "");
  bytes.replace(kSlotsOffset, bytes.size() - kSlotsOffset, bytes.size() - kSlotsOffset, '\0');
  Put("junk.dat", bytes);
  Expect("repair junk.dat new.dat --force", 7, "");
}

TEST_F(FileVerbs, VerifyNamesDamageFirstAndCountsRemarks) {
  RingModel log(100);
  for (int i = 0; i < 60; ++i) log.Submit(MakeBody(1000, "the same", "Even"));
  log.Submit(MakeBody(2000, "last", "Even"));
  log.Flush();
  std::string bytes = log.FileBytes();
  const std::uint32_t wrong = 9;
  std::memcpy(bytes.data() + LogFileSize(60) + offsetof(LogMessage, body) + offsetof(LogMessageBody, type),
              &wrong, sizeof(wrong));
  Put("same.dat", bytes);
  EXPECT_EQ(Run("verify same.dat").exitCode, 1);
  const std::string text = Contents("out");
  const std::size_t damage = text.find("  DAMAGE  known-type");
  const std::size_t remark = text.find("  remark  duplicate");
  ASSERT_NE(damage, std::string::npos) << text;
  ASSERT_NE(remark, std::string::npos) << text;
  EXPECT_LT(damage, remark);
  EXPECT_EQ(text.find("  remark  duplicate", remark + 1), std::string::npos) << text;
  EXPECT_NE(text.find(", and 58 more"), std::string::npos) << text;
  EXPECT_NE(text.find("list every remark with --all"), std::string::npos) << text;
  const std::string all = Run("verify --all same.dat").out;
  std::size_t lines = 0;
  for (std::size_t at = all.find("remark  duplicate"); at != std::string::npos;
       at = all.find("remark  duplicate", at + 1))
    ++lines;
  EXPECT_EQ(lines, 59U) << all;
}

// The files of options are no exception: a file that cannot be read has the code of its cause, and an invalid
// one is a usage error.
TEST_F(FileVerbs, FilesOfOptionsHaveTheCodesOfOtherFiles) {
  Expect("show --file good.dat --filter-file missing", 3, "--filter-file 'missing': no such file");
  Expect("stats --file good.dat --filter-file locked", 3, "--filter-file 'locked': is a directory");
  Expect("merge good.dat --filter-file secret.dat", 4, "--filter-file 'secret.dat': access denied");
  Expect("export new.txt --file good.dat --filter-file missing", 3, "--filter-file 'missing': no such file");
  Expect("show --file good.dat --cursor-file locked", 3, "--cursor-file 'locked': is not an ordinary file");
  Expect("show --file good.dat --cursor-file /dev/zero", 3,
         "--cursor-file '/dev/zero': is not an ordinary file");
  Expect("show --file good.dat --cursor-file secret.dat", 4, "--cursor-file 'secret.dat': access denied");
  Expect("export new.txt --file good.dat --cursor-file good.dat", 2,
         "--cursor-file 'good.dat': is not a cursor");
  Expect("show --file good.dat --cursor-file locked/at", 4, "locked/at: cannot be written: access denied");
  Expect("show --file good.dat --cursor-file nowhere/at", 8, "nowhere/at: cannot be written");
}

TEST_F(FileVerbs, FileThatCannotBeReadGivesNoOutputOfAnEmptyLog) {
  for (const char* const arguments :
       {"show --count --file secret.dat", "show -o json-array --file secret.dat",
        "show -o csv -r --file secret.dat", "merge -o csv secret.dat", "stats -o json --file secret.dat"}) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.exitCode, 4) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
  }
  EXPECT_EQ(Run("show --count --file good.dat --file secret.dat").out, "6\n");
}

TEST_F(FileVerbs, ExportWritesTheLastAndTheirNeighbours) {
  Expect("export last.txt -o cat -n 2 --file good.dat", 0, "last.txt: 2 messages");
  EXPECT_EQ(Contents("last.txt"), "message 4\nmessage 5\n");
  Expect("export near.txt -o cat -g [14] -A 1 --file good.dat", 0, "near.txt: 4 messages");
  EXPECT_EQ(Contents("near.txt"), "message 1\nmessage 2\n--\nmessage 4\nmessage 5\n");
  Expect("export near.json -o json -g [14] -A 1 --file good.dat", 0, "");
  EXPECT_EQ(Contents("near.json").find("--"), std::string::npos);
  Expect("export near.dat --log -g [14] -B 1 --file good.dat", 0, "near.dat: 4 messages");
  EXPECT_EQ(Run("show -o cat --file near.dat").out, "message 0\nmessage 1\nmessage 3\nmessage 4\n");
  Expect("export none.txt -g nothing -C 1 --file good.dat", 1, "none.txt: 0 messages");
  Expect("export grown.txt --follow -n 2", 2, "-n: cannot be used with --follow");
}

TEST_F(FileVerbs, ExportGoesOnWhereItsCursorFileSays) {
  Expect("export first.txt -o cat --cursor-file at --file good.dat", 0, "first.txt: 6 messages");
  Expect("export second.txt -o cat --cursor-file at --file good.dat", 0, "second.txt: 0 messages");
  const std::string cursor = Run("export one.txt -n 1 --show-cursor -q --file good.dat").err;
  ASSERT_EQ(cursor.rfind("cursor: c2.", 0), 0U) << cursor;
  Expect("export rest.txt --file good.dat --after-cursor " + cursor.substr(8, cursor.size() - 9), 0,
         ": 0 messages");
  // The next run writes the messages that could not be written.
  Expect("export locked/log.txt --cursor-file fresh --file good.dat", 4, "");
  EXPECT_FALSE(IsThere("fresh"));
  Expect("export two.txt --cursor-file at --file good.dat --file good.dat", 2, "name one file only");
}

TEST_F(FileVerbs, StatsCountTheLastAndNameThem) {
  const Outcome last = Run("stats -n 2 --type-names 0=info --file good.dat");
  EXPECT_NE(last.out.find("messages     2"), std::string::npos) << last.out;
  EXPECT_NE(last.out.find("  info "), std::string::npos) << last.out;
  EXPECT_NE(Run("stats -o json --type-names 0=info --file good.dat").out.find("\"labels\":[\"info\",\"T1\","),
            std::string::npos);
  Expect("stats --file good.dat --encoding klingon", 2, "--encoding 'klingon': expected one of");
}

TEST_F(FileVerbs, DirectoriesAreCalledDirectories) {
  for (const char* const arguments :
       {"show --file locked", "stats --file locked", "merge locked", "verify locked", "repair locked new.dat",
        "export new.txt --file locked", "import locked"}) {
    Expect(arguments, 3, "locked: is a directory; name a file in it");
  }
  Expect("export locked --file good.dat --force", 3, "locked: is not an ordinary file");
}

// A pipe can be read once: nothing of it may be gone when a quicker way of reading turns out to be none.
TEST_F(FileVerbs, PipesAreReadToTheirEnd) {
  const std::string shown = Run("show --file good.dat").out;
  for (const char* const arguments :
       {"show --file /dev/stdin", "show -n 6 --file /dev/stdin", "merge /dev/stdin"}) {
    const Outcome outcome = Shell(std::string("cat good.dat | $T ") + arguments);
    EXPECT_EQ(outcome.exitCode, 0) << arguments << outcome.err;
    EXPECT_EQ(outcome.out, shown) << arguments;
  }
  EXPECT_EQ(Shell("cat good.dat | $T show --count --file /dev/stdin").out, "6\n");
  EXPECT_EQ(Shell("cat good.dat | $T verify /dev/stdin").exitCode, 0);
  EXPECT_EQ(Shell("cat good.dat | $T repair /dev/stdin piped.dat").exitCode, 0);
  EXPECT_EQ(Run("show --file piped.dat").out, shown);
  EXPECT_EQ(Shell("head -c 1000 good.dat | $T show --count --file /dev/stdin").exitCode, 7);
}

TEST_F(FileVerbs, OutputThatCannotBeWrittenIsReportedUnlessItsReaderLeft) {
  for (const char* const arguments :
       {"show --file good.dat", "show --count --file good.dat", "merge good.dat", "stats --file good.dat",
        "verify good.dat", "version"}) {
    const Outcome full = Run(arguments, "", "/dev/full");
    EXPECT_EQ(full.exitCode, 8) << arguments;
    EXPECT_EQ(full.err, "tamlogctl: standard output cannot be written: No space left on device\n")
        << arguments;
  }
  // The other end of the pipe is closed before the program begins.
  EXPECT_EQ(Shell("{ while [ ! -e left ]; do sleep 0.01; done; $T show --file good.dat; echo $? >code; } | "
                  "{ exec <&-; : >left; while [ ! -s code ]; do sleep 0.01; done; }")
                .err,
            "");
  EXPECT_EQ(Contents("code"), "8\n");
}

TEST_F(FileVerbs, LimitOfTheFileSizeIsAFailureLikeAFullDisk) {
  const std::string limited = "{ ulimit -f 1; $T ";
  EXPECT_EQ(Shell(limited + "export new.tsv -o full --file good.dat --file good.dat; } 2>&1 | cat").out,
            "tamlogctl: new.tsv: cannot be written: File too large\n");
  EXPECT_EQ(Shell(limited + "man >new.1; } 2>&1 | cat").out,
            "tamlogctl: standard output cannot be written: File too large\n");
  EXPECT_EQ(TemporaryOf("new.tsv"), "");
}

TEST_F(FileVerbs, WarningsThatNobodyReadsDoNotEndTheWork) {
  EXPECT_EQ(
      Shell("{ while [ ! -e left ]; do sleep 0.01; done; $T export new.txt --file bad.dat; echo $? >code; } "
            "2>&1 | { exec <&-; : >left; while [ ! -s code ]; do sleep 0.01; done; }")
          .exitCode,
      0);
  EXPECT_EQ(Contents("code"), "7\n");
  EXPECT_NE(Contents("new.txt").find("message 5"), std::string::npos);
}

// The largest capacity takes half a second to write at least.
TEST_F(FileVerbs, InterruptedWritersLeaveNothingBehind) {
  EXPECT_EQ(
      InterruptAt("big.dat", {"export", "big.dat", "--log", "--capacity", "1000000", "--file", "good.dat"}),
      130);
  EXPECT_EQ(InterruptAt("big.dat", {"repair", "good.dat", "big.dat", "--capacity", "1000000"}), 130);
  EXPECT_FALSE(IsThere("big.dat"));
  EXPECT_EQ(TemporaryOf("big.dat"), "");
}

// Only a server decides which messages stay in the log, so exit codes 0, 1, 5 and 6 are left to tests with
// one.
TEST_F(FileVerbs, ImportReadsItsFilesBeforeItAsksForAServer) {
  Put("bad.json", "{\"time\":\"2026-01-01T00:00:00\",\"type\":1,\"source\":\"a\",\"text\":\"b\"}\n{}\nx\n");
  Put("bad.tsv", "2026-01-01 00:00:00.000\tone\n");
  Expect("import good.dat", 3, "this operating system has no log server; show, stats and export read");
  Expect("import bad.dat", 3, "bad.dat: is damaged; see: tamlogctl verify");
  Expect("import bad.json", 2, "bad.json: line 2: expected \"time\"");
  Expect("import bad.json", 2, "bad.json: line 3: expected a JSON object");
  Expect("import bad.json", 2, "nothing was done; correct the lines, or leave them out with --skip");
  Expect("import --skip bad.json", 3, "this operating system has no log server");
  Expect("import bad.tsv", 2, "bad.tsv: line 1: expected four columns");
  Expect("import --input json good.dat", 2, "good.dat: line 1: expected a JSON object");
  Expect("import good.dat missing.dat", 3, "missing.dat: no such file");
  Expect("import secret.dat", 4, "secret.dat: access denied");
}

// No server is needed for it.
TEST_F(FileVerbs, ConvertMakesALogOfOtherLogs) {
  Put("dpkg.log", "2026-01-02 03:04:06 install b\n2026-01-02 03:04:05 startup\n");
  Put("a.csv", "time,type,source,text\n2026-01-02 03:04:05.500,2,Stage,homed\n");
  Expect("convert dpkg.log a.csv new.dat", 0, "new.dat: 3 messages");
  EXPECT_EQ(Run("verify --strict -q new.dat").exitCode, 0);
  EXPECT_EQ(Run("show --file new.dat").out,
            "2026-01-02 03:04:05.000 T0 dpkg: startup\n2026-01-02 03:04:05.500 T2 Stage: homed\n"
            "2026-01-02 03:04:06.000 T0 dpkg: install b\n");
  Expect("convert dpkg.log new.dat", 2, "new.dat: already exists");
  Expect("convert -q --force --capacity 2 dpkg.log new.dat", 0, "");
  Expect("convert --force --capacity 1 dpkg.log new.dat", 2, "2 messages do not fit into a log of 1");
  EXPECT_EQ(Run("show --file new.dat --count").out, "2\n");
  Put("bad.csv", "time,text\nnever,x\n2026-01-02 03:04:05,y\n");
  Expect("convert bad.csv never.dat", 2, "bad.csv: line 2: column time: ");
  EXPECT_FALSE(IsThere("never.dat"));
  Expect("convert --skip bad.csv skipped.dat", 1, "skipped.dat: 1 message");
  Expect("convert missing.log never.dat", 3, "missing.log: no such file");
  Expect("convert dpkg.log nowhere/new.dat", 8, "nowhere/new.dat");
  const Outcome full = RunOnFullDisk("convert dpkg.log never.dat");
  EXPECT_EQ(full.exitCode, 8);
  EXPECT_NE(full.err.find("never.dat: cannot be written: File too large"), std::string::npos) << full.err;
  EXPECT_FALSE(IsThere("never.dat"));
}

TEST_F(FileVerbs, WhatWasExportedInAnyFormatIsConvertedBackByteForByte) {
  Expect("show --file good.dat -o raw", 0, "");
  const std::string before = Run("show --file good.dat -o json --fields all").out;
  for (const char* const format : {"json", "json-array", "csv", "tsv", "export", "rfc5424", "raw"}) {
    Expect(std::string("export saved --force --file good.dat -o ") + format, 0, "");
    Expect("convert --force saved back.dat", 0, "messages");
    EXPECT_EQ(Run("show --file back.dat -o json --fields all").out, before) << format;
  }
}

TEST_F(FileVerbs, UsageErrorsNameTheOptionAndTheFix) {
  const struct {
    const char* arguments;
    const char* said;
  } cases[] = {
      {"verify", "FILE: name a file to check, or --live"},
      {"verify good.dat -o xml", "--output: 'xml': expected text|json"},
      {"repair good.dat", "NEW: name the file to write"},
      {"repair --output new.dat", "FILE is required"},
      {"repair good.dat new --capacity 0", "--capacity: '0': expected a number from 1 to 2147483647"},
      {"export", "TARGET is required"},
      {"export new --file good.dat -o xml", "-o 'xml': expected one of short,"},
      {"export new --file missing.dat -o xml", "-o 'xml'"},
      {"export new --file good.dat -t 9", "-t '9': expected types from 0 to 3"},
      {"export new --file good.dat --capacity 5", "--capacity requires --log"},
      {"export new --keep 5", "--keep requires --rotate"},
      {"export new --rotate 1M", "--rotate requires --follow"},
      {"export new --ordered", "--ordered requires --follow"},
      {"export new --for 1", "--for requires --follow"},
      {"export new -f --rotate 10",
       "--rotate: '10': expected a size such as 500K, 10M or 1G, or a time such as"},
      {"export new -f --rotate 1M --rotate 1D", "--rotate: '1D'"},
      {"export new -f --rotate 1M --keep 0", "--keep: '0': expected a number from 1 to 1000000"},
      {"export new -f --file good.dat", "--file: a copied log does not grow; leave out --follow"},
      {"export new -f --log", "--log: cannot be used with --follow"},
      {"export new -f -o json-array", "-o json-array: cannot be used with --follow"},
      {"export new -f --cursor-file c -U now", "-U: cannot be used with --cursor-file"},
      {"import", "FILE is required"},
      {"import good.dat --input xml",
       "--input: 'xml': expected auto|log|raw|json|ndjson|json-array|csv|tsv|export|"},
      {"import good.dat --fields time,when", "--fields 'time,when': unknown field 'when'"},
      {"convert good.dat", "FILE: name a file to read, and the new log file"},
      {"convert good.dat new.dat --capacity 0", "--capacity: '0': expected a number from 1 to 1000000"},
      {"import good.dat --retry -1", "--retry: '-1': expected a number from 0 to 3600"},
      {"merge", "FILE: name a file, or --label HOST=FILE"},
      {"merge --label good.dat", "--label 'good.dat': expected HOST=FILE"},
      {"merge good.dat --offset a=+1h", "--offset 'a=+1h': there is no --label a=FILE"},
      {"merge --label a=good.dat --offset a=soon",
       "--offset 'a=soon': expected HOST=+1h (ms, s, m, h, d, w)"},
      {"merge missing.dat -o xml", "-o 'xml'"},
      {"merge good.dat -g '('", "-g '('"},
  };
  for (const auto& each : cases) {
    const Outcome outcome = Run(each.arguments);
    EXPECT_EQ(outcome.exitCode, 2) << each.arguments << "\n" << outcome.err;
    EXPECT_NE(outcome.err.find(each.said), std::string::npos) << each.arguments << "\n" << outcome.err;
    EXPECT_EQ(outcome.out, "") << each.arguments;
    EXPECT_FALSE(IsThere("new")) << each.arguments;
  }
}

// A file is written in the same way wherever standard output goes.
TEST_F(FileVerbs, ExportToAFileDoesNotMindATerminal) {
  const Outcome outcome = Shell("script -qec \"$T export raw.bin -o raw --file good.dat\" /dev/null");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
  EXPECT_EQ(Contents("raw.bin").size(), 6 * sizeof(LogMessage));
}

}  // namespace
