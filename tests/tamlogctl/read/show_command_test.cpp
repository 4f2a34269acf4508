// Runs the program itself on copied logs, and checks its exit code and output.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "client/message/hex.h"
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/ring_model.h"
#include "tests/support/sparse_file.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"

namespace {

using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using TestSupport::Outcome;

class ShowCommand : public testing::Test {
 protected:
  ShowCommand() {
    for (int i = 0; i < 6; ++i) Submit(i);
    log.Flush();
    Save();
  }

  // Message i: second i, of the sources Even and Odd in turn.
  void Submit(int i) {
    log.Submit(MakeBody(i * 1000, "message " + std::to_string(i), i % 2 == 0 ? "Even" : "Odd",
                        static_cast<std::uint32_t>(i % 4)));
  }

  void Save(const std::string& name = "Logs.dat", std::size_t cut = 0) const {
    const std::string bytes = log.FileBytes();
    Put(name, bytes.substr(0, bytes.size() - cut));
  }

  void Put(const std::string& name, const std::string& contents) const {
    TestSupport::WriteBytes(folder.File(name), contents);
  }

  std::vector<std::string> Lines(const std::string& arguments) const {
    std::istringstream output(Run(arguments).out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);) lines.push_back(line);
    return lines;
  }
  std::string Contents(const std::string& name) const { return TestSupport::ReadBytes(folder.File(name)); }

  Outcome Run(const std::string& arguments) const {
    return TestSupport::RunIn(folder.Path(), "TZ=UTC-2 '" TAMLOGCTL "' " + arguments);
  }

  // show -o cat of the saved log; the numbers of the messages, and other lines unchanged.
  std::string Show(const std::string& arguments) const {
    std::istringstream lines(Run("show -o cat --file Logs.dat " + arguments).out);
    std::string numbers;
    for (std::string line; std::getline(lines, line);) {
      numbers += line.rfind("message ", 0) == 0 ? line.substr(8) : line;
    }
    return numbers;
  }

  // Runs the program on a terminal of its own; all that appears there.
  std::string RunOnTerminal(const std::string& arguments, const std::string& environment) const {
    return TestSupport::Terminal(folder.Path(), environment + " '" TAMLOGCTL "' " + arguments).ReadAll();
  }

  TestSupport::TempDir folder;
  RingModel log{8};
};

TEST_F(ShowCommand, ChoosesByTextTypeSourceAndTime) {
  EXPECT_EQ(Show(""), "012345");
  EXPECT_EQ(Show("-n 2"), "45");
  EXPECT_EQ(Show("-n 0"), "");
  EXPECT_EQ(Show("-n all -r"), "543210");
  EXPECT_EQ(Show("-g '[1-3]' -v 2"), "13");
  EXPECT_EQ(Show("-g 1 -g 4"), "14");
  EXPECT_EQ(Show("-v 1 -v 4"), "0235");
  EXPECT_EQ(Show("-F -g 'e 3'"), "3");
  EXPECT_EQ(Show("-g MESSAGE"), "");
  EXPECT_EQ(Show("-i -g MESSAGE -t 2-3"), "23");
  EXPECT_EQ(Show("-s even:0 -s odd"), "01345");
  EXPECT_EQ(Show("-x odd"), "024");
  EXPECT_EQ(Show("-S '2026-01-01 00:00:04'"), "45");
  EXPECT_EQ(Show("-S 2026-01-01T00:00:02.000 -U 2026-01-01T00:00:03.5"), "23");
  EXPECT_EQ(Show("-U 2025-12-31T22:00:01Z"), "01");  // two hours ahead of UTC
  EXPECT_EQ(Show("-S -1h"), "");
  EXPECT_EQ(Show("-S today"), "");
}

TEST_F(ShowCommand, FirstMessagesThatMatchAreChosenWithAPlus) {
  EXPECT_EQ(Show("-n +2"), "01");
  EXPECT_EQ(Show("-n +2 -r"), "10");
  EXPECT_EQ(Show("-n +1 -g '[3-5]'"), "3");
  EXPECT_EQ(Show("-n +0"), "");
  EXPECT_EQ(Show("-n +99"), "012345");
  EXPECT_EQ(Show("-n +1 -g '[25]' -C 1"), "123");
  EXPECT_EQ(Show("-n +1 -g '[2]' -A 9"), "2345");
  EXPECT_EQ(Show("-n +2 -g '[25]' -A 1 -r"), "5--32");
  EXPECT_EQ(Show("-n +2 --count -g '[1-4]'"), "2");
  EXPECT_EQ(Show("-n +3 --file Logs.dat"), "001");
  EXPECT_EQ(Run("show --file Logs.dat -n +1 -g nothing").exitCode, 1);
}

TEST_F(ShowCommand, FirstMessagesAreTheOldestInEveryVerb) {
  EXPECT_EQ(Run("export out.txt --file Logs.dat -o cat -n +2").exitCode, 0);
  EXPECT_EQ(Contents("out.txt"), "message 0\nmessage 1\n");
  const auto stats = Run("stats --file Logs.dat -n +3 -o json").out;
  EXPECT_NE(stats.find("\"newest\":\"2026-01-01T00:00:02.000\""), std::string::npos) << stats;
}

TEST_F(ShowCommand, FirstMessagesNeedAnEndAndNoCursorFile) {
  for (const std::string words :
       {"follow -n +1", "show -f -n +1", "show --file Logs.dat --cursor-file c -n +1",
        "show --file Logs.dat -n +", "show --file Logs.dat -n ++1", "show --file Logs.dat -n +all"}) {
    EXPECT_EQ(Run(words).exitCode, 2) << words;
  }
}

