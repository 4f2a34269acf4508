// Runs the program on a terminal: colours, Ctrl-C, and texts that want to control the terminal.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "client/message/utf8.h"
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"
#include "tests/support/terminal.h"

namespace {

using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using TestSupport::Outcome;
using TestSupport::Terminal;

// A title, a colour, an upper control character, a right-to-left override and isolate, a line end, a stray
// byte.
const std::string kHostile =
    "x\x1b]0;owned\x07\x1b[31m\xC2\x9B"
    "31m\xE2\x80\xAE\xE2\x81\xA6\xE2\x80\xA8\xD8\x9C\n\r\x7f\x9B"
    "end";
const std::string kPlain = "\x1b[0m";

// Returns where the first character stands that a terminal may obey; empty when there is none. Line ends are
// the program's own; with them a text could only begin a line, which a test looks for by itself. So are tabs.
std::string FirstControl(const std::string& shown) {
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const std::string_view rest = std::string_view(shown).substr(i);
    if (shown[i] == '\n' || shown[i] == '\r' || shown[i] == '\t') continue;
    if (TamLogClient::ControlLength(rest) == 0 && TamLogClient::Utf8SequenceLength(rest) > 0) {
      i += TamLogClient::Utf8SequenceLength(rest) - 1;
      continue;
    }
    return "at " + std::to_string(i) + " of: " + testing::PrintToString(shown);
  }
  return "";
}

class OnTerminal : public testing::Test {
 protected:
  void Save(const std::string& name, const RingModel& log) const {
    TestSupport::WriteBytes(folder.File(name), log.FileBytes());
  }

  void SaveOrdinary(int count = 6) const {
    RingModel log(count);
    for (int i = 0; i < count; ++i)
      log.Submit(
          MakeBody(i * 1000, "message " + std::to_string(i), "Camera", static_cast<std::uint32_t>(i % 4)));
    log.Flush();
    Save("Logs.dat", log);
  }

  std::string Show(const std::string& arguments, const std::string& environment) const {
    return Terminal(folder.Path(), environment + " '" TAMLOGCTL "' " + arguments).ReadAll();
  }

  TestSupport::TempDir folder;
};

TEST_F(OnTerminal, ColorsAreLeftOutWhereTheyAreNotWanted) {
  SaveOrdinary();
  const std::string show = "show --no-pager --highlight message --file Logs.dat";
  EXPECT_NE(Show(show, "TERM=xterm").find('\x1b'), std::string::npos);
  for (const char* const environment :
       {"TERM=dumb", "env -u TERM", "TERM=xterm NO_COLOR=1", "TERM=dumb NO_COLOR=1"})
    EXPECT_EQ(Show(show, environment).find('\x1b'), std::string::npos) << environment;
  EXPECT_NE(Show(show + " --color always", "TERM=dumb").find('\x1b'), std::string::npos);
  EXPECT_EQ(Show(show + " --color never", "TERM=xterm").find('\x1b'), std::string::npos);
  EXPECT_NE(Show(show, "TERM=xterm NO_COLOR=").find('\x1b'),
            std::string::npos);  // an empty one does not count
}

TEST_F(OnTerminal, ATerminalWithoutAbilitiesGetsNoPagerByItself) {
  SaveOrdinary();
  const std::string path = "PATH='" + folder.Path() + "':\"$PATH\"";
  TestSupport::WriteBytes(folder.File("less"), "#!/bin/sh\nsed s/message/PAGED/\n");
  ASSERT_EQ(TestSupport::RunIn(folder.Path(), "chmod +x less").exitCode, 0);
  EXPECT_NE(Show("show --file Logs.dat", "env -u PAGER TERM=xterm " + path).find("PAGED"), std::string::npos);
  EXPECT_EQ(Show("show --file Logs.dat", "env -u PAGER TERM=dumb " + path).find("PAGED"), std::string::npos);
}

TEST_F(OnTerminal, PagerHandlesTheSignalsOfItsOwnWritesItself) {
  SaveOrdinary();
  const std::string ignored =
      Show("show --file Logs.dat", "PAGER='cat >/dev/null; grep SigIgn /proc/self/status'");
  const std::size_t value = ignored.find("SigIgn:");
  ASSERT_NE(value, std::string::npos) << ignored;
  const std::uint64_t signals = std::stoull(ignored.substr(value + 7), nullptr, 16);
  for (const int signal : {SIGPIPE, SIGXFSZ}) EXPECT_EQ(signals >> (signal - 1) & 1U, 0U) << ignored;
}

