// Tests of reading logs of other programs.

#include <gtest/gtest.h>

#include <chrono>

#include "client/message/time_zone.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/server/stamp_text.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"
#include "tests/tamlogctl/server/imported.h"

namespace {

using TamLogClient::TimeWords;
using TamLogCtl::ImportChoice;
using TamLogTest::Imported;

std::string TimeText(const LogMessageBody& body) {
  std::string text;
  TamLogClient::AppendTime(TamLogClient::WordsOf(body), ' ', text);
  return text;
}

// "TIME TYPE SOURCE: TEXT" of a message.
std::string Shown(const LogMessageBody& body) {
  return TimeText(body) + " " + std::to_string(body.type) + " " + body.source + ": " + body.text;
}

std::string LocalText(const TimeWords& utc) {
  std::string text;
  TamLogClient::AppendTime(TamLogCtl::LocalTimeAt(TamLogClient::MillisecondsSince1970(utc, 0)), ' ', text);
  return text;
}

class ForeignLogs : public testing::Test {
 protected:
  ForeignLogs() { choice.year = 2026; }

  Imported Read(const std::string& name, const std::string& bytes) {
    TestSupport::WriteBytes(folder.File(name), bytes);
    return TamLogTest::ReadAll(folder.File(name), choice);
  }
  std::vector<std::string> Lines(const std::string& name, const std::string& bytes) {
    const Imported source = Read(name, bytes);
    EXPECT_EQ(source.exitCode, 0) << (source.problems.empty() ? "" : source.problems.front());
    std::vector<std::string> lines;
    for (const LogMessageBody& body : source.messages) lines.push_back(Shown(body));
    return lines;
  }