TEST_F(ShowCommand, MergeCountsReversesAndLimits) {
  const auto merge = [this](const std::string& arguments) {
    std::string numbers;
    std::istringstream lines(Run("merge -o cat Logs.dat Logs.dat " + arguments).out);
    for (std::string line; std::getline(lines, line);) numbers += line.substr(line.size() - 1);
    return numbers;
  };
  EXPECT_EQ(merge(""), "001122334455");
  EXPECT_EQ(merge("-r"), "554433221100");
  EXPECT_EQ(merge("-n 3"), "455");
  EXPECT_EQ(merge("-n 3 -r"), "554");
  EXPECT_EQ(merge("-n +3"), "001");
  EXPECT_EQ(merge("-n +3 -r -g '[2-4]'"), "322");
  EXPECT_EQ(merge("-n 0"), "");
  EXPECT_EQ(Run("merge Logs.dat Logs.dat --count -t 1").out, "4\n");
  EXPECT_EQ(Run("merge Logs.dat Logs.dat --count -t 1 -n 3 -o json").out, "{\"count\":3}\n");
  const auto none = Run("merge Logs.dat --count -g nothing");
  EXPECT_EQ(none.out, "0\n");
  EXPECT_EQ(none.exitCode, 1);
}

// Two logs of one machine, such as the one that a clear has saved and the present one.
TEST_F(ShowCommand, OneLabelNamesSeveralLogsOfAMachine) {
  Save("older.dat");
  const std::string labels = "merge -n +2 --label east=Logs.dat --label east=older.dat ";
  const auto lines = Lines(labels + "--offset east=+1h -o 'template={host} {time} {text}'");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], lines[1]);
  EXPECT_EQ(lines[0].substr(0, 5), "east ");
  EXPECT_NE(lines[0].find(" 01:00:00.000 message 0"), std::string::npos) << lines[0];
}

TEST_F(ShowCommand, ReportsAndMergedLogsGoThroughThePager) {
  Put("pager", "#!/bin/sh\nsed 's/^/paged: /'\n");
  std::filesystem::permissions(folder.File("pager"), std::filesystem::perms::owner_all);
  for (const std::string verb : {"merge Logs.dat", "stats Logs.dat", "verify Logs.dat Logs.dat"}) {
    const auto shown = RunOnTerminal(verb, "PAGER=./pager");
    EXPECT_EQ(shown.rfind("paged: ", 0), 0U) << verb << shown;
    EXPECT_EQ(RunOnTerminal(verb + " --no-pager", "PAGER=./pager").find("paged"), std::string::npos) << verb;
    EXPECT_EQ(Run(verb).out.find("paged"), std::string::npos);
  }
  EXPECT_EQ(RunOnTerminal("merge Logs.dat --count", "PAGER=./pager").find("paged"), std::string::npos);
}

TEST_F(ShowCommand, TypesAreGivenAsTheyArePrinted) {
  EXPECT_EQ(Show("-t T2"), "2");
  EXPECT_EQ(Show("-t t0,T3"), "034");
  EXPECT_EQ(Show("-t T1-T2"), "125");
  EXPECT_EQ(Show("-t 1-T2"), "125");
  EXPECT_EQ(Show("--type-names 0=info,3=err -t err"), "3");
  EXPECT_EQ(Show("--type-names 0=info,3=Err -t ERR,1"), "135");
  EXPECT_EQ(Show("--type-names 0=a-b,3=err -t a-b"), "04");
  EXPECT_EQ(Show("--type-names 0=info,3=err -t T3"), "3");
  for (const std::string list : {"T4", "err", "TT1", "T", "T1,", "T3-T1", "1,,2"}) {
    const auto outcome = Run("show Logs.dat -t " + list);
    EXPECT_EQ(outcome.exitCode, 2) << list;
    EXPECT_NE(outcome.err.find("-t '" + list + "': expected types from 0 to 3, T0 to T3, or their names"),
              std::string::npos)
        << outcome.err;
  }
}

