// Runs the program itself and checks its exit code and output. No server runs here.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "client/live/handle.h"
#include "client/live/log_reader.h"
#include "client/message/utf8.h"
#include "client/message/win32.h"
#include "tests/client/live/served_log.h"
#include "tests/client/live/test_server.h"
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogTest::Answer;
using TamLogTest::ServedLog;
using TamLogTest::TestServer;
using TestSupport::Outcome;

// Replies with the settings of a server in order, whatever the request.
Answer ReplySettings(const PipeRequest& /*request*/, PipeReply& reply) {
  reply.settings = {.maxMessage = 8, .devicePollRate = 50, .typeFilter = 0xF, .saveRate = 5};
  reply.code = static_cast<std::uint32_t>(ReplyCode::Settings);
  return Answer::Reply;
}

// Accepts every message, and shares a log that none of them reaches.
class AcceptingServer {
 public:
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const PipeRequest& request : server.Requests()) {
      if (request.code == static_cast<std::uint32_t>(RequestCode::SubmitMessage))
        texts.emplace_back(request.message.text);
    }
    return texts;
  }

 private:
  static Answer Accept(const PipeRequest& request, PipeReply& reply) {
    const bool submits = request.code == static_cast<std::uint32_t>(RequestCode::SubmitMessage);
    if (!submits) return ReplySettings(request, reply);
    reply.code = static_cast<std::uint32_t>(ReplyCode::Done);
    return Answer::Reply;
  }

  ServedLog log{TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName};
  TestServer server{Accept, kRequestPipeName};
};

class TamlogctlTest : public testing::Test {
 protected:
  std::string Path(const char* name) const { return folder.File(name); }

  Outcome Run(const std::string& arguments, const std::string& input = "") {
    return TestSupport::RunIn(folder.Path(), "\"" TAMLOGCTL "\" " + arguments, input);
  }

  // A copied log with messages 0 to 5 of the sources Even and Odd.
  std::string MakeLog(std::size_t cut = 0) {
    TamLogTest::RingModel log(8);
    for (int i = 0; i < 6; ++i) {
      log.Submit(TamLogTest::MakeBody(i * 1000, "message " + std::to_string(i), i % 2 == 0 ? "Even" : "Odd",
                                      static_cast<std::uint32_t>(i % 4)));
    }
    log.Flush();
    const std::string bytes = log.FileBytes();
    TestSupport::WriteBytes(Path("Logs.dat"), bytes.substr(0, bytes.size() - cut));
    return "--file \"" + Path("Logs.dat") + "\"";
  }

  std::string SavedLog() {
    MakeLog();
    return Path("Logs.dat");
  }

  TestSupport::TempDir folder;
};

TEST_F(TamlogctlTest, ShowsACopiedLogOldestFirst) {
  const auto outcome = Run("show " + MakeLog());
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(outcome.out,
            "2026-01-01 00:00:00.000 T0 Even: message 0\n2026-01-01 00:00:01.000 T1 Odd: message 1\n"
            "2026-01-01 00:00:02.000 T2 Even: message 2\n2026-01-01 00:00:03.000 T3 Odd: message 3\n"
            "2026-01-01 00:00:04.000 T0 Even: message 4\n2026-01-01 00:00:05.000 T1 Odd: message 5\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(TamlogctlTest, ShowIsMeantWhenNoVerbIsGiven) {
  EXPECT_EQ(Run(MakeLog() + " -n 1 -o cat").out, "message 5\n");
}

TEST_F(TamlogctlTest, LastNCountsMatches) {
  const std::string log = MakeLog();
  EXPECT_EQ(Run("show -o cat -n 2 -s even " + log).out, "message 2\nmessage 4\n");
  EXPECT_EQ(Run("show -o cat -n 2 -r -x Even " + log).out, "message 5\nmessage 3\n");
  EXPECT_EQ(Run("show -o cat -s Odd:3 -s Even:2 " + log).out, "message 2\nmessage 3\n");
  EXPECT_EQ(Run("show -o cat -t 3 " + log).out, "message 3\n");
  EXPECT_EQ(Run("show -o cat -g \"[45]$\" " + log).out, "message 4\nmessage 5\n");
  EXPECT_EQ(Run("show -o cat -S \"2026-01-01 00:00:04\" " + log).out, "message 4\nmessage 5\n");
  EXPECT_EQ(Run("show -o cat -U \"2026-01-01 00:00:01\" " + log).out, "message 0\nmessage 1\n");
  EXPECT_EQ(Run("show -o cat -n 0 " + log).out, "");
}

// Returns the bytes as a gzip member with one block that is stored, not compressed.
std::string StoredGzip(const std::string& bytes) {
  const auto little = [](std::uint32_t value, int count) {
    std::string text;
    for (int i = 0; i < count; ++i, value >>= 8U) text += static_cast<char>(value & 0xFFU);
    return text;
  };
  std::uint32_t check = 0xFFFFFFFF;
  for (const char byte : bytes) {
    check ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) check = (check >> 1U) ^ ((check & 1U) != 0 ? 0xEDB88320U : 0);
  }
  const auto size = static_cast<std::uint32_t>(bytes.size());
  return std::string("\x1F\x8B\x08\0\0\0\0\0\0\xFF\x01", 11) + little(size, 2) + little(~size, 2) + bytes +
         little(~check, 4) + little(size, 4);
}