  TestSupport::TempDir folder;
  ImportChoice choice;
};

using Expected = std::vector<std::string>;

TEST_F(ForeignLogs, LinesWithAnIsoTimeHaveTheFilesNameAsTheirSource) {
  EXPECT_EQ(Lines("dpkg.log",
                  "2026-01-02 03:04:05 startup archives unpack\n2026-01-02 03:04:06 install a:amd64 1.0\r\n"),
            (Expected{"2026-01-02 03:04:05.000 0 dpkg: startup archives unpack",
                      "2026-01-02 03:04:06.000 0 dpkg: install a:amd64 1.0"}));
  choice.source = "Packages";
  choice.type = 2;
  EXPECT_EQ(Lines("dpkg.log", "2026-01-02 03:04:05 x\n"),
            (Expected{"2026-01-02 03:04:05.000 2 Packages: x"}));
}

TEST_F(ForeignLogs, NameOfACompressedFileIsThatOfTheLog) {
  EXPECT_EQ(Lines("dpkg.log.gz", "2026-01-02 03:04:05 x\n"), (Expected{"2026-01-02 03:04:05.000 0 dpkg: x"}));
}

TEST_F(ForeignLogs, RotatedFilesHaveTheSourceOfTheirLog) {
  for (const char* const name : {"dpkg.log.1", "dpkg.log.12.gz"})
    EXPECT_EQ(Lines(name, "2026-01-02 03:04:05 x\n"), (Expected{"2026-01-02 03:04:05.000 0 dpkg: x"}))
        << name;
  EXPECT_EQ(Lines("syslog.1", "2026-01-02 03:04:05 x\n"), (Expected{"2026-01-02 03:04:05.000 0 syslog: x"}));
  EXPECT_EQ(Lines("table.csv.1", "time,text\n2026-01-02 03:04:05,x\n"),
            (Expected{"2026-01-02 03:04:05.000 0 table: x"}));
}

TEST_F(ForeignLogs, TimesWithTheNamesOfDayAndMonth) {
  EXPECT_EQ(
      Lines(
          "dmesg.txt",
          "[Fri Jan  2 03:04:05 2026] usb 1-1: new device\n[Sat Jan 03 03:04:05.678901 2026] [core:error] x\n"
          "Fri Jan 16 03:04:05 2026 y\n"),
      (Expected{"2026-01-02 03:04:05.000 0 dmesg: usb 1-1: new device",
                "2026-01-03 03:04:05.678 0 dmesg: [core:error] x", "2026-01-16 03:04:05.000 0 dmesg: y"}));
  for (const char* const line :
       {"Fri Jan  2 03:04:05 x", "[Fri Jan  2 03:04:05 2026 x", "Fry Jan  2 03:04:05 2026",
        "Fri Jan 32 03:04:05 2026", "Fri ", "[", "[Fri Jan "})
    EXPECT_EQ(Read("app.log", line).exitCode, TamLogCtl::kUsage) << line;
}

// As the server's own log of failures has it.
TEST_F(ForeignLogs, TimeOnALineOfItsOwnIsThatOfTheNextLine) {
  const Imported source =
      Read("Failures.txt", "Fri Jan  2 03:04:05 2026\n - first\nmore\nFri Jan  2 03:04:06 2026\n - second\n");
  ASSERT_EQ(source.messages.size(), 3U);
  EXPECT_EQ(Shown(source.messages[0]), "2026-01-02 03:04:05.000 0 Failures: - first");
  EXPECT_EQ(Shown(source.messages[1]), "2026-01-02 03:04:05.000 0 Failures: more");
  EXPECT_EQ(Shown(source.messages[2]), "2026-01-02 03:04:06.000 0 Failures: - second");
  EXPECT_EQ(source.continued, 1U);
}

TEST_F(ForeignLogs, FieldsAndLevelsAreNoNamesOfMachines) {
  choice.keepZone = true;
  EXPECT_EQ(Lines("app.log",
                  "2026-01-02T03:04:05Z level=info msg=\"a: b\"\n2026-01-02T03:04:05Z ERROR Door: open\n"
                  "2026-01-02T03:04:05Z [main] Door: open\n2026-01-02T03:04:05Z east \"a\": b\n"
                  "2026-01-02T03:04:05Z east.example.org door[7]: open\n"),
            (Expected{"2026-01-02 03:04:05.000 0 app: level=info msg=\"a: b\"",
                      "2026-01-02 03:04:05.000 0 app: ERROR Door: open",
                      "2026-01-02 03:04:05.000 0 app: [main] Door: open",
                      "2026-01-02 03:04:05.000 0 app: east \"a\": b",
                      "2026-01-02 03:04:05.000 0 east.example.org/door[7]: open"}));
}

// Two backups of one log.
TEST_F(ForeignLogs, MessagesOfOverlappingFilesCountOnce) {
  const std::string same = "2026-01-02 03:04:05 a\n2026-01-02 03:04:05 a\n2026-01-02 03:04:06 b\n";
  TestSupport::WriteBytes(folder.File("old.txt"), same);
  TestSupport::WriteBytes(folder.File("new.txt"), same + "2026-01-02 03:04:05 a\n2026-01-02 03:04:07 c\n");
  choice.source = "Source";
  const auto texts = [this] {
    TamLogCtl::MessageSpool messages;
    EXPECT_EQ(ReadImports({folder.File("old.txt"), folder.File("new.txt")}, choice, messages), 0);
    std::string all;
    for (std::size_t i = 0; i < messages.Size(); ++i) all += messages.At(i).text;
    return all;
  };
  EXPECT_EQ(texts(), "aaaaabbc");
  choice.once = true;
  EXPECT_EQ(texts(), "aaabc");
}

TEST_F(ForeignLogs, FormsOfIsoTimes) {
  for (const char* const line :
       {"2026-01-02 03:04:05.678 x", "2026-01-02T03:04:05,678 x", "[2026-01-02 03:04:05.678] x",
        "2026/01/02 03:04:05.678999 x", "2026.01.02 03:04:05.678: x", "2026-01-02 03:04:05.678\tx"}) {
    const Imported source = Read("app.log", line);
    ASSERT_EQ(source.messages.size(), 1U) << line;
    EXPECT_EQ(TimeText(source.messages[0]), "2026-01-02 03:04:05.678") << line;
  }
  for (const char* const line :
       {"2026-13-02 03:04:05 x", "2026-02-30 03:04:05 x", "2026-01-02 03:04:5 x", "2026-01-02 03:04:05.x",
        "2026-01/02 03:04:05 x", "x y z 2026-01-02 03:04:05"}) {
    EXPECT_EQ(Read("app.log", line).exitCode, TamLogCtl::kUsage) << line;
  }
}

TEST_F(ForeignLogs, TimeMayStandAfterAWord) {
  EXPECT_EQ(Lines("alternatives.log",
                  "update-alternatives 2026-01-02 03:04:05: link group\n"
                  "[INFO] main 2026-01-02 03:04:06 ready\n"
                  "Start-Date: 2026-01-02  03:04:07\nCommandline: apt install x\n"),
            (Expected{"2026-01-02 03:04:05.000 0 alternatives: update-alternatives link group",
                      "2026-01-02 03:04:06.000 0 alternatives: [INFO] main ready",
                      "2026-01-02 03:04:07.000 0 alternatives: Start-Date:",
                      "2026-01-02 03:04:07.000 0 alternatives: Commandline: apt install x"}));
}

TEST_F(ForeignLogs, TimeWithAZoneBecomesLocalTime) {
  const std::string local = LocalText({2026, 7, 2, 3, 4, 5, 678, 0});
  for (const char* const line :
       {"2026-07-02T03:04:05.678Z x", "2026-07-02 05:04:05.678+02:00 x", "2026-07-01 22:04:05.678 -0500 x"}) {
    const Imported source = Read("app.log", line);
    ASSERT_EQ(source.messages.size(), 1U) << line;
    EXPECT_EQ(TimeText(source.messages[0]), local) << line;
    EXPECT_STREQ(source.messages[0].text, "x") << line;
  }
  choice.keepZone = true;
  EXPECT_EQ(TimeText(Read("app.log", "2026-07-02 05:04:05.678+02:00 x").messages.at(0)),
            "2026-07-02 05:04:05.678");
}

TEST_F(ForeignLogs, NumberAtTheBeginningOfATextIsNoZone) {
  EXPECT_EQ(Lines("app.log", "2026-07-02 05:04:05 -12 degrees\n2026-07-02 05:04:06 +5 V\n"),
            (Expected{"2026-07-02 05:04:05.000 0 app: -12 degrees", "2026-07-02 05:04:06.000 0 app: +5 V"}));
}

TEST_F(ForeignLogs, LinesOfShortAndFullKeepTypeAndSource) {
  EXPECT_EQ(
      Lines("saved.txt",
            "2026-01-02 03:04:05.678 T2 Camera: a: b\n2026-01-02 03:04:06.000 T3 east/Door (late): late\n"
            "2026-01-02 03:04:07.000+05:30 T0 : \n2026-01-02 03:04:08.000 #47 T1 A: B "
            "[origin=0102030405060708 spare=-9 tail=0a0b0c0d] (late): x [y]: z\n"),
      (Expected{"2026-01-02 03:04:05.678 2 Camera: a: b", "2026-01-02 03:04:06.000 3 east/Door: late",
                "2026-01-02 03:04:07.000 0 : ", "2026-01-02 03:04:08.000 1 A: B: x [y]: z"}));
  const LogMessageBody body = Read("saved.txt",
                                   "2026-01-02 03:04:08.000 #47 T1 A [origin=0102030405060708 spare=-9 "
                                   "tail=0a0b0c0d]: x\n")
                                  .messages.at(0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body.origin), 8), "\1\2\3\4\5\6\7\10");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body.tail), 4), "\n\v\f\r");
  EXPECT_EQ(TamLogClient::WordsOf(body)[7], -9);
}

