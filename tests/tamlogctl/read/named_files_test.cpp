// The ways in which a user names log files: compressed ones, standard input, pipes. Runs the program itself.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using TestSupport::Outcome;

class NamedFiles : public testing::Test {
 protected:
  NamedFiles() {
    TamLogTest::RingModel log(8);
    for (int i = 0; i < 6; ++i) log.Submit(TamLogTest::MakeBody(i * 1000, "message " + std::to_string(i)));
    log.Flush();
    TestSupport::WriteBytes(folder.File("Logs.dat"), log.FileBytes());
    EXPECT_EQ(Shell("gzip -nc Logs.dat > Logs.dat.gz && xz -c Logs.dat > Logs.dat.xz"), 0);
  }

  int Shell(const std::string& commands) const {
    return TestSupport::RunIn(folder.Path(), commands).exitCode;
  }
  Outcome Run(const std::string& arguments, const std::string& input = "") const {
    return TestSupport::RunIn(folder.Path(), "'" TAMLOGCTL "' " + arguments, input);
  }
  std::string Contents(const std::string& name) const { return TestSupport::ReadBytes(folder.File(name)); }
  // Cuts a file to so many bytes.
  void Cut(const std::string& name, std::size_t size) const {
    TestSupport::WriteBytes(folder.File(name), Contents(name).substr(0, size));
  }

  TestSupport::TempDir folder;
  const std::string all = "message 0\nmessage 1\nmessage 2\nmessage 3\nmessage 4\nmessage 5\n";
};

TEST_F(NamedFiles, ShowTakesPlainNamesAndOptions) {
  EXPECT_EQ(Run("show Logs.dat -o cat").out, all);
  EXPECT_EQ(Run("show -o cat --file Logs.dat").out, all);
  EXPECT_EQ(Run("show -o cat Logs.dat Logs.dat -n 3").out, "message 4\nmessage 5\nmessage 5\n");
  EXPECT_EQ(Run("show -o cat Logs.dat --file Logs.dat -n +3").out, "message 0\nmessage 0\nmessage 1\n");
  const auto missing = Run("show Lgos.dat");
  EXPECT_EQ(missing.exitCode, 3);
  EXPECT_NE(missing.err.find("Lgos.dat: no such file"), std::string::npos) << missing.err;
}

TEST_F(NamedFiles, EveryVerbReadsCompressedFiles) {
  for (const std::string file : {"Logs.dat.gz", "Logs.dat.xz"}) {
    EXPECT_EQ(Run("show -o cat " + file).out, all) << file;
    EXPECT_EQ(Run("show -o cat -n 2 -r " + file).out, "message 5\nmessage 4\n") << file;
    EXPECT_EQ(Run("show --count " + file).out, "6\n") << file;
    EXPECT_EQ(Run("show --relative-to end -S -1s -o cat " + file).out, "message 4\nmessage 5\n") << file;
    EXPECT_EQ(Run("merge -o cat " + file).out, all) << file;
    EXPECT_EQ(Run("merge -o cat --label east=" + file).out, all) << file;
    EXPECT_EQ(Run("stats -o json " + file).out, Run("stats -o json Logs.dat").out) << file;
    const auto verified = Run("verify " + file);
    EXPECT_EQ(verified.exitCode, 0) << verified.out << verified.err;
    EXPECT_EQ(verified.out.rfind(file + ": no damage\n", 0), 0U) << verified.out;
    EXPECT_EQ(Run("export --force out.txt -o cat --file " + file).exitCode, 0) << file;
    EXPECT_EQ(Contents("out.txt"), all) << file;
    EXPECT_EQ(Run("repair --force --output new.dat " + file).exitCode, 0) << file;
    EXPECT_EQ(Run("show -o cat new.dat").out, all) << file;
  }
}

TEST_F(NamedFiles, StandardInputIsADash) {
  for (const std::string file : {"Logs.dat", "Logs.dat.gz", "Logs.dat.xz"}) {
    EXPECT_EQ(Run("show -o cat -", Contents(file)).out, all) << file;
    EXPECT_EQ(Run("show -o cat --file -", Contents(file)).out, all) << file;
    EXPECT_EQ(Run("show -o cat - -n 1 --relative-to end -S now", Contents(file)).out, "message 5\n") << file;
    EXPECT_EQ(Run("stats -o json -", Contents(file)).out, Run("stats -o json Logs.dat").out) << file;
    EXPECT_EQ(Run("verify -q -", Contents(file)).exitCode, 0) << file;
    EXPECT_EQ(Run("verify -", Contents(file)).out.rfind("standard input: no damage\n", 0), 0U) << file;
    EXPECT_EQ(Run("merge -o cat -", Contents(file)).out, all) << file;
  }
  EXPECT_EQ(Shell("cat Logs.dat.gz | '" TAMLOGCTL "' show -o cat - > out.txt"), 0);
  EXPECT_EQ(Contents("out.txt"), all);
}

TEST_F(NamedFiles, PipesMayBeCompressed) {
  EXPECT_EQ(Shell("mkfifo pipe && (cat Logs.dat.xz > pipe & '" TAMLOGCTL "' show -o cat pipe) > out.txt"), 0);
  EXPECT_EQ(Contents("out.txt"), all);
  EXPECT_EQ(Shell("cat Logs.dat | '" TAMLOGCTL "' show -o cat /dev/stdin > out.txt"), 0);
  EXPECT_EQ(Contents("out.txt"), all);
}