TEST_F(ShowCommand, SeverityMeansThisOneAndWorse) {
  const std::string names = "--type-names 0=info,1=warn,2=fatal,3=err ";
  EXPECT_EQ(Show(names + "-p err"), "23");
  EXPECT_EQ(Show(names + "-p WARNING"), "1235");
  EXPECT_EQ(Show(names + "-p 4"), "1235");
  EXPECT_EQ(Show(names + "-p debug"), "012345");
  EXPECT_EQ(Show(names + "-p emerg"), "");
  EXPECT_EQ(Show(names + "-p warn -t 0,1"), "15");
  EXPECT_EQ(Show("--type-names 3=err -p info"),
            "012345");  // the others count as informational, as in rfc5424
  EXPECT_EQ(Show("--type-names 3=err -p notice"), "3");
  for (const std::string words :
       {"-p err", "--type-names 0=a -p err", "--type-names 3=err -p bad", "--type-names 3=err -p 8"}) {
    const auto outcome = Run("show Logs.dat " + words);
    EXPECT_EQ(outcome.exitCode, 2) << words;
    EXPECT_NE(outcome.err.find("-p '"), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(Run("merge --count Logs.dat " + names + "-p err").out, "2\n");
  EXPECT_NE(Run("stats -o json Logs.dat " + names + "-p err").out.find("\"messages\":2"), std::string::npos);
}

TEST_F(ShowCommand, StatsShowTypesOfEachSourceItsTimesGapsAndRates) {
  RingModel quiet(100);
  const auto add = [&quiet](int seconds, const char* source, std::uint32_t type) {
    quiet.Submit(MakeBody(seconds * 1000, "text", source, type));
  };
  for (int i = 0; i < 6; ++i) add(i, "Laser", i == 3 ? 1 : 0);
  add(6, "Camera", 3);
  add(3600, "Laser", 0);
  add(3600 + 600, "Camera", 3);
  quiet.Flush();
  Put("quiet.dat", quiet.FileBytes());
  EXPECT_EQ(
      Run("stats quiet.dat --type-names 3=err --bars").out,
      "ring         9 of 100 slots, 70.0 min deep (2026-01-01 00:00:00.000 to 2026-01-01 01:10:00.000)\n"
      "             about 13.0 h deep when it is full\n"
      "messages     9, 2026-01-01 00:00:00.000 to 2026-01-01 01:10:00.000 (70.0 min)\n"
      "rate         7.7 an hour on average, 3.0 a minute in the 3 minutes with messages, 7 in the busiest "
      "(2026-01-01 00:00)\n"
      "longest gaps 59.9 min from 2026-01-01 00:00:06.000 to 2026-01-01 01:00:00.000\n"
      "             10.0 min from 2026-01-01 01:00:00.000 to 2026-01-01 01:10:00.000\n"
      "\n"
      "by source      messages    share  T0  T1  err  first                last\n"
      "  Laser               7   77.8 %   6   1    0  2026-01-01 00:00:00  2026-01-01 01:00:00\n"
      "  Camera              2   22.2 %   0   0    2  2026-01-01 00:00:06  2026-01-01 01:10:00\n"
      "\n"
      "by type\n"
      "  T0           6   66.7 %  ##############################\n"
      "  T1           1   11.1 %  #####\n"
      "  err          2   22.2 %  ##########\n"
      "\n"
      "by minute\n"
      "  2026-01-01 00:00          7   77.8 %  ##############################\n"
      "  (nothing for 59.0 min)\n"
      "  2026-01-01 01:00          1   11.1 %  #####\n"
      "  (nothing for 9.0 min)\n"
      "  2026-01-01 01:10          1   11.1 %  #####\n");
  const auto json = Run("stats quiet.dat -o json").out;
  for (const char* const part :
       {"\"active_minutes\":3,\"busiest_minute\":{\"count\":7,\"minute\":\"2026-01-01T00:00\"}",
        "\"gaps\":[{\"from\":\"2026-01-01T00:00:06.000\",\"seconds\":3594.0,\"to\":\"2026-01-01T01:00:00."
        "000\"},",
        "{\"count\":2,\"newest\":\"2026-01-01T01:10:00.000\",\"oldest\":\"2026-01-01T00:00:06.000\","
        "\"source\":\"Camera\",\"types\":[0,0,0,2,0]}"}) {
    EXPECT_NE(json.find(part), std::string::npos) << part << "\n" << json;
  }
}

TEST_F(ShowCommand, StatsOfAFewSecondsSayNothingOfAMinute) {
  const auto out = Run("stats Logs.dat").out;
  EXPECT_NE(out.find("\nrate         1.2 a second on average\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("gaps"), std::string::npos) << out;
  const auto one = Run("stats Logs.dat -n 1").out;
  EXPECT_EQ(one.find("rate"), std::string::npos) << one;
}

TEST_F(ShowCommand, SourcesThatAreNotListedAreSummedUp) {
  const auto out = Run("stats Logs.dat --top 1").out;
  EXPECT_NE(
      out.find(
          "  Even                3   50.0 %   2   0   1   0  2026-01-01 00:00:00  2026-01-01 00:00:04\n"
          "  (1 other)           3   50.0 %   0   2   0   1  2026-01-01 00:00:01  2026-01-01 00:00:05\n"),
      std::string::npos)
      << out;
}

TEST_F(ShowCommand, RelativeTimesCountFromTheEndOfACopiedLogOnRequest) {
  EXPECT_EQ(Show("--relative-to end -S -2s"), "345");
  EXPECT_EQ(Show("--relative-to end -S 00:00:04"), "45");
  EXPECT_EQ(Show("--relative-to end -S '4 seconds ago' -U -2s"), "123");
  EXPECT_EQ(Show("--relative-to end -S today -U now"), "012345");
  EXPECT_EQ(Show("--relative-to now -S -2s"), "");
  // Later files decide where the end is.
  log.Submit(MakeBody(3600 * 1000, "message 6"));
  log.Flush();
  Save("Later.dat");
  EXPECT_EQ(Show("--file Later.dat --relative-to end -S -2s"), "6");
  EXPECT_EQ(Run("show --relative-to end").exitCode, 2);
  EXPECT_EQ(Run("follow --relative-to end").exitCode, 2);
}

TEST_F(ShowCommand, EveryVerbCountsFromTheEndOfItsLogs) {
  const std::string wanted = " --relative-to end -S -2s -o json";
  const auto messages = [](const std::string& json) { return std::count(json.begin(), json.end(), '{'); };
  EXPECT_EQ(messages(Run("merge Logs.dat" + wanted).out), 3);
  EXPECT_EQ(messages(Run("merge --label a=Logs.dat --label b=Logs.dat --offset b=+1s" + wanted).out), 2 + 3);
  EXPECT_NE(Run("stats --file Logs.dat" + wanted).out.find("\"messages\":3"), std::string::npos);
  EXPECT_EQ(Run("export out.json --file Logs.dat" + wanted).exitCode, 0);
  EXPECT_EQ(messages(Contents("out.json")), 3);
}

TEST_F(ShowCommand, EndOfALogIsThatOfItsMessagesWithRealTimes) {
  LogMessageBody body = MakeBody(0, "message 6");
  body.timestamp[1] = 13;
  log.Submit(body);
  log.Flush();
  Save();
  EXPECT_EQ(Show("--relative-to end -S -1s"), "456");  // month 13 comes after all others
  EXPECT_EQ(Show("--relative-to end -S -1s -U now"), "45");
}

TEST_F(ShowCommand, CountingFromTheEndIsSuggestedWhereItWouldHelp) {
  const std::string suggestion =
      "the log ends at 2026-01-01 00:00:05.000; to count '-2s' from there add --relative-to end";
  for (const std::string verb : {"show --file Logs.dat", "stats --file Logs.dat", "merge Logs.dat",
                                 "export out.json --file Logs.dat --force"}) {
    const auto outcome = Run(verb + " -S -2s");
    EXPECT_EQ(outcome.exitCode, 1) << verb;
    EXPECT_NE(outcome.err.find(suggestion), std::string::npos) << verb << outcome.err;
    EXPECT_EQ(Run(verb + " -S -2s -q").err, "") << verb;
    EXPECT_EQ(Run(verb + " -S -2s --relative-to end -s Nobody").err.find("--relative-to"), std::string::npos);
    const std::string absolute = Run(verb + " -S 2026-05-01").err;
    EXPECT_NE(absolute.find("the log ends at 2026-01-01 00:00:05.000, before -S '2026-05-01'\n"),
              std::string::npos)
        << verb << absolute;
    EXPECT_EQ(absolute.find("--relative-to"), std::string::npos) << verb;
    EXPECT_EQ(Run(verb + " -g nothing").err.find("--relative-to"), std::string::npos) << verb;
  }
}

TEST_F(ShowCommand, SinceThatIsLaterThanUntilIsAnErrorOfUsage) {
  for (const std::string verb : {"show --file Logs.dat", "stats --file Logs.dat", "merge Logs.dat",
                                 "export out.json --file Logs.dat"}) {
    const auto outcome = Run(verb + " -S 2026-01-01T10:00 -U '2026-01-01 09:00'");
    EXPECT_EQ(outcome.exitCode, 2) << verb;
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find("-S '2026-01-01T10:00': is 2026-01-01 10:00:00.000, which is later than -U "
                               "'2026-01-01 09:00', 2026-01-01 09:00:00.000: no message can match"),
              std::string::npos)
        << outcome.err;
  }
  EXPECT_EQ(Run("show --file Logs.dat -S '2026-01-01 00:00:02' -U '2026-01-01 00:00:02'").exitCode, 0);
}

TEST_F(ShowCommand, StatedZoneIsThatOfTimesWithAZone) {
  EXPECT_EQ(Show("-U 2025-12-31T22:00:01Z"), "01");  // this machine is two hours ahead of UTC
  EXPECT_EQ(Show("--tz utc -U 2026-01-01T00:00:01Z"), "01");
  EXPECT_EQ(Show("--tz -03:00 -U 2026-01-01T03:00:01Z"), "01");
  EXPECT_EQ(Show("--tz local -U 2025-12-31T22:00:01Z"), "01");
  EXPECT_EQ(Show("-U @1767218401"), "01");
  EXPECT_EQ(Show("--tz utc -U @1767225601"), "01");
}

TEST_F(ShowCommand, ContextIsMarkedOffInTextFormatsOnly) {
  EXPECT_EQ(Show("-g 2 -A 1"), "23");
  EXPECT_EQ(Show("-g 2 -B 1"), "12");
  EXPECT_EQ(Show("-g '[13]' -C 1"), "01234");
  EXPECT_EQ(Show("-g '[15]' -A 1"), "12--5");
  EXPECT_EQ(Show("-g '[15]' -A 1 -r"), "5--21");
  EXPECT_EQ(Show("-g '[0145]' -n 1 -B 2"), "345");
  EXPECT_EQ(Show("-g '[05]' -n 2 -C 1"), "01--45");
  EXPECT_EQ(Run("show -o json --file Logs.dat -g '[15]' -A 1").out.find("--"), std::string::npos);
  EXPECT_EQ(Show("-g '[15]'"), "15");
}

// A file in time order is printed while it is read; a request for a cursor reads it whole first.
TEST_F(ShowCommand, PrintsTheSameWhetherItHoldsTheMessagesOrNot) {
  log = RingModel(40);
  for (int i = 0; i < 100; ++i) Submit(i);
  log.Flush();
  Save();
  for (const char* options : {"", "-o json", "-o csv", "-o full", "-t 1 -A 1", "-g 'message 7' -B 2",
                              "-g 'message [69]5' -C 3", "-g 'message 9.' -C 1 -o ndjson", "-g nothing",
                              "-s Odd -S '2026-01-01 00:01:20'", "-v '[0-8]$' -A 2"}) {
    const std::string command = std::string("show --file Logs.dat ") + options;
    const Outcome streamed = Run(command);
    const Outcome whole = Run(command + " --show-cursor");
    EXPECT_LE(streamed.exitCode, 1) << streamed.err;
    EXPECT_EQ(streamed.out, whole.out) << options;
    EXPECT_EQ(streamed.exitCode, whole.exitCode) << options;
  }
}

// Output is held back until the order is known, and not more of it than a part of the file.
TEST_F(ShowCommand, LongOutputIsWholeAndInOrder) {
  constexpr int kCount = 20000;
  log = RingModel(kCount);
  for (int i = 0; i < kCount; ++i) {
    log.Submit(MakeBody(i, "message " + std::to_string(i) + ' ' + std::string(200, '.'), "Camera"));
    if (i % 1000 == 999) log.Flush();
  }
  Save();
  for (const char* options : {"", "-o json", "-o full", "-g 'message .*7' -B 2 -o json"}) {
    const std::string command = std::string("show --file Logs.dat ") + options;
    const Outcome streamed = Run(command);
    EXPECT_EQ(streamed.out, Run(command + " --show-cursor").out) << options;
    EXPECT_EQ(streamed.exitCode, 0) << options;
  }
  // The message after all others is the oldest.
  const auto lastSlot = LogFileSize(kCount - 1);
  std::fstream file(folder.File("Logs.dat"), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(lastSlot + offsetof(LogMessage, body) +
                                         offsetof(LogMessageBody, timestamp)));
  file.put('\x01').put('\0');
  file.close();
  for (const char* format : {"short", "json"}) {
    const Outcome sorted = Run(std::string("show --file Logs.dat -o ") + format);
    std::istringstream lines(sorted.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_NE(line.find("message 19999"), std::string::npos) << line;
    std::getline(lines, line);
    EXPECT_NE(line.find("message 0"), std::string::npos) << line;
    EXPECT_EQ(std::count(sorted.out.begin(), sorted.out.end(), '\n'), kCount);
  }
}

TEST_F(ShowCommand, OrdersWhatTheRingHoldsBackwards) {
  for (int i = 20; i > 12; --i) Submit(i);
  log.Flush();
  Save();
  EXPECT_EQ(Show(""), "1314151617181920");
}

TEST_F(ShowCommand, CountPrintsANumberAndExitCodeOneSaysThatNothingMatched) {
  EXPECT_EQ(Run("show --count --file Logs.dat").out, "6\n");
  EXPECT_EQ(Run("show --count --file Logs.dat -s odd -n 2").out, "2\n");
  EXPECT_EQ(Run("show --count --file Logs.dat -o json -s odd").out, "{\"count\":3}\n");
  const Outcome none = Run("show --count --file Logs.dat -g zzz");
  EXPECT_EQ(none.out, "0\n");
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_EQ(Run("show --file Logs.dat -g zzz").exitCode, 1);
  EXPECT_EQ(Run("stats --file Logs.dat -g zzz").exitCode, 1);
  Save("Cut.dat", 600);
  EXPECT_EQ(Run("show --count --file Cut.dat").exitCode, 7);
  EXPECT_EQ(Run("show --count --file Missing.dat").exitCode, 3);
}

TEST_F(ShowCommand, ValuesThatMakeNoSenseAreUsageErrorsThatNameThem) {
  Put("bad.filter", "Even\n\n# fine\nOdd:7\n");
  Put("bad.cursor", "rubbish\n");
  const struct {
    const char* arguments;
    const char* said;
  } cases[] = {{"-s :9", "-s ':9'"},
               {"-x Camera:", "-x 'Camera:'"},
               {"-t 4", "-t '4'"},
               {"-g '('", "a '(' without ')'"},
               {"-v '[z-a]'", "-v '[z-a]'"},
               {"--highlight '*'", "--highlight '*'"},
               {"-S 2026-02-30", "-S '2026-02-30'"},
               {"-U soon", "-U 'soon'"},
               {"-n x", "'x'"},
               {"-F", "-F"},
               {"-A -1", "-1"},
               {"--filter-file bad.filter", "bad.filter:4"},
               {"--after-cursor c1.2.3", "'c1.2.3'"},
               {"--cursor-file bad.cursor", "bad.cursor"},
               {"--cursor-file c -U now", "-U"},
               {"--cursor-file c --after-cursor c", "--after-cursor"},
               {"--cursor-file c --file Logs.dat", "--file"},
               {"--events loud", "loud"},
               {"--ordered", "--ordered"},
               {"-f", "a copied log does not grow"}};
  for (const auto& each : cases) {
    const Outcome outcome = Run(std::string("show --file Logs.dat ") + each.arguments);
    EXPECT_EQ(outcome.exitCode, 2) << each.arguments;
    EXPECT_NE(outcome.err.find(each.said), std::string::npos) << each.arguments << ": " << outcome.err;
    EXPECT_EQ(outcome.out, "") << each.arguments;
  }
  EXPECT_EQ(Contents("bad.cursor"), "rubbish\n");
  for (const char* const arguments :
       {"follow --count", "show -f --count", "show -f -r", "follow -n 1 --cursor-file c", "stats -s :9",
        "stats -o csv", "stats --top -1"}) {
    EXPECT_EQ(Run(arguments).exitCode, 2) << arguments;
  }
}

TEST_F(ShowCommand, ASourceWhoseNameReadsAsTypesIsFoundAsTheMessageSays) {
  log.Submit(MakeBody(6000, "message 6", "Rack:9"));
  log.Submit(MakeBody(7000, "message 7", "Rack:2"));
  log.Flush();
  Save();
  const Outcome none = Run("show --file Logs.dat -s Rack:9");
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_NE(none.err.find("; for a source of this name write 'Rack:9*'\n"), std::string::npos) << none.err;
  const Outcome types = Run("show --file Logs.dat -s Rack:2");
  EXPECT_EQ(types.exitCode, 1);
  EXPECT_EQ(
      types.err,
      "tamlogctl: -s 'Rack:2': no source is called 'Rack'; for the source of this name write 'Rack:2*'\n");
  EXPECT_EQ(Show("-s 'Rack:9*'"), "6");
  EXPECT_EQ(Show("-s 'Rack:2*'"), "7");
}

TEST_F(ShowCommand, ASourceThatIsNotThereIsReportedWithThoseThereAre) {
  for (const char* const verb :
       {"show --file Logs.dat", "show --count --file Logs.dat", "stats --file Logs.dat", "merge Logs.dat",
        "export new.csv --force -o csv --file Logs.dat"}) {
    const Outcome outcome = Run(std::string(verb) + " -s Eevn");
    EXPECT_EQ(outcome.exitCode, 1) << verb;
    EXPECT_NE(
        outcome.err.find("-s 'Eevn': no source has this name; did you mean 'Even'? sources are Even, Odd\n"),
        std::string::npos)
        << verb << ": " << outcome.err;
  }
  EXPECT_NE(Run("show --file Logs.dat -s ev").err.find("did you mean 'Even'?"), std::string::npos);
  EXPECT_NE(Run("show --file Logs.dat -s Camera").err.find("has this name; sources are Even, Odd\n"),
            std::string::npos);
  EXPECT_EQ(Run("show --file Logs.dat -q -s Camera").err, "");
  EXPECT_EQ(Run("show --file Logs.dat -s Odd -g nothing").err, "");  // the source is there
  EXPECT_EQ(Run("show --file Logs.dat -s 'O*' -t 0").err, "");
  EXPECT_EQ(Run("show --file Logs.dat -s Camera -s Odd").err, "");  // something was found
  log = RingModel(64);
  for (int i = 0; i < 30; ++i) log.Submit(MakeBody(i, "text", "source " + std::to_string(i)));
  log.Flush();
  Save();
  const std::string err = Run("show --file Logs.dat -s Camera").err;
  EXPECT_NE(err.find(", source 26 and 10 more\n"), std::string::npos) << err;
}

TEST_F(ShowCommand, OfARepeatedSingleOptionTheLastOneCounts) {
  EXPECT_EQ(Show("-n 1 -n 2"), "45");
  EXPECT_EQ(Show("-t 0 -t 1"), "15");
  EXPECT_EQ(Show("-r -r -n 2"), "54");
  EXPECT_EQ(Show("-S now -S '2026-01-01 00:00:04'"), "45");
  EXPECT_EQ(Show("-s even -s odd"), "012345");  // repeatable
}

TEST_F(ShowCommand, FilterFilesNameSources) {
  Put("some.filter", "# sources\n!Odd\nEven:0,2\nOdd\n");
  EXPECT_EQ(Show("--filter-file some.filter"), "024");
  Put("empty.filter", "");
  EXPECT_EQ(Show("--filter-file empty.filter"), "012345");
}

TEST_F(ShowCommand, CursorGoesOnWhereItPointsAlsoInACopy) {
  const Outcome shown = Run("show --file Logs.dat -n 1 --show-cursor");
  ASSERT_EQ(shown.err.rfind("cursor: c2.", 0), 0U) << shown.err;
  const std::string cursor = shown.err.substr(8, shown.err.size() - 9);
  EXPECT_EQ(Show("--after-cursor " + cursor), "");
  Submit(6);
  log.Flush();
  Save("Copy.dat");
  EXPECT_EQ(Run("show -o cat --file Copy.dat --after-cursor " + cursor).out, "message 6\n");
  for (int i = 7; i < 20; ++i) Submit(i);
  log.Flush();
  Save();
  const Outcome gone = Run("show --file Logs.dat --events json --after-cursor " + cursor);
  EXPECT_EQ(gone.err, "{\"event\":\"cursor-gone\"}\n");
  EXPECT_EQ(Run("show --file Logs.dat --events none --after-cursor " + cursor).err, "");
  EXPECT_EQ(Run("show --file Logs.dat -q --after-cursor " + cursor).err, "");
}

TEST_F(ShowCommand, CursorsOfTheJournalFormatAreAcceptedBack) {
  log.Submit(MakeBody(6000, "message 6"));
  log.Submit(MakeBody(6000, "message 6"));  // the very same once more
  log.Flush();
  Save();
  std::istringstream entries(Run("show -o export --file Logs.dat").out);
  std::vector<std::string> cursors;
  for (std::string line; std::getline(entries, line);) {
    if (line.rfind("__CURSOR=", 0) == 0) cursors.push_back(line.substr(9));
  }
  ASSERT_EQ(cursors.size(), 8U);
  const std::string shown = Run("show --file Logs.dat -n 1 --show-cursor").err;
  EXPECT_EQ(shown.rfind("cursor: " + cursors.back() + "+", 0), 0U) << shown;
  const std::string all = "01234566";
  for (std::size_t i = 0; i < cursors.size(); ++i) {
    EXPECT_EQ(Show("--after-cursor " + cursors[i]), all.substr(i + 1)) << cursors[i];
    EXPECT_EQ(Run("show --file Logs.dat --after-cursor " + cursors[i]).err, "");
  }
  Run("export journal -o export --file Logs.dat");
  EXPECT_EQ(Contents("journal"), Run("show -o export --file Logs.dat").out);
}

TEST_F(ShowCommand, CursorsStayTheSameWhileMessagesComeAndGo) {
  const auto cursors = [this] { return Lines("show -o template={cursor} --file Logs.dat"); };
  const auto before = cursors();
  ASSERT_EQ(before.size(), 6U);
  log.Submit(MakeBody(2500, "late"));
  log.Flush();
  Save();
  auto now = cursors();
  EXPECT_EQ(now.size(), 7U);
  now.erase(now.begin() + 3);
  EXPECT_EQ(now, before);
  for (int i = 7; i < 10; ++i) Submit(i);
  log.Flush();
  Save();
  now = cursors();
  const auto kept =
      static_cast<std::size_t>(std::count_if(before.begin(), before.end(), [&now](const std::string& cursor) {
        return std::count(now.begin(), now.end(), cursor) == 1;
      }));
  EXPECT_EQ(kept, 4U);  // the ring has 8 slots
}

// Equal messages have cursors of their own, and which messages are printed does not change them.
TEST_F(ShowCommand, CursorsAreTheSameInEveryVerbAndSelection) {
  for (int i = 0; i < 2; ++i) {
    log.Submit(MakeBody(6000, "twin"));
    log.Submit(MakeBody(6000, "other"));
  }
  log.Flush();
  Save();
  const std::string output = " -o template={text}={cursor} --file Logs.dat";
  const auto all = Lines("show" + output);
  ASSERT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
  for (const char* const way : {"show -n 1", "show -n 2", "show -n 3", "show -r", "show -r -n 3",
                                "show -g twin", "show -n 1 -B 2", "show -S '2026-01-01 00:00:06'",
                                "show --file Logs.dat", "merge", "show -n +7", "show -g other -B 1"}) {
    for (const std::string& line : Lines(way + output))
      EXPECT_NE(std::find(all.begin(), all.end(), line), all.end()) << way << ": " << line;
  }
  EXPECT_EQ(Lines("show -n 1" + output), std::vector<std::string>{all.back()});
  Run("export copied -n 2" + output);
  EXPECT_EQ(Contents("copied"), all[all.size() - 2] + "\n" + all.back() + "\n");
}

TEST_F(ShowCommand, CursorsOfEarlierVersionsAreAccepted) {
  const std::string now = Lines("show -n 1 -o template={cursor} --file Logs.dat").front();
  std::string old = "c1" + now.substr(2, now.rfind('.') - 2) + ".1.6";
  std::uint32_t sum = 2166136261U;
  for (const char letter : old) sum = (sum ^ static_cast<unsigned char>(letter)) * 16777619U;
  std::ostringstream sumText;
  sumText << std::hex << sum;
  old += "." + sumText.str();
  Submit(6);
  log.Flush();
  Save();
  EXPECT_EQ(Show("--after-cursor " + old), "6");
  Put("seen", old + "\n");
  EXPECT_EQ(Show("--cursor-file seen"), "6");
}

TEST_F(ShowCommand, MemoryOfAnEarlierVersionIsIgnoredAndItsCursorCounts) {
  EXPECT_EQ(Show("--cursor-file seen"), "012345");
  const std::string seen = Contents("seen");
  Put("seen", seen.substr(0, seen.find('\n') + 1) + "memory1 8 6 6 3 1 6 0 1 1 1 0 0\n");
  Submit(6);
  log.Flush();
  Save();
  EXPECT_EQ(Show("--cursor-file seen"), "6");
  Put("seen", seen.substr(0, seen.find('\n') + 1) + "memory9 8 6 6 3 1 6 0 1 1 1 0 0\n");
  EXPECT_EQ(Run("show --file Logs.dat --cursor-file seen").exitCode, 2);
}

TEST_F(ShowCommand, CursorFileGivesEachMessageOnceAndTellsLosses) {
  EXPECT_EQ(Show("--cursor-file seen"), "012345");
  EXPECT_EQ(Show("--cursor-file seen"), "");
  Submit(6);
  log.Flush();
  log.Submit(MakeBody(3500, "late"));
  log.Flush();
  Save();
  EXPECT_EQ(Show("--cursor-file seen"), "late6");
  EXPECT_EQ(Run("show --file Logs.dat --cursor-file seen").err, "");
  log.Clear();
  Submit(8);
  log.Flush();
  Save();
  const Outcome cleared = Run("show -o cat --file Logs.dat --cursor-file seen --events json");
  EXPECT_EQ(cleared.out, "message 8\n");
  EXPECT_EQ(cleared.err, "{\"event\":\"cleared\"}\n{\"event\":\"lost\",\"count\":null,\"at_least\":0}\n");
  EXPECT_EQ(cleared.exitCode, 0);
  // No other file is left.
  int others = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
    if (entry.path().filename().string().rfind("seen", 0) == 0) ++others;
  }
  EXPECT_EQ(others, 1);
}

TEST_F(ShowCommand, CursorFileHasThePlaceOfAnExportAndWhatAnOrderedRunHeldBack) {
  EXPECT_EQ(Show("--cursor-file seen"), "012345");
  const std::string seen = Contents("seen");
  const std::size_t second = seen.find('\n') + 1;
  const LogMessage held = log.Snapshot().slots[4];
  std::string digits;
  TamLogClient::AppendHex({reinterpret_cast<const char*>(&held), sizeof(held)}, digits);
  const auto with = [&](const std::string& lines) {
    Put("seen", seen.substr(0, second) + lines + seen.substr(second));
  };
  with("target 1 2f 3\nheld 1 " + digits + "\n");
  Submit(6);
  log.Flush();
  Save();
  EXPECT_EQ(Show("--cursor-file seen"), "46");
  EXPECT_EQ(Show("--cursor-file seen"), "");
  for (const std::string& wrong :
       {std::string("target 1 2\n"), std::string("target 1 2 x\n"), std::string("target 1 2 3 4\n"),
        std::string("held 1 00\n"), "held 1" + digits + "\n", "held x " + digits + "\n"}) {
    with(wrong);
    const Outcome refused = Run("show --file Logs.dat --cursor-file seen");
    EXPECT_EQ(refused.exitCode, 2) << wrong;
    EXPECT_NE(refused.err.find("is not a cursor file; name another, and one that does not exist to begin"),
              std::string::npos)
        << refused.err;
  }
}

// They may lie where others write, and a sparse file of any size costs its writer nothing.
TEST_F(ShowCommand, HugeCursorFileAndFilterFileAreRefusedUnread) {
  TestSupport::MakeSparseFile(folder.File("seen"), std::uint64_t{20} << 30U);
  Outcome refused = Run("show --file Logs.dat --cursor-file seen");
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_EQ(refused.err, "tamlogctl: --cursor-file 'seen': is larger than 1024 MiB\n");
  refused = Run("show --file Logs.dat --filter-file seen");
  EXPECT_EQ(refused.exitCode, 2);
  EXPECT_EQ(refused.err, "tamlogctl: --filter-file 'seen': is larger than 64 MiB\n");
}

TEST_F(ShowCommand, CursorFileStaysWhenTheOutputFails) {
  EXPECT_EQ(Show("--cursor-file seen"), "012345");
  const std::string before = Contents("seen");
  Submit(6);
  log.Flush();
  Save();
  EXPECT_EQ(Run("show --file Logs.dat --cursor-file seen >/dev/full").exitCode, 8);
  EXPECT_EQ(Contents("seen"), before);
  EXPECT_EQ(Show("--cursor-file seen"), "6");
  EXPECT_EQ(Run("show --file Logs.dat --cursor-file no/such/folder").exitCode, 8);
}

TEST_F(ShowCommand, LastOnesOfABackwardRingAreTheNewest) {
  RingModel large(4000);
  for (int i = 0; i < 4000; ++i) large.Submit(MakeBody(i, "message " + std::to_string(i)));
  large.Flush();
  log = large;
  Save();
  EXPECT_EQ(Show("-n 2"), "39983999");
  log.Submit(MakeBody(5000, "message new"));
  log.Flush();
  Save();
  EXPECT_EQ(Show("-n 1"), "new");
  EXPECT_EQ(Show("-n 2"), "3998new");  // it overwrites 3999
  EXPECT_EQ(Show("-S 00:00:04 -g zzz"), "");
}

TEST_F(ShowCommand, SeveralFilesAreMergedByTime) {
  RingModel other(4);
  other.Submit(MakeBody(2500, "between"));
  other.Flush();
  const RingModel first = log;
  log = other;
  Save("Other.dat");
  log = first;
  EXPECT_EQ(Show("--file Other.dat"), "012between345");
  EXPECT_EQ(Show("--file Other.dat -n 4"), "between345");
}

TEST_F(ShowCommand, HighlightMarksMatchesWhereColoursAre) {
  const std::string mark = "\x1b[1;31m";
  EXPECT_NE(Run("show --file Logs.dat --color always -n 1 --highlight 'age 5'").out.find(mark + "age 5"),
            std::string::npos);
  EXPECT_EQ(Run("show --file Logs.dat -n 1 --highlight age").out.find(mark), std::string::npos);
  EXPECT_EQ(Run("show --file Logs.dat --color always -o json --highlight age").out.find(mark),
            std::string::npos);
}

TEST_F(ShowCommand, TerminalsGetAPager) {
  EXPECT_NE(RunOnTerminal("show --file Logs.dat -o cat", "PAGER='sed s/message/PAGED/'").find("PAGED 5"),
            std::string::npos);
  EXPECT_EQ(
      RunOnTerminal("show --file Logs.dat -o cat --no-pager", "PAGER='sed s/message/PAGED/'").find("PAGED"),
      std::string::npos);
  EXPECT_NE(RunOnTerminal("show --file Logs.dat -o cat", "PAGER=").find("message 5"), std::string::npos);
  const std::string none = RunOnTerminal("show --file Logs.dat; echo code $?", "PAGER=/no/such/pager");
  EXPECT_NE(none.find("PAGER '/no/such/pager': cannot be started"), std::string::npos) << none;
  EXPECT_NE(none.find("code 8"), std::string::npos) << none;
  // A user who leaves the pager early has seen enough.
  EXPECT_NE(RunOnTerminal("show --file Logs.dat; echo code $?", "PAGER=true").find("code 0"),
            std::string::npos);
}

TEST_F(ShowCommand, StatsCountBySourceTypeAndTime) {
  const Outcome text = Run("stats --file Logs.dat --bars");
  EXPECT_EQ(text.exitCode, 0) << text.err;
  for (const char* const part :
       {"6 of 8 slots, 5.0 s deep", "by source",
        "  Even                3   50.0 %   2   0   1   0  2026-01-01 00:00:00  2026-01-01 00:00:04",
        "by type", "  T0          2", "by minute", "  2026-01-01 00:00          6  100.0 %"}) {
    EXPECT_NE(text.out.find(part), std::string::npos) << part << "\n" << text.out;
  }
  const Outcome json = Run("stats --file Logs.dat -o json -s odd");
  for (const char* const part :
       {"\"messages\":3",
        "\"sources\":[{\"count\":3,\"newest\":\"2026-01-01T00:00:05.000\",\"oldest\":\"2026-01-01T00:00:01."
        "000\",\"source\":\"Odd\",\"types\":[0,2,0,1,0]}]",
        "\"minutes\":[{\"count\":3,\"minute\":\"2026-01-01T00:00\"}]", "\"capacity\":8",
        "\"depth_seconds\":5.0", "\"oldest\":\"2026-01-01T00:00:01.000\""}) {
    EXPECT_NE(json.out.find(part), std::string::npos) << part << "\n" << json.out;
  }
  EXPECT_EQ(Run("stats --file Missing.dat").exitCode, 3);
}

TEST_F(ShowCommand, NamesOfTypesAndTheEncodingAreConfiguredByTheEnvironment) {
  setenv("TAMLOGCTL_TYPE_NAMES", "0=info", 1);
  setenv("TAMLOGCTL_ENCODING", "latin-1", 1);
  log.Submit(MakeBody(6000, "gr\xFC\xDF", "Even", 0));
  log.Flush();
  Save();
  EXPECT_EQ(Run("show -n 1 --file Logs.dat").out, "2026-01-01 00:00:06.000 info Even: gr\xC3\xBC\xC3\x9F\n");
  EXPECT_EQ(Run("show -n 1 --type-names 0=note --encoding ascii --file Logs.dat").out,
            "2026-01-01 00:00:06.000 note Even: gr\\xfc\\xdf\n");
  setenv("TAMLOGCTL_TYPE_NAMES", "info", 1);
  const Outcome bad = Run("show --file Logs.dat");
  unsetenv("TAMLOGCTL_TYPE_NAMES");
  unsetenv("TAMLOGCTL_ENCODING");
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_NE(bad.err.find("TAMLOGCTL_TYPE_NAMES 'info'"), std::string::npos) << bad.err;
}

TEST_F(ShowCommand, LettersBeyondAsciiFindWhatIsShown) {
  log.Submit(MakeBody(6000, "gr\xFC\xDF", "T\xFCr", 0));              // Latin-1
  log.Submit(MakeBody(7000, "gr\xC3\xBC\xC3\x9F", "T\xC3\xBCr", 0));  // UTF-8
  log.Flush();
  Save();
  EXPECT_EQ(Run("show --count -g gr\xC3\xBC --file Logs.dat").out, "1\n");
  EXPECT_EQ(Run("show --count -g gr\xC3\xBC --encoding latin-1 --file Logs.dat").out, "1\n");
  EXPECT_EQ(Run("show -o json --fields time -s T\xC3\xBCr --encoding latin-1 --file Logs.dat").out,
            "{\"time\":\"2026-01-01T00:00:06.000\"}\n");
  EXPECT_EQ(Run("show --count -v gr\xC3\xBC --encoding latin-1 --file Logs.dat").out, "7\n");
  EXPECT_EQ(Run("show --count -g gr\xFC --file Logs.dat").out, "1\n");  // the bytes themselves
  EXPECT_EQ(Run("show --count -g 'gr\\xfc' --encoding latin-1 --file Logs.dat").out, "1\n");
}

TEST_F(ShowCommand, WorkThatTakesMoreThanASecondIsShownOnATerminal) {
  const auto slowly = [this](const std::string& verb) {
    return RunOnTerminal("version; { sleep 1.6; cat Logs.dat; } | '" TAMLOGCTL "' " + verb, "");
  };
  EXPECT_NE(slowly("verify /dev/stdin").find("reading /dev/stdin (1 s)"), std::string::npos);
  const std::string shown = slowly("show -o cat --no-pager --file /dev/stdin");
  EXPECT_NE(shown.find("reading /dev/stdin (1 s)"), std::string::npos) << shown;
  EXPECT_NE(shown.find("\rmessage 0\r\n"), std::string::npos) << shown;  // on the erased line
}

TEST_F(ShowCommand, VerbsThatNeedAServerSayThatThereIsNone) {
  EXPECT_EQ(Run("show").exitCode, 3);
  EXPECT_EQ(Run("follow").exitCode, 3);
  EXPECT_EQ(Run("stats").exitCode, 3);
}

}  // namespace