TEST_F(ForeignLogs, NamesOfTypesThatShortPrintedAreReadWithTheSameOption) {
  std::string problem;
  choice.typeNames = *TamLogClient::TypeNames::Parse("1=warn,3=err", problem);
  EXPECT_EQ(
      Lines("saved.txt", "2026-01-02 03:04:05.678 err Camera: x\n2026-01-02 03:04:05.678 T2 Camera: x\n"),
      (Expected{"2026-01-02 03:04:05.678 3 Camera: x", "2026-01-02 03:04:05.678 2 Camera: x"}));
}

TEST_F(ForeignLogs, LinesOfOthersThatLookLikeShortAreTheirText) {
  EXPECT_EQ(
      Lines("app.log",
            "2026-01-02 03:04:05.678 T4 Camera: x\n2026-01-02 03:04:05 T2 Camera: x\n"
            "2026-01-02 03:04:05.678 T2 Camera\n2026-01-02 03:04:05.678 #7 T2 Camera: x\n"),
      (Expected{"2026-01-02 03:04:05.678 0 app: T4 Camera: x", "2026-01-02 03:04:05.000 0 app: T2 Camera: x",
                "2026-01-02 03:04:05.678 0 app: T2 Camera",
                "2026-01-02 03:04:05.678 0 app: #7 T2 Camera: x"}));
}

