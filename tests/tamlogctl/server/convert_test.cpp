// Runs the program itself on logs of others and on what it has printed, without a server.

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/temp_dir.h"

namespace {

using TestSupport::Outcome;

class ConvertCommand : public testing::Test {
 protected:
  void Put(const std::string& name, const std::string& bytes) const {
    TestSupport::WriteBytes(folder.File(name), bytes);
  }
  bool Exists(const std::string& name) const { return !TestSupport::ReadBytes(folder.File(name)).empty(); }

  // Runs a shell line in which $T is the program.
  Outcome Shell(const std::string& line) const {
    return TestSupport::RunIn(folder.Path(), "T='" TAMLOGCTL "'; " + line);
  }
  // Converts by a shell line; returns what is printed of the new log New.dat.
  std::string Converted(const std::string& line) const {
    const Outcome outcome = Shell(line);
    EXPECT_EQ(outcome.exitCode, 0) << line << "\n" << outcome.err;
    return Shell("$T show New.dat").out;
  }

  TestSupport::TempDir folder;
};

constexpr const char* kLines = "2026-01-02 03:04:05 first\n2026-01-02 03:04:06 second\n";

TEST_F(ConvertCommand, StandardInputIsReadAndIsTheSource) {
  Put("app.log", kLines);
  EXPECT_EQ(Converted("cat app.log | $T convert - New.dat"),
            "2026-01-02 03:04:05.000 T0 stdin: first\n2026-01-02 03:04:06.000 T0 stdin: second\n");
  EXPECT_EQ(Converted("$T convert --force -s App - New.dat < app.log"),
            "2026-01-02 03:04:05.000 T0 App: first\n2026-01-02 03:04:06.000 T0 App: second\n");
}

TEST_F(ConvertCommand, CompressedTextIsRead) {
  Put("app.log", kLines);
  EXPECT_EQ(Converted("gzip -n app.log && $T convert app.log.gz New.dat"),
            "2026-01-02 03:04:05.000 T0 app: first\n2026-01-02 03:04:06.000 T0 app: second\n");
}

TEST_F(ConvertCommand, NamesOfEveryFormatThatIsPrintedAreAcceptedBack) {
  Put("app.log", kLines);
  const std::string all = Converted("$T convert -s 'A: [x]' -t 3 app.log New.dat");
  for (const std::string format :
       {"json", "ndjson", "json-array", "csv", "tsv", "export", "rfc5424", "raw"}) {
    EXPECT_EQ(Converted("$T show -o " + format + " New.dat > saved && $T convert --force --input " + format +
                        " saved New.dat"),
              all)
        << format;
  }
}

TEST_F(ConvertCommand, LinesForPeopleAreReadBack) {
  Put("app.log", kLines);
  const std::string all = Converted("$T convert -s Camera -t 3 app.log New.dat");
  for (const std::string format : {"short", "full"}) {
    EXPECT_EQ(
        Converted("$T show -o " + format + " New.dat > saved.txt && $T convert --force saved.txt New.dat"),
        all)
        << format;
  }
}

// The shell expands the name of the new log away where it is forgotten: convert --force *.log
TEST_F(ConvertCommand, FileThatIsReadIsNeverReplaced) {
  Put("app.log", kLines);
  Put("other.log", kLines);
  const Outcome outcome = Shell("$T convert --force *.log ./app.log");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_NE(outcome.err.find("./app.log: is a file to read as well"), std::string::npos) << outcome.err;
  EXPECT_EQ(TestSupport::ReadBytes(folder.File("app.log")), kLines);
}

TEST_F(ConvertCommand, VerbsOfLogsNameItForText) {
  Put("app.log", kLines);
  const Outcome outcome = Shell("$T show app.log");
  EXPECT_EQ(outcome.exitCode, 9);
  EXPECT_NE(outcome.err.find("app.log is not a log (it begins like text); tamlogctl convert makes one"),
            std::string::npos)
      << outcome.err;
}

TEST_F(ConvertCommand, TimesThatNoMessageCanHoldAreRefusedAndNothingIsWritten) {
  Put("day.json",
      "{\"time_words\":[2026,1,2,3,4,5,0],\"text\":\"good\"}\n{\"time_words\":[67562,1,2,3,4,5,0],\"text\":"
      "\"bad\"}\n");
  const Outcome outcome = Shell("$T convert day.json New.dat");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_NE(outcome.err.find("day.json: line 2: expected 7 or 8 numbers from -32768 to 32767"),
            std::string::npos)
      << outcome.err;
  EXPECT_FALSE(Exists("New.dat"));
  EXPECT_EQ(Shell("$T convert --skip day.json New.dat").exitCode, 1);
  EXPECT_EQ(Shell("$T show -o cat New.dat").out, "good\n");
}

}  // namespace