TEST_F(NamedFiles, TruncatedDataAreShownAndReported) {
  // Of random texts, which do not shrink: half of the data are about half of the log.
  TamLogTest::RingModel log(1000);
  std::srand(1);
  for (int i = 0; i < 1000; ++i) {
    std::string text;
    for (int j = 0; j < 200; ++j) text += static_cast<char>('!' + std::rand() % 90);
    log.Submit(TamLogTest::MakeBody(i * 1000, text));
  }
  log.Flush();
  TestSupport::WriteBytes(folder.File("big.dat"), log.FileBytes());
  ASSERT_EQ(Shell("gzip -nk big.dat && xz -k --block-size=20000 big.dat"), 0);
  for (const std::string file : {"big.dat.gz", "big.dat.xz"}) {
    Cut(file, Contents(file).size() / 2);
    const auto outcome = Run("show -o cat " + file);
    EXPECT_EQ(outcome.exitCode, 7) << file;
    EXPECT_GT(outcome.out.size(), 200U * 300) << file;
    EXPECT_NE(outcome.err.find(" data end too early; the rest is missing"), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find("big.dat:"), std::string::npos) << outcome.err;
  }
}

TEST_F(NamedFiles, MissingCheckSumAloneIsReported) {
  Cut("Logs.dat.gz", Contents("Logs.dat.gz").size() - 1);
  for (const std::string words :
       {"show -o cat", "stats", "show --count", "merge", "verify", "repair --output new.dat"}) {
    EXPECT_EQ(Run(words + " Logs.dat.gz").exitCode, 7) << words;
  }
  EXPECT_EQ(Run("show -o cat Logs.dat.gz").out, all);
}

TEST_F(NamedFiles, DamagedDataAreReported) {
  std::string bytes = Contents("Logs.dat.gz");
  bytes[bytes.size() - 8] = static_cast<char>(bytes[bytes.size() - 8] ^ 1);  // of the check sum
  TestSupport::WriteBytes(folder.File("Logs.dat.gz"), bytes);
  const auto outcome = Run("show -o cat Logs.dat.gz");
  EXPECT_EQ(outcome.exitCode, 7);
  EXPECT_NE(outcome.err.find("Logs.dat.gz: the gzip data are damaged"), std::string::npos) << outcome.err;
  const auto verified = Run("verify Logs.dat.gz");
  EXPECT_EQ(verified.exitCode, 7);
  EXPECT_EQ(verified.out.find("no damage"), std::string::npos) << verified.out;
  EXPECT_NE(Run("verify -o json Logs.dat.gz").out.find("\"damaged\":true"), std::string::npos);
}

TEST_F(NamedFiles, MoreThanAnyLogHoldsIsRefused) {
  ASSERT_EQ(Shell("head -c 600000000 /dev/zero | gzip -1 > bomb.gz"), 0);
  for (const std::string verb : {"show", "verify"}) {
    const auto outcome = Run(verb + " bomb.gz");
    EXPECT_EQ(outcome.exitCode, 9) << verb;
    EXPECT_EQ(outcome.out, "") << verb;
    EXPECT_NE(outcome.err.find("bomb.gz is not a log (it has more than 560000240 bytes when decompressed"),
              std::string::npos)
        << outcome.err;
  }
}

TEST_F(NamedFiles, EndlessInputIsRefusedInItsOwnWords) {
  const auto outcome = TestSupport::RunIn(folder.Path(), "'" TAMLOGCTL "' show - < /dev/zero");
  EXPECT_EQ(outcome.exitCode, 9);
  EXPECT_NE(outcome.err.find("is not a log (it has more than 560000240 bytes, more than any log)"),
            std::string::npos)
      << outcome.err;
}

TEST_F(NamedFiles, DevicesAreCalledDevices) {
  for (const std::string verb : {"show", "verify", "stats", "merge"}) {
    const auto outcome = Run(verb + " /dev/null");
    EXPECT_EQ(outcome.exitCode, 3) << verb;
    EXPECT_NE(outcome.err.find("/dev/null: is a device"), std::string::npos) << outcome.err;
  }
}

TEST_F(NamedFiles, BytesAfterCompressedDataAreReportedAndTheLogIsRead) {
  TestSupport::WriteBytes(folder.File("Logs.dat.gz"), Contents("Logs.dat.gz") + "garbage");
  const auto outcome = Run("show -o cat Logs.dat.gz");
  EXPECT_EQ(outcome.exitCode, 7);
  EXPECT_EQ(outcome.out, all);
  EXPECT_NE(outcome.err.find("Logs.dat.gz: the gzip data are damaged"), std::string::npos) << outcome.err;
}

TEST_F(NamedFiles, LogThatOnlyLooksCompressedIsReadAsItIs) {
  std::string bytes = Contents("Logs.dat");
  bytes.replace(0, 4, "\x1F\x8B\x08", 4);  // 559,903 readers
  TestSupport::WriteBytes(folder.File("Logs.dat"), bytes);
  EXPECT_EQ(Run("show -o cat Logs.dat").out, all);
}

TEST_F(NamedFiles, NothingStaysInTheDirectoryForTemporaryFiles) {
  EXPECT_EQ(Shell("mkdir tmp && TMPDIR=$PWD/tmp '" TAMLOGCTL "' show Logs.dat.gz > out.txt && rmdir tmp"), 0);
  const auto outcome = TestSupport::RunIn(folder.Path(), "TMPDIR=$PWD/none '" TAMLOGCTL "' show Logs.dat.gz");
  EXPECT_EQ(outcome.exitCode, 8);
  EXPECT_NE(outcome.err.find("no temporary file for Logs.dat.gz: No such file or directory"),
            std::string::npos)
      << outcome.err;
}

}  // namespace