TEST_F(ForeignLogs, SyslogOfRfc3164) {
  EXPECT_EQ(Lines("syslog",
                  "Jan  2 03:04:05 east sshd[812]: Accepted key\nDec 31 23:59:59 east kernel: [1.5] up\n"
                  "<11>Feb 28 00:00:00 east cron: failed\nMar 10 01:02:03 east no tag here\n"),
            (Expected{"2026-01-02 03:04:05.000 0 east/sshd[812]: Accepted key",
                      "2026-12-31 23:59:59.000 0 east/kernel: [1.5] up",
                      "2026-02-28 00:00:00.000 0 east/cron: failed",
                      "2026-03-10 01:02:03.000 0 syslog: east no tag here"}));
  choice.dropHost = true;
  EXPECT_EQ(Lines("syslog", "Jan  2 03:04:05 east sshd[812]: x\n"),
            (Expected{"2026-01-02 03:04:05.000 0 sshd[812]: x"}));
}

TEST_F(ForeignLogs, YearIsTheLatestThatIsNotInTheFuture) {
  const TimeWords newest{2026, 1, 10, 12, 0, 0, 0, 0};
  const auto yearOf = [&newest](std::string_view line) {
    const auto stamp = TamLogCtl::TakeSyslogStamp(line, newest);
    return stamp ? int{stamp->words[0]} : 0;
  };
  EXPECT_EQ(yearOf("Jan 10 11:00:00 x"), 2026);
  EXPECT_EQ(yearOf("Jan 11 11:00:00 x"), 2026);  // a clock that is ahead
  EXPECT_EQ(yearOf("Jan 12 11:00:00 x"), 2025);
  EXPECT_EQ(yearOf("Dec 31 23:59:59 x"), 2025);
  EXPECT_EQ(yearOf("Feb 29 00:00:00 x"), 2024);
  EXPECT_EQ(yearOf("Feb 30 00:00:00 x"), 0);
  EXPECT_EQ(yearOf("anFeb 1 00:00:00 x"), 0);
}

TEST_F(ForeignLogs, WithoutAYearThatOfTheFilesLastChangeCounts) {
  choice.year.reset();
  TestSupport::WriteBytes(folder.File("old.log"), "Jun 15 10:00:00 east a: x\n");
  const auto then = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 365 * 5);
  std::filesystem::last_write_time(folder.File("old.log"), then);
  const Imported old = TamLogTest::ReadAll(folder.File("old.log"), choice);
  const Imported fresh = Read("new.log", "Jun 15 10:00:00 east a: x\n");
  ASSERT_EQ(old.messages.size(), 1U);
  ASSERT_EQ(fresh.messages.size(), 1U);
  EXPECT_EQ(fresh.messages[0].timestamp[0] - old.messages[0].timestamp[0], 5);
}

TEST_F(ForeignLogs, SyslogOfRfc5424KeepsEverythingInSourceAndText) {
  choice.keepZone = true;
  EXPECT_EQ(Lines("syslog",
                  "<34>1 2026-10-11T22:14:15.003Z east su - ID47 - \xEF\xBB\xBF'su root' failed\n"
                  "<165>1 2026-10-11T22:14:16Z - app 812 - [a@1 x=\"q\\\"]\"][b@2] text\n"
                  "<165>1 2026-10-11T22:14:17Z - - - - -\n"),
            (Expected{"2026-10-11 22:14:15.003 0 east/su: ID47 'su root' failed",
                      "2026-10-11 22:14:16.000 0 app[812]: [a@1 x=\"q\\\"]\"][b@2] text",
                      "2026-10-11 22:14:17.000 0 syslog: "}));
}

TEST_F(ForeignLogs, FilesOfRsyslogWithIsoTimes) {
  choice.keepZone = true;
  EXPECT_EQ(Lines("syslog", "2026-10-11T22:14:15.003123+02:00 east systemd[1]: Started.\n"),
            (Expected{"2026-10-11 22:14:15.003 0 east/systemd[1]: Started."}));
}

TEST_F(ForeignLogs, SeverityChoosesTheTypeOfThatName) {
  std::string problem;
  choice.typeNames = *TamLogClient::TypeNames::Parse("1=info,2=warning,3=err", problem);
  const auto typeOf = [this](const std::string& line) { return Read("syslog", line).messages.at(0).type; };
  EXPECT_EQ(typeOf("<11>Feb 28 00:00:00 east cron: x"), 3U);
  EXPECT_EQ(typeOf("<12>Feb 28 00:00:00 east cron: x"), 2U);
  EXPECT_EQ(typeOf("<14>1 2026-10-11T22:14:15Z - - - - - x"), 1U);
  EXPECT_EQ(typeOf("<15>1 2026-10-11T22:14:15Z - - - - - x"), 0U);
}