TEST_F(OnTerminal, ErrorsAndWarningsStandOut) {
  SaveOrdinary();
  const std::string shown = Show("show --no-pager --type-names 1=warn,3=err --file Logs.dat", "TERM=xterm");
  EXPECT_NE(shown.find("\x1b[1;31merr" + kPlain + " \x1b["), std::string::npos) << shown;
  EXPECT_NE(shown.find(": \x1b[31mmessage 3" + kPlain), std::string::npos) << shown;
  EXPECT_NE(shown.find("\x1b[1;33mwarn" + kPlain), std::string::npos) << shown;
  EXPECT_NE(shown.find(": message 0\r\n"), std::string::npos) << shown;
}

// Ctrl-C and Ctrl-Z make the terminal drop what it has not shown yet, the end of a colour among it.
TEST_F(OnTerminal, CtrlCNeverLeavesAColor) {
  SaveOrdinary(20000);
  const std::string command = "exec env TERM=xterm '" TAMLOGCTL "' show --no-pager --file Logs.dat";
  for (int round = 0; round < 12; ++round) {
    const Terminal terminal(folder.Path(), command);
    std::string shown;
    while (shown.size() < 300U + 7U * static_cast<std::size_t>(round)) shown += terminal.Read(1);
    terminal.Type("\x03");
    shown += terminal.ReadAll();
    EXPECT_EQ(shown.find("message 19999"), std::string::npos);
    const std::size_t last = shown.rfind("\x1b[");
    ASSERT_NE(last, std::string::npos);
    EXPECT_EQ(shown.substr(last, kPlain.size()), kPlain) << testing::PrintToString(shown.substr(last));
  }
}

TEST_F(OnTerminal, CtrlZNeverLeavesAColor) {
  SaveOrdinary(20000);
  const std::string command =
      "set -m; env TERM=xterm '" TAMLOGCTL "' show --no-pager --file Logs.dat; echo stopped $?; kill -9 %1";
  const Terminal terminal(folder.Path(), command);
  std::string shown;
  while (shown.size() < 307) shown += terminal.Read(1);
  terminal.Type("\x1a");
  shown += terminal.ReadAll();
  const std::size_t stopped = shown.find("stopped 1");
  ASSERT_NE(stopped, std::string::npos) << testing::PrintToString(shown);
  const std::size_t last = shown.rfind("\x1b[", stopped);
  ASSERT_NE(last, std::string::npos);
  EXPECT_EQ(shown.substr(last, kPlain.size()), kPlain) << testing::PrintToString(shown);
}

// A pager that Ctrl-C ends leaves the terminal to the program.
TEST_F(OnTerminal, APagerThatDiesLeavesNoColor) {
  SaveOrdinary();
  const std::string shown = Show("show --file Logs.dat", "TERM=xterm PAGER='head -c 30'");
  EXPECT_EQ(shown.substr(shown.size() - kPlain.size()), kPlain) << testing::PrintToString(shown);
}

TEST_F(OnTerminal, NothingToShowIsSaid) {
  SaveOrdinary();
  const std::string show = "show --no-pager --file Logs.dat ";
  EXPECT_NE(Show(show + "-g nothing", "TERM=xterm").find("no entries\r\n"), std::string::npos);
  EXPECT_NE(Show("show --file Logs.dat -n 0", "TERM=xterm").find("no entries\r\n"), std::string::npos);
  EXPECT_EQ(Show(show + "-q -g nothing", "TERM=xterm"), "");
  EXPECT_EQ(Show(show, "TERM=xterm").find("no entries"), std::string::npos);
  EXPECT_EQ(Show(show + "--count -g nothing", "TERM=xterm"), "0\r\n");
  EXPECT_EQ(Show(show + "-g nothing | cat", "TERM=xterm"), "");  // to a program
}

class HostileTexts : public OnTerminal {
 protected:
  HostileTexts() {
    RingModel log(8);
    log.Submit(MakeBody(1000, kHostile, "source" + kHostile, 1));
    log.Submit(MakeBody(2000, "late " + kHostile, kHostile, 7));
    log.Flush();
    Save(name, log);
    const std::string bytes = log.FileBytes();
    TestSupport::WriteBytes(folder.File("cut" + name), bytes.substr(0, bytes.size() - 600));
    TestSupport::WriteBytes(folder.File("list" + name), kHostile + "\n\n:9\n");
    TestSupport::WriteBytes(folder.File("junk" + name), "junk" + kHostile);
  }