TEST_F(TamlogctlTest, WildcardsAreExpanded) {
  const std::string bytes = TestSupport::ReadBytes(SavedLog());
  TestSupport::WriteBytes(Path("b.dat"), bytes);
  EXPECT_EQ(Run("show -o cat -n 3 *.dat").out, "message 4\nmessage 5\nmessage 5\n");
  EXPECT_EQ(Run("show -o cat -n 1 --file ?.dat").out, "message 5\n");
  EXPECT_EQ(Run("verify -q \"" + Path("*.dat") + "\"").exitCode, 0);
  const auto nothing = Run("show *.log");
  EXPECT_EQ(nothing.exitCode, 3);
  EXPECT_NE(nothing.err.find("*.log: no file matches"), std::string::npos) << nothing.err;
}

TEST_F(TamlogctlTest, GzipAndStandardInputAreReadAndXzIsReported) {
  const std::string bytes = TestSupport::ReadBytes(SavedLog());
  TestSupport::WriteBytes(Path("Logs.gz"), StoredGzip(bytes));
  EXPECT_EQ(Run("show -o cat -n 2 Logs.gz").out, "message 4\nmessage 5\n");
  EXPECT_EQ(Run("show --count -", bytes).out, "6\n");
  EXPECT_EQ(Run("show --count --file -", StoredGzip(bytes)).out, "6\n");
  const std::string xz(
      "\xFD"
      "7zXZ\0 and so on",
      16);
  TestSupport::WriteBytes(Path("Logs.xz"), xz);
  const std::string problem = "this program cannot read xz data; decompress the file first";
  for (const char* const command :
       {"show Logs.xz", "stats Logs.xz", "merge Logs.xz", "verify Logs.xz", "repair Logs.xz New.dat",
        "convert Logs.xz New.dat", "export New.dat --file Logs.xz"}) {
    const Outcome outcome = Run(command);
    EXPECT_EQ(outcome.exitCode, 3) << command;
    EXPECT_NE(outcome.err.find("Logs.xz: " + problem), std::string::npos) << command << outcome.err;
    EXPECT_EQ(TestSupport::ReadBytes(Path("New.dat")), "") << command;
  }
  EXPECT_NE(Run("show -", xz).err.find("standard input: " + problem), std::string::npos);
}

TEST_F(TamlogctlTest, NothingMatchedIsOne) {
  EXPECT_EQ(Run("show -s Nobody " + MakeLog()).exitCode, 1);
}

TEST_F(TamlogctlTest, DamagedFileIsSevenAndItsMessagesAreShown) {
  const auto outcome = Run("show -o cat " + MakeLog(4 * sizeof(LogMessage)));
  EXPECT_EQ(outcome.exitCode, 7);
  EXPECT_EQ(outcome.out, "message 0\nmessage 1\nmessage 2\nmessage 3\n");
  EXPECT_NE(outcome.err.find("the file is too short: it has 4 of 8 slots"), std::string::npos) << outcome.err;
}