TEST_F(ForeignLogs, LineWithoutATimeBelongsToTheOneBefore) {
  const Imported source = Read("app.log",
                               "banner\n2026-01-02 03:04:05 failed\n  at main.cpp:7\n\n"
                               "2026-01-02 03:04:06 next\n");
  ASSERT_EQ(source.messages.size(), 4U);
  EXPECT_EQ(source.exitCode, 0);
  EXPECT_EQ(source.continued, 2U);
  EXPECT_EQ(source.firstContinued, 1U);
  EXPECT_EQ(Shown(source.messages[0]), "2026-01-02 03:04:05.000 0 app: banner");
  EXPECT_EQ(Shown(source.messages[2]), "2026-01-02 03:04:05.000 0 app:   at main.cpp:7");
}

TEST_F(ForeignLogs, LongLineBecomesSeveralMessagesAndLosesNothing) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "word" + std::to_string(i) + " ";
  std::string joined;
  for (const LogMessageBody& body : Read("app.log", "2026-01-02 03:04:05 " + text + "\n").messages) {
    std::string piece = body.text;
    if (piece.starts_with("...")) piece.erase(0, 3);
    if (piece.ends_with("...")) piece.resize(piece.size() - 3);
    joined += piece;
  }
  EXPECT_EQ(joined, text);
}

TEST_F(ForeignLogs, CsvOfOtherPrograms) {
  EXPECT_EQ(
      Lines("a.csv",
            "\xEF\xBB\xBFTimestamp;Level;Logger;Message\r\n2026-01-02 03:04:05;WARN;Stage;\"a;b\r\nc\"\r\n"),
      (Expected{"2026-01-02 03:04:05.000 0 Stage: a;b\r\nc Level=WARN"}));
  EXPECT_EQ(Lines("a.txt", "time,text\n2026-01-02 03:04:05,x\n"),
            (Expected{"2026-01-02 03:04:05.000 0 a: x"}));
  std::string problem;
  choice.fields = *TamLogClient::ParseFields("text,time", problem);
  for (const char* const name : {"a.csv", "a.txt"})
    EXPECT_EQ(Lines(name, "x,2026-01-02 03:04:05\n"), (Expected{"2026-01-02 03:04:05.000 0 a: x"})) << name;
  for (const char* const name : {"a.tsv", "a.txt"})
    EXPECT_EQ(Lines(name, "x\t2026-01-02 03:04:05\n"), (Expected{"2026-01-02 03:04:05.000 0 a: x"})) << name;
  choice.fields.clear();
  EXPECT_EQ(Read("a.tsv", "2026-01-02 03:04:05\tx\n").problems.at(0),
            "line 1: expected four columns with tabs between them: time, type, source, text; --fields names "
            "others");
}

TEST_F(ForeignLogs, JournalExport) {
  const std::int64_t moment = TamLogClient::MillisecondsSince1970({2026, 7, 2, 3, 4, 5, 678, 0}, 0);
  const std::string binary = std::string("MESSAGE\n\x03\0\0\0\0\0\0\0a\nb\n", 20);
  EXPECT_EQ(Lines("journal", "__REALTIME_TIMESTAMP=" + std::to_string(moment * 1000) +
                                 "\n_HOSTNAME=east\nSYSLOG_IDENTIFIER=sshd\n_PID=812\n" + binary + "\n\n"),
            (Expected{LocalText({2026, 7, 2, 3, 4, 5, 678, 0}) + " 0 east/sshd[812]: a\nb"}));
  const Imported broken =
      Read("journal", "__REALTIME_TIMESTAMP=1\nMESSAGE=x\n\n__REALTIME_TIMESTAMP=2\nMESSAGE\n\xFF\xFF\xFF");
  EXPECT_EQ(broken.exitCode, TamLogCtl::kUsage);
  EXPECT_EQ(broken.messages.size(), 1U);
  ASSERT_EQ(broken.problems.size(), 1U);
  EXPECT_EQ(broken.problems[0], "line 5: neither NAME=VALUE nor a name with a length and a value");
}