  const std::string name = "a" + kHostile;
};

// Each verb, each place where it shows a name or a text that another user chose.
TEST_F(HostileTexts, NoVerbLetsThemReachTheTerminal) {
  const std::string file = "'" + name + "'";
  const std::string hostile = "'" + kHostile + "'";
  std::vector<std::string> commands;
  for (const char* const format : {"short", "full", "cat", "json", "json-array", "csv", "tsv", "export",
                                   "rfc5424", "'template={time} {source} {label} {text}'"}) {
    commands.push_back(std::string("show --no-pager --color never --file ") + file + " -o " + format);
    commands.push_back("merge --label " + ("'" + kHostile + "'=") + file + " --color never -o " + format);
  }
  for (const std::string& more : std::vector<std::string>{
           "show --no-pager --color never --show-cursor --file 'cut" + name + "'",
           "show --no-pager --file " + hostile,
           "show --no-pager --file 'junk" + name + "'",
           "show --no-pager --color never --file " + file + " -s " + hostile,
           "show --no-pager --color never --file " + file + " -S " + hostile,
           "show --no-pager --color never --file " + file + " -g '('" + hostile,
           "show --no-pager --color never --file " + file + " --highlight '['" + hostile,
           "show --no-pager --color never --file " + file + " -t " + hostile,
           "show --no-pager --color never --file " + file + " -o " + hostile,
           "show --no-pager --color never --file " + file + " -o 'template={'" + hostile,
           "show --no-pager --color never --file " + file + " --fields " + hostile,
           "show --no-pager --color never --file " + file + " --type-names " + hostile,
           "show --no-pager --color never --file " + file + " --encoding " + hostile,
           "show --no-pager --color never --file " + file + " --tz " + hostile,
           "show --no-pager --color never --file " + file + " --after-cursor " + hostile,
           "show --no-pager --color never --file " + file + " --filter-file 'list" + name + "'",
           "show --no-pager --color never --file " + file + " --cursor-file 'junk" + name + "'",
           "show --no-pager --color never --file " + file + " --cursor-file no/" + hostile,
           "stats --file " + file,
           "stats -o json --file " + file,
           "stats --file " + hostile,
           "verify " + file,
           "verify -o json " + file,
           "verify --all 'cut" + name + "' 'junk" + name + "' " + hostile,
           "repair 'cut" + name + "' --output 'new" + name + "'",
           "repair 'cut" + name + "' --output " + file,
           "repair " + hostile + " --output n",
           "export 'out" + name + "' --log --file " + file,
           "export " + file + " --file " + file,
           "export no/" + hostile + " --file " + file,
           "merge --label " + hostile + " --offset " + hostile,
           "merge " + hostile,
           "import " + hostile,
           "import 'junk" + name + "'",
           "import --input tsv 'junk" + name + "'",
           "import --input json 'junk" + name + "'",
           "filter set " + hostile,
           hostile,
           "show " + hostile,
           "show --" + hostile,
           "filter " + hostile,
           "help " + hostile,
           "completion " + hostile,
           "send -s " + hostile,
           "settings path " + hostile + " --apply"})
    commands.push_back(more);
  for (const std::string& command : commands) {
    const std::string shown = Show(command, "TERM=xterm PAGER=");
    EXPECT_EQ(FirstControl(shown), "") << command;
    EXPECT_EQ(shown.find("\nend"), std::string::npos) << command;  // no line of their own
    EXPECT_FALSE(shown.empty() && command.find("export") == std::string::npos) << command;
  }
  EXPECT_EQ(FirstControl(Show("show --no-pager --color never --file " + file + " -o short",
                              "TERM=xterm PAGER= TAMLOGCTL_TYPE_NAMES=" + hostile)),
            "");
}

TEST_F(HostileTexts, AreShownByTheirBytes) {
  const std::string shown = Show("show --no-pager --color never --file '" + name + "' -n 1", "TERM=xterm");
  EXPECT_NE(shown.find("x\\x1b]0;owned\\x07\\x1b[31m"), std::string::npos) << shown;
  EXPECT_NE(shown.find("\\xe2\\x80\\xae"), std::string::npos) << shown;
  const std::string json = Show("show --no-pager --file '" + name + "' -n 1 -o json", "TERM=xterm");
  EXPECT_NE(json.find("\\u202e\\u2066\\u2028\\u061c\\n\\r\\u007f"), std::string::npos) << json;
}

}  // namespace