TEST_F(TamlogctlTest, SeveralFilesAreMergedByTime) {
  const std::string log = MakeLog();
  EXPECT_EQ(Run("show -o cat -n 3 " + log + " " + log).out, "message 4\nmessage 5\nmessage 5\n");
}

TEST_F(TamlogctlTest, MissingFileAndMissingServerAreThree) {
  EXPECT_EQ(Run("show --file missing.dat").exitCode, 3);
  EXPECT_EQ(Run("show").exitCode, 3);
  EXPECT_EQ(Run("follow").exitCode, 3);
  EXPECT_EQ(Run("send text").exitCode, 3);
  const auto status = Run("status");
  EXPECT_EQ(status.exitCode, 3);
  EXPECT_NE(status.out.find("server    not running"), std::string::npos) << status.out;
  EXPECT_NE(Run("status -o json").out.find("\"state\": \"not running\""), std::string::npos);
}

// A name that the system does not accept, a file that another program has open, a stream that is no file
// here.
TEST_F(TamlogctlTest, FailureOfAFileNamesItAndTheReasonOfTheSystem) {
  for (const char* const name : {"a*b?.dat", "/dev/stdin", "x<y"}) {
    const auto outcome = Run(std::string("show --file \"") + name + "\"");
    EXPECT_NE(outcome.exitCode, 0) << name;
    EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find("a system call failed"), std::string::npos) << outcome.err;
  }
  MakeLog();
  const TamLogClient::Handle held(
      CreateFileA(Path("Logs.dat").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(held);
  const auto outcome = Run("show --file \"" + Path("Logs.dat") + "\"");
  EXPECT_EQ(outcome.exitCode, 4) << outcome.err;
  EXPECT_NE(outcome.err.find("Logs.dat: "), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.find("access denied"), std::string::npos) << outcome.err;
}

TEST_F(TamlogctlTest, UsageErrorsAreTwoAndNameTheOptionAndTheFix) {
  const std::string log = MakeLog();
  const auto expectUsage = [this](const std::string& arguments, const std::string& word) {
    const auto outcome = Run(arguments);
    EXPECT_EQ(outcome.exitCode, 2) << arguments;
    EXPECT_NE(outcome.err.find(word), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.out, "") << arguments;
  };
  expectUsage("shwo", "there is no verb 'shwo'");
  expectUsage("show --bad", "--bad");
  expectUsage("show -o xml " + log, "-o");
  expectUsage("show -n many " + log, "'many' is neither a number, nor + and a number, nor 'all'");
  expectUsage("show -t 4 " + log, "-t '4': expected types from 0 to 3");
  expectUsage("show -s :1 " + log, "-s ':1': expected NAME or NAME:TYPES");
  expectUsage("show -S noon " + log, "-S 'noon': expected YYYY-MM-DD");
  expectUsage("show -g \"a(\" " + log, "add -F");
  expectUsage("show -F " + log, "-F: applies to -g and -v");
  expectUsage("show -f " + log, "a copied log does not grow");
  expectUsage("send -t 4 text", "-t");
  expectUsage("send --time noon text", "--time 'noon': expected YYYY-MM-DD [HH:MM");
  expectUsage("send --truncate --split text", "--split");
}

TEST_F(TamlogctlTest, SendTakesTimesAsTheOtherVerbsDo) {
  for (const std::string time :
       {"yesterday 10:00", "-1h30m", "@1767322800", "2026-01-02T03:04:05Z", "09:15"}) {
    EXPECT_EQ(Run("send --time \"" + time + "\" text").exitCode, 3) << time;  // no server runs here
  }
}

TEST_F(TamlogctlTest, WordThatBeginsWithASlashIsNoOption) {
  const auto outcome = Run("send \"/dev/null is gone\"");
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_NE(outcome.err.find("the server is not running"), std::string::npos) << outcome.err;
  const auto missing = Run("verify /nowhere/Logs.dat");
  EXPECT_EQ(missing.exitCode, 3);
  EXPECT_NE(missing.err.find("/nowhere/Logs.dat: no such file"), std::string::npos) << missing.err;
}

// A second run would otherwise send the lines before it twice.
TEST_F(TamlogctlTest, FileWithALineThatCannotBeSentIsNotSentAtAll) {
  const AcceptingServer server;
  const std::string file = Path("lines.txt");
  TestSupport::WriteBytes(file, "one\ntwo\n" + std::string(257, 'x') + "\nfour\n");
  Outcome outcome = Run("send --input text \"" + file + "\"");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_NE(outcome.err.find("line 3: the text has 257 bytes"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("nothing was sent: 1 of 4 lines cannot be sent"), std::string::npos)
      << outcome.err;
  EXPECT_EQ(server.Texts(), std::vector<std::string>());
  outcome = Run("send", "one\n" + std::string(257, 'x') + "\nthree\n");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.err.find("2 of 3 lines were sent; not sent: line 2"), std::string::npos) << outcome.err;
  EXPECT_EQ(server.Texts(), (std::vector<std::string>{"one", "three"}));
}

TEST_F(TamlogctlTest, SendNamesTheLineItRefuses) {
  const std::string longLine(257, 'x');
  auto outcome = Run("send", longLine + "\n");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_NE(outcome.err.find("line 1: the text has 257 bytes, 256 are allowed; add --truncate or --split"),
            std::string::npos)
      << outcome.err;
  outcome = Run("send --input tsv", "not tsv\n");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_NE(outcome.err.find("line 1: expected four columns"), std::string::npos) << outcome.err;
  EXPECT_EQ(Run("send -s " + longLine + " text").exitCode, 2);
  EXPECT_EQ(Run("send --input text missing.txt").exitCode, 3);
}

// The server rejects a valid message, or does not answer. No real server does that.
TEST_F(TamlogctlTest, RefusedMessagesAreSix) {
  const ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  const TestServer server(
      [](const PipeRequest& request, PipeReply& reply) {
        if (request.code == static_cast<std::uint32_t>(RequestCode::GetSettings))
          return ReplySettings(request, reply);
        reply.code = static_cast<std::uint32_t>(ReplyCode::Failed);
        return Answer::Reply;
      },
      kRequestPipeName);
  const Outcome sent = Run("send -s Camera text");
  EXPECT_EQ(sent.exitCode, 6) << sent.err;
  const Outcome imported = Run("import \"" + SavedLog() + "\"");
  EXPECT_EQ(imported.exitCode, 6) << imported.err;
  EXPECT_NE(imported.err.find("6 refused"), std::string::npos) << imported.err;
}

// A name in the settings, a filter and the name of the mapping come from other users of the machine.
TEST_F(TamlogctlTest, NothingThatAServerReportsControlsTheTerminal) {
  const std::string hostile = "x\x1b]0;owned\x07\xC2\x9B\xE2\x80\xAE\n\rend";
  const ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  const TestServer server(
      [&hostile](const PipeRequest& request, PipeReply& reply) {
        const auto code = static_cast<RequestCode>(request.code);
        reply.code = static_cast<std::uint32_t>(ReplyCode::Done);
        if (code == RequestCode::GetSettings) {
          ReplySettings(request, reply);
        } else if (code == RequestCode::GetFilter && request.index < 2) {
          hostile.copy(reply.filter.text, hostile.size());
          reply.filter.kind = request.index;
          reply.code = static_cast<std::uint32_t>(ReplyCode::Filter);
        } else if (code == RequestCode::GetFilter) {
          reply.code = static_cast<std::uint32_t>(ReplyCode::NoSuchFilter);
        } else if (code == RequestCode::GetFileMapName || code == RequestCode::GetLogFile) {
          hostile.copy(reply.path, hostile.size());
          reply.code = static_cast<std::uint32_t>(code == RequestCode::GetFileMapName ? ReplyCode::FileMapName
                                                                                      : ReplyCode::Path);
        } else if (code == RequestCode::Ping) {
          reply.code = static_cast<std::uint32_t>(ReplyCode::Alive);
        }
        return Answer::Reply;
      },
      kRequestPipeName);
  TestSupport::WriteBytes(Path("bad.txt"), "include\ta" + hostile + "\nexclude\t" + hostile);
  TestSupport::WriteBytes(Path("short.txt"), "include\t\x1b[\nexclude\t\xE2\x80\xAE\n");
  for (const char* const arguments :
       {"status", "status -o json", "settings path", "settings get", "filter list", "filter list -o tsv",
        "filter list -o json", "filter test Camera", "filter test x", "filter set bad.txt",
        "filter set short.txt", "filter remove 7", "doctor --watch 100", "doctor --watch 100 -o json",
        "server state"}) {
    const Outcome outcome = Run(arguments);
    for (const std::string& shown : {outcome.out, outcome.err}) {
      for (std::size_t i = 0; i < shown.size(); ++i) {
        if (shown[i] == '\n' || shown[i] == '\t') continue;
        EXPECT_EQ(TamLogClient::ControlLength(shown.substr(i)), 0U) << arguments << ": " << shown;
      }
      EXPECT_EQ(shown.find("\nend"), std::string::npos) << arguments << ": " << shown;
    }
  }
  EXPECT_NE(Run("status").out.find("\\x1b]0;owned"), std::string::npos);
  EXPECT_NE(Run("settings path").out.find("\\x1b]0;owned"), std::string::npos);
}

TEST_F(TamlogctlTest, ServerThatDoesNotAnswerInTimeIsFive) {
  const TestServer server([](const PipeRequest&, PipeReply&) { return Answer::Silence; }, kRequestPipeName);
  for (const std::string& command :
       std::vector<std::string>{"send -s Camera text", "settings get", "import \"" + SavedLog() + "\""}) {
    const Outcome outcome = Run(command + " --timeout 1000");
    EXPECT_EQ(outcome.exitCode, 5) << command << ": " << outcome.err;
  }
}

// Everybody may write to the shared log, the names of its events included.
TEST_F(TamlogctlTest, EventsThatAnotherUserChoseAreNotTouched) {
  ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  const TestServer server([](const PipeRequest&, PipeReply&) { return Answer::Silence; }, kRequestPipeName);
  const char* const victimName = "Global\\TamLogTestVictim";
  // Neither signalled nor reset: an event that resets itself is found as it was left.
  const TamLogClient::Handle victim(CreateEventA(nullptr, FALSE, FALSE, victimName));
  ASSERT_TRUE(victim);
  for (std::size_t i = 0; i < 3; ++i) {
    std::strcpy(reinterpret_cast<char*>(log.Bytes()) + kLockNamesOffset + i * kLockNameSize, victimName);
    for (const bool signalled : {false, true}) {
      for (const char* const command : {"show", "follow --for 1", "status --timeout 500", "show --count",
                                        "doctor --unstick --watch 100 --timeout 500"}) {
        signalled ? SetEvent(victim.Get()) : ResetEvent(victim.Get());
        const Outcome outcome = Run(command);
        EXPECT_NE(outcome.exitCode, 0) << command << "\n" << outcome.out;
        EXPECT_EQ(WaitForSingleObject(victim.Get(), 0) == WAIT_OBJECT_0, signalled) << command;
      }
    }
    const Outcome shown = Run("show");
    EXPECT_EQ(shown.exitCode, 7);
    EXPECT_EQ(shown.err.find("the log is empty"), std::string::npos) << shown.err;
    EXPECT_EQ(Run("stats").out, "");
    const std::string target = Path("export.txt");
    TestSupport::WriteBytes(target, "an earlier export");
    EXPECT_EQ(Run("export --force \"" + target + "\"").exitCode, 7);
    EXPECT_EQ(TestSupport::ReadBytes(target), "an earlier export");
    TamLogClient::LogReader reader;
    EXPECT_EQ(reader.Open(), TamLogClient::Status::ForeignEvents);
    EXPECT_EQ(reader.Open(kFileMapName, TamLogClient::EventNames::Any), TamLogClient::Status::Ok);
    reader.Close();
    const Outcome diagnosis = Run("doctor --timeout 500");
    EXPECT_NE(diagnosis.out.find("the log names the event '" + std::string(victimName)), std::string::npos)
        << diagnosis.out;
    const char* const own[] = {kHeaderLockName, kReadWaitEventName, kWriteWaitEventName};
    std::strcpy(reinterpret_cast<char*>(log.Bytes()) + kLockNamesOffset + i * kLockNameSize, own[i]);
    EXPECT_EQ(log.ReadCount(), 0);
  }
  EXPECT_EQ(Run("show").exitCode, 0);
}

// A program that cannot change the log cannot block the server, wherever it is killed.
TEST_F(TamlogctlTest, NothingButUnstickNeedsARightToChangeAnythingOfTheLog) {
  TamLogTest::RingModel content(8);
  content.Submit(TamLogTest::MakeBody(0, "one"));
  content.Flush();
  ServedLog log(content.Snapshot(), 0, kFileMapName);
  const TestServer server(ReplySettings, kRequestPipeName);
  log.AllowLookingOnly();
  EXPECT_FALSE(TamLogClient::Handle(OpenEventA(EVENT_MODIFY_STATE, FALSE, kHeaderLockName)));
  EXPECT_FALSE(TamLogClient::Handle(OpenFileMappingA(FILE_MAP_WRITE, FALSE, kFileMapName)));
  for (const char* const command : {"show -o cat", "show -n 1 -o cat", "follow -n 1 --for 1 -o cat"}) {
    const Outcome outcome = Run(command);
    EXPECT_EQ(outcome.exitCode, 0) << command << "\n" << outcome.err;
    EXPECT_EQ(outcome.out, "one\n") << command;
  }
  for (const char* const command : {"stats", "verify --live", "export out.txt"}) {
    const Outcome outcome = Run(command);
    EXPECT_EQ(outcome.exitCode, 0) << command << "\n" << outcome.err;
  }
  const std::string found = Run("doctor --timeout 500").out;
  for (const char* const line :
       {"fail  access   access denied to ", "ok    lock     free", "ok    readers  none is stuck",
        "ok    read     the newest messages were copied"}) {
    EXPECT_NE(found.find(line), std::string::npos) << line << "\n" << found;
  }
  log.TakeHeaderLock();
  EXPECT_NE(Run("doctor --timeout 500").out.find("fail  lock"), std::string::npos);
  EXPECT_FALSE(log.HeaderLockIsFree());
  log.FreeHeaderLock();
}

// Two programs pass the lock to each other, so that it is never seen free. A signal would let both in.
TEST_F(TamlogctlTest, UnstickDoesNotSignalALockThatIsOnlyContended) {
  ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  Outcome outcome;
  {
    const auto contend = [&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        log.TakeHeaderLock();
        most = std::max(most.load(), ++inside);
        Sleep(5);
        --inside;
        log.FreeHeaderLock();
      }
    };
    const std::jthread one(contend);
    const std::jthread other(contend);
    outcome = Run("doctor --unstick --watch 300 --timeout 500");
  }
  EXPECT_NE(outcome.out.find("unstick: nothing is stuck; nothing was done"), std::string::npos)
      << outcome.out;
  EXPECT_EQ(most, 1);
  EXPECT_TRUE(log.HeaderLockIsFree());
}