TEST_F(ForeignLogs, ALineThatCannotBeReadIsNamedAndTheOthersAreKept) {
  const std::string bytes =
      "time,type,text\n2026-01-02 03:04:05,1,\"two\nlines\"\nyesterday,1,x\n"
      "2026-01-02 03:04:06,7,x\n2026-01-02 03:04:07,1\n2026-01-02 03:04:08,1,y\n";
  const Imported source = Read("a.csv", bytes);
  EXPECT_EQ(source.exitCode, TamLogCtl::kUsage);
  EXPECT_EQ(source.problems,
            (Expected{"line 4: column time: the time is not of the form YYYY-MM-DD HH:MM:SS.mmm",
                      "line 5: column type: the type is not a number from 0 to 3",
                      "line 6: expected 3 columns, found 2"}));
  EXPECT_EQ(source.messages.size(), 2U);
  choice.skip = true;
  EXPECT_EQ(Read("a.csv", bytes).exitCode, TamLogCtl::kNegative);
}

// As an export of chosen fields writes them.
TEST_F(ForeignLogs, JsonWithoutTypeOrSourceHasThoseOfTheOptions) {
  const std::string json =
      "{\"time\":\"2026-01-02T03:04:05.000\",\"text\":\"x\"}\n"
      "{\"time\":\"2026-01-02T03:04:06.000\",\"source\":\"Stage\",\"text\":\"y\"}\n";
  EXPECT_EQ(Lines("day.json", json),
            (Expected{"2026-01-02 03:04:05.000 0 day: x", "2026-01-02 03:04:06.000 0 Stage: y"}));
  choice.source = "Given";
  choice.type = 3;
  EXPECT_EQ(Lines("day.json", json),
            (Expected{"2026-01-02 03:04:05.000 3 Given: x", "2026-01-02 03:04:06.000 3 Stage: y"}));
  const std::string begin = "{\"time\":\"2026-01-02T03:04:05.000\",";
  for (const char* const rest :
       {"\"type\":4,\"text\":\"x\"}", "\"type\":\"1\",\"text\":\"x\"}", "\"source\":5,\"text\":\"x\"}",
        "\"source_hex\":\"0\",\"text\":\"x\"}", "\"source\":\"x\"}"})
    EXPECT_EQ(Read("bad.json", begin + rest + "\n").exitCode, TamLogCtl::kUsage) << rest;
}

TEST_F(ForeignLogs, TimeWordsOfJsonThatAreTooLargeAreRefused) {
  const auto line = [](const std::string& words) {
    return "{\"time\":null,\"time_words\":[" + words + "],\"type\":1,\"source\":\"a\",\"text\":\"b\"}\n";
  };
  EXPECT_EQ(Read("a.json", line("2026,13,40,25,0,0,0,-32768")).exitCode, 0);
  for (const char* const words : {"67562,1,1,0,0,0,0,0", "2026,1,1,0,0,0,0,32768", "-32769,1,1,0,0,0,0",
                                  "2026,1,1,0,0,0,18446744073709551615", "2026,1,1,0,0,0,9223372036854775808",
                                  "2026,1,1,0,0,0", "2026,1,1,0,0,0,0,0,0", "2026,1.5,1,0,0,0,0"}) {
    const Imported source = Read("a.json", line(words));
    EXPECT_EQ(source.exitCode, TamLogCtl::kUsage) << words;
    ASSERT_EQ(source.problems.size(), 1U) << words;
    EXPECT_EQ(source.problems[0], "line 1: expected 7 or 8 numbers from -32768 to 32767 in \"time_words\"")
        << words;
  }
}

// Whatever a file has, it is read in time linear in its length, and every line is counted once.
TEST_F(ForeignLogs, AnyBytesAreReadOrNamed) {
  const std::string pieces[] = {"2026-01-02 03:04:05 ",
                                "<14>1 ",
                                "[",
                                "]",
                                "\"",
                                "=",
                                "\\",
                                "Jan  2 03:04:05 ",
                                "\n",
                                "\t",
                                ",",
                                "-",
                                "{",
                                "}",
                                "a",
                                " ",
                                "\xFF",
                                "__REALTIME_TIMESTAMP=1\n"};
  std::uint32_t state = 1;
  for (int round = 0; round < 150; ++round) {
    std::string bytes;
    for (int i = 0; i < 30; ++i) {
      state = state * 1664525U + 1013904223U;
      bytes += pieces[(state >> 16U) % std::size(pieces)];
    }
    for (const char* const format : {"auto", "json", "csv", "tsv", "export", "text"}) {
      choice.format = format;
      const Imported source = Read("any", bytes);
      EXPECT_EQ(source.exitCode == 0, source.unreadable == 0) << bytes;
    }
  }
}

}  // namespace