// A reader counted itself and died with the lock. A second one waits for the lock, counts itself when it is
// freed, and dies as well: the header changes before the readers are looked at again.
TEST_F(TamlogctlTest, UnstickFreesLockAndReadersAtOnceAlthoughTheFreedLockLetsAnotherReaderMove) {
  ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  log.SetReadCount(1);
  log.TakeHeaderLock();
  std::thread second([&log] {
    log.TakeHeaderLock();
    log.SetReadCount(2);
    log.FreeHeaderLock();
  });
  const Outcome outcome = Run("doctor --unstick --watch 300 --timeout 500");
  second.join();
  EXPECT_NE(outcome.out.find("unstick: signalled the header lock"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("unstick: set readCount to 0"), std::string::npos) << outcome.out;
  EXPECT_EQ(log.ReadCount(), 0);
  EXPECT_TRUE(log.HeaderLockIsFree());
}

TEST_F(TamlogctlTest, ExportKeepsItsTargetWhenTheSharedHeaderLeavesNothingToRead) {
  ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  const TestServer server([](const PipeRequest&, PipeReply&) { return Answer::Silence; }, kRequestPipeName);
  const std::string target = Path("export.txt");
  TestSupport::WriteBytes(target, "an earlier export");
  for (const std::int32_t capacity : {0, -1, std::numeric_limits<std::int32_t>::min(), 1000000}) {
    std::memcpy(log.Bytes() + offsetof(LogFileHeader, maxMessages), &capacity, sizeof(capacity));
    for (const char* const kind : {"", " --log", " -o json"}) {
      const Outcome outcome = Run("export --force \"" + target + "\"" + kind);
      EXPECT_EQ(outcome.exitCode, 7) << outcome.err;
      EXPECT_NE(outcome.err.find("not written, because no message could be read"), std::string::npos)
          << outcome.err;
      EXPECT_EQ(TestSupport::ReadBytes(target), "an earlier export");
    }
    EXPECT_EQ(Run("show").err.find("the log is empty"), std::string::npos);
  }
}

// Any process can offer the pipe.
TEST_F(TamlogctlTest, TextsThatComeOverThePipeNeverReachTheTerminalAsTheyAre) {
  const std::string evil =
      "C:\\a\x1b]0;owned\x07\x9b"
      "2J.dat";
  const ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  const TestServer server(
      [&evil](const PipeRequest& request, PipeReply& reply) {
        const auto code = static_cast<RequestCode>(request.code);
        if (code == RequestCode::GetSettings) {
          ReplySettings(request, reply);
        } else if (code == RequestCode::GetFilter && request.index == 0) {
          std::strcpy(reply.filter.text, evil.c_str());
          reply.filter.kind = 0;
          reply.code = static_cast<std::uint32_t>(ReplyCode::Filter);
        } else if (code == RequestCode::GetFilter) {
          reply.code = static_cast<std::uint32_t>(ReplyCode::NoSuchFilter);
        } else if (code == RequestCode::GetLogFile || code == RequestCode::GetFileMapName) {
          std::strcpy(reply.path, evil.c_str());
          reply.code = static_cast<std::uint32_t>(code == RequestCode::GetLogFile ? ReplyCode::Path
                                                                                  : ReplyCode::FileMapName);
        } else {
          reply.code = static_cast<std::uint32_t>(ReplyCode::Done);
        }
        return Answer::Reply;
      },
      kRequestPipeName);
  TestSupport::WriteBytes(Path("filters.txt"), "exclude\ta\n");
  for (const char* const command :
       {"status", "status -o json", "settings path", "settings", "filter", "filter -o tsv", "filter -o json",
        "filter test C:\\a", "filter add -x C:\\a", "filter set filters.txt", "doctor", "doctor -o json",
        "settings set --capacity 9 --no-wait --no-keep --no-backup"}) {
    const Outcome outcome = Run(command);
    for (const char letter : {'\x1b', '\x07', '\x9b'})
      EXPECT_EQ((outcome.out + outcome.err).find(letter), std::string::npos) << command << "\n"
                                                                             << outcome.out;
  }
  EXPECT_NE(Run("settings path").out.find("\\x1b]0;owned\\x07"), std::string::npos);
}

// The pipe's name belongs to nobody while no server runs.
TEST_F(TamlogctlTest, DoctorNamesTheProcessesThatTakeTheServersPlace) {
  const ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  const TestServer server(
      [](const PipeRequest&, PipeReply& reply) {
        reply.code = static_cast<std::uint32_t>(ReplyCode::Alive);
        return Answer::Reply;
      },
      kRequestPipeName);
  const std::string own =
      "process " + std::to_string(GetCurrentProcessId()) + " (tamlogctl_program_tests.exe)";
  const Outcome outcome = Run("doctor");
  EXPECT_NE(outcome.exitCode, 0);
  EXPECT_NE(outcome.out.find("fail  pipe     served by " + own + ", which is not the service"),
            std::string::npos)
      << outcome.out;
  for (const char* const name : {kFileMapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName}) {
    EXPECT_NE(outcome.out.find(std::string("fail  names    ") + name +
                               " exists although the server does not run; held by " + own),
              std::string::npos)
        << outcome.out;
  }
  EXPECT_EQ(server.Requests().size(), 0U);  // an impostor is asked nothing
}

// A process that creates the request pipe alone keeps every client out.
TEST_F(TamlogctlTest, DoctorNamesTheProcessThatHoldsTheRequestPipeAlone) {
  const TamLogClient::Handle squatted(
      CreateNamedPipeA(kRequestPipeName, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr));
  ASSERT_TRUE(squatted);
  const Outcome named = Run("doctor --timeout 1500");
  EXPECT_NE(named.out.find("fail  pipe     served by process " + std::to_string(GetCurrentProcessId()) +
                           " (tamlogctl_program_tests.exe), which is not the service"),
            std::string::npos)
      << named.out;
  DisconnectNamedPipe(squatted.Get());
  const TamLogClient::Handle client(
      CreateFileA(kRequestPipeName, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  const Outcome busy = Run("doctor --timeout 1500");
  EXPECT_NE(busy.exitCode, 0);
  EXPECT_NE(busy.out.find("fail  pipe     exists although the service does not run"), std::string::npos)
      << busy.out;
}

// A server that is starting has its log mapped before it has its pipes. A program that maps it then keeps the
// server from making the file smaller.
TEST_F(TamlogctlTest, LogOfAServerWithoutPipesIsNotOpened) {
  TamLogTest::RingModel model(8);
  model.Submit(TamLogTest::MakeBody(1, "there"));
  model.Flush();
  const ServedLog log(model.Snapshot(), 0, kFileMapName);
  EXPECT_EQ(Run("show").exitCode, 3);
  const TestServer server([](const PipeRequest&, PipeReply&) { return Answer::Silence; }, kRequestPipeName);
  const Outcome shown = Run("show");
  EXPECT_EQ(shown.exitCode, 0) << shown.err;
  EXPECT_NE(shown.out.find("there"), std::string::npos) << shown.out;
  EXPECT_EQ(server.Requests().size(), 0U);
}

TEST_F(TamlogctlTest, ImportIntoALogThatCannotBeReadIsFive) {
  ServedLog log(TamLogTest::RingModel(8).Snapshot(), 0, kFileMapName);
  log.CloseReadWait();
  const TestServer server(ReplySettings, kRequestPipeName);
  const Outcome outcome = Run("import \"" + SavedLog() + "\" --timeout 1000");
  EXPECT_EQ(outcome.exitCode, 5) << outcome.err;
  EXPECT_NE(outcome.err.find("the server's log cannot be read"), std::string::npos) << outcome.err;
  EXPECT_EQ(server.Requests().size(), 1U);  // nothing was sent
}

TEST_F(TamlogctlTest, HelpAndVersionGoToStandardOutput) {
  for (const char* const arguments :
       {"--help", "help", "show --help", "help send", "help follow", "status -h"}) {
    const auto outcome = Run(arguments);
    EXPECT_EQ(outcome.exitCode, 0) << arguments;
    EXPECT_NE(outcome.out.find("Examples:"), std::string::npos) << arguments;
    EXPECT_EQ(outcome.err, "");
  }
  EXPECT_EQ(Run("version").out.rfind("tamlogctl ", 0), 0U);
  EXPECT_EQ(Run("--version").exitCode, 0);
}

TEST_F(TamlogctlTest, ColorsOnlyWhereTheyAreRequested) {
  const std::string log = MakeLog();
  EXPECT_EQ(Run("show " + log).out.find('\x1b'), std::string::npos);
  EXPECT_NE(Run("show --color always " + log).out.find('\x1b'), std::string::npos);
  EXPECT_EQ(Run("show --color never " + log).out.find('\x1b'), std::string::npos);
}

}  // namespace
