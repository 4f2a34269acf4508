// Runs every operation of the server with its first, second, third ... system call failing. After each round
// a stop ends, nothing is left open, and the next start serves.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "server/configuration.h"
#include "server/program.h"
#include "server/registry_key.h"
#include "tests/server/server_fixture.h"
#include "tests/support/call_sweep.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/pipe_client.h"
#include "util/win32.h"

namespace {

using TestSupport::DiagnosticLogCapture;
using TestSupport::Outcomes;
using TestSupport::PlainFailureOf;
using TestSupport::PlainText;
using TestSupport::Sweep;

constexpr char kTestKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server\Call Sweep)";

constexpr std::uint32_t kFifthOfASecond = 214748365;
static_assert(kFifthOfASecond * 1000U == 200);
constexpr int kSlowStride = 7;
constexpr int kSlowestStride = 15;

// The possible ends of the text when a call has failed: the level that names the call. "": a call whose
// failure is silent in places, or logged later by a thread of the server.
const std::map<std::string, std::set<std::string>>& Causes() {
  static const std::string join = "Failed to wait for Thread object in Join()";
  static const std::string completion = "Failed to create the completion event in Overlap construction";
  static const std::string cancellation = "Failed to create the cancellation event in Overlap construction";
  static const std::string size = "Failed to open log file, GetFileSizeEx() failed";
  static const std::map<std::string, std::set<std::string>> causes = {
      {"CreateEventA", {"CreateEvent() failed (8)", completion + " (8)", cancellation + " (8)", ""}},
      {"DuplicateHandle",
       {"CreateEvent() failed (1450)", join + " (1450)", completion + " (1450)", cancellation + " (1450)",
        size + " (6)", ""}},
      {"SetEvent", {"SetEvent failed (6)", ""}},
      {"ResetEvent", {"ResetEvent failed (6)", ""}},
      {"WaitForSingleObject", {"WaitForSingleObject failed (6)", join + " (6)", ""}},
      {"WaitForMultipleObjects", {"WaitForMultipleObjects failed (6)", ""}},
      {"SignalObjectAndWait", {""}},
      {"CreateThread", {"Failed to start Thread object, invalid handle returned by CreateThread() (8)", ""}},
      {"AllocateAndInitializeSid", {"AllocateAndInitializeSid() failed (8)", ""}},
      {"InitializeSecurityDescriptor", {"InitializeSecurityDescriptor() failed (1305)", ""}},
      {"SetEntriesInAclA", {"SetEntriesInAcl() failed (8)", ""}},
      {"SetSecurityDescriptorDacl", {"SetSecurityDescriptorDacl() failed (1338)", ""}},
      {"CreateFileA",
       {"Failed to get access to the Tamlog device driver, CreateFile() failed. (5)",
        "Failed to open log file, CreateFile() failed (5)",
        "Failed to wait for log file to be free, CreateFile failed() (5)"}},
      {"GetFileSizeEx", {size + " (1117)", ""}},
      {"SetFilePointerEx", {"Failed to resize file, SetFilePointerEx() failed in ResizeFile() (1117)"}},
      {"SetEndOfFile", {"Failed to resize file, SetEndOfFile() failed in ResizeFile() (112)"}},
      {"CreateFileMappingA", {"Failed to open a file mapping, CreateFileMapping() failed (1455)"}},
      {"MapViewOfFile", {"Failed to map a file view, MapViewOfFile() failed (8)"}},
      {"VirtualQuery", {"Failed to open a file mapping, CreateFileMapping() failed (87)"}},
      {"UnmapViewOfFile", {"Failed to close file view, UnmapViewOfFile() failed (487)"}},
      {"CloseHandle",
       {"Failed to close file view, CloseHandle() failed (6)",
        "Failed to destroy Event object / CloseHandle() failed: (6)", ""}},
      {"FlushViewOfFile",
       {"Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk() (1117)",
        "Failed to force log file changes to be saved to disk, FlushViewOfFile() failed in CloseFile() "
        "(1117)"}},
      {"RegCreateKeyExA", {"RegCreateKeyEx() failed (5)"}},
      {"RegQueryValueExA", {"ReadData() failed (1018)", ""}},
      {"GetModuleFileNameA", {"Failed to obtain executable's location"}},
  };
  return causes;
}

bool IsExplained(const std::string& call, std::string text) {
  const auto known = Causes().find(call);
  if (known == Causes().end()) return text.empty();
  const std::string answered = " | failed";
  if (text.ends_with(answered)) text.resize(text.size() - answered.size());
  return std::any_of(known->second.begin(), known->second.end(), [&](const std::string& cause) {
    return cause.empty() ? text.empty() : text.ends_with(cause);
  });
}

// The outcomes whose text does not name the call that failed.
Outcomes Unexplained(const Outcomes& outcomes) {
  Outcomes unexplained;
  for (const auto& [call, texts] : outcomes) {
    for (const std::string& text : texts) {
      if (!IsExplained(call, text)) unexplained[call].insert(text);
    }
  }
  return unexplained;
}

class ServerCallSweep : public ServerTest {
 protected:
  ServerCallSweep() {
    service.reset();
    // Timers that sleep a second at a time would delay every stop. The period is a product of seconds that
    // wraps: this one is 200 ms.
    registry::SetNumber("SaveRate", kFifthOfASecond);
    registry::SetNumber("DevicePollRate", 200);
  }

  void MakeService() { service = std::make_unique<ServerService>(); }

  void StartService() {
    MakeService();
    service->OnStart();
  }

  // After any failure the stop ends, and a service started afterwards accepts messages.
  void StopsAndStartsAgain(const std::string& expected = "") {
    if (service != nullptr) PlainFailureOf([&] { service->OnStop(); });
    service.reset();
    EXPECT_TRUE(TestSupport::ThreadsEnd(20000));
    log.reset();
    MakeService();
    EXPECT_EQ(PlainFailureOf([&] { service->OnStart(); }), "");
    if (!expected.empty()) {
      EXPECT_TRUE(IsInLog(expected));
    }
    Submit(*service, MakeMessage("next"));
    EXPECT_TRUE(Arrives("next"));
    TestSupport::PipeClient client;
    EXPECT_TRUE(client.Connect());
    EXPECT_EQ(client.CallCode(4), 13U);
    client.Disconnect();
    EXPECT_EQ(PlainFailureOf([&] { service->OnStop(); }), "");
    service.reset();
    EXPECT_TRUE(ServerClosesDriver());
  }

  std::string Logged() const {
    std::string texts;
    for (const std::string& text : log->Texts()) texts += PlainText(text);
    return texts;
  }

  // An operation of a running service.
  TestSupport::SweptOperation OfRunning(std::function<void()> operation, const std::string& expected = "") {
    return {.prepare =
                [this] {
                  log.emplace();
                  StartService();
                },
            .operation = std::move(operation),
            .check = [this, expected] { StopsAndStartsAgain(expected); },
            .report = [this] { return Logged(); },
            .eventsAreSet = true,
            .stride = kSlowStride};
  }

  std::optional<DiagnosticLogCapture> log;
};

TEST_F(ServerCallSweep, ARegistryKeyReportsFailedReadsAndIgnoresFailedWrites) {
  const Outcomes outcomes = Sweep({
      .operation =
          [&] {
            RegistryKey key(kTestKey);
            key.WriteNumber("Number", 1);
            key.WriteText("Text", "text");
            key.ReadNumber("Number", 2);
            key.ReadText("Text", "other");
            key.ReadNumber("Missing", 3);
            while (key.NextValue()) {
            }
            key.DeleteSubkey("Nothing");
          },
      .check = [] { RegistryKey(kConfigurationKey).DeleteSubkey("Call Sweep"); },
  });
  EXPECT_EQ(outcomes, (Outcomes{
                          {"RegCreateKeyExA", {"RegCreateKeyEx() failed (5)"}},
                          {"RegSetValueExA", {""}},
                          {"RegQueryValueExA", {"", "ReadData() failed (1018)"}},
                          {"RegEnumValueA", {""}},
                          {"RegDeleteKeyA", {""}},
                          {"RegCloseKey", {""}},
                      }));
}

TEST_F(ServerCallSweep, AServiceObjectThatCannotBeMadeIsReported) {
  const Outcomes outcomes = Sweep({
      .operation = [&] { MakeService(); },
      .check = [&] { service.reset(); },
  });
  EXPECT_EQ(Unexplained(outcomes), (Outcomes{}));
}

TEST_F(ServerCallSweep, AProgramThatDoesNotFindItselfMakesNoService) {
  bool made = false;
  Outcomes outcomes = Sweep({
      .operation = [&] { made = CreateServiceObject(); },
      .check =
          [&] {
            delete serviceObject;
            serviceObject = nullptr;
          },
      .report = [&] { return std::string(made ? "made" : "not made"); },
  });
  EXPECT_EQ(outcomes["GetModuleFileNameA"], (std::set<std::string>{"not made"}));
}

TEST_F(ServerCallSweep, AFailedStartIsReportedAndCanBeRepeated) {
  Outcomes outcomes = Sweep({
      .prepare =
          [&] {
            log.emplace();
            MakeService();
          },
      .operation = [&] { service->OnStart(); },
      .check = [&] { StopsAndStartsAgain(); },
      .report = [&] { return Logged(); },
      .eventsAreSet = true,
      .stride = kSlowStride,
  });
  EXPECT_EQ(Unexplained(outcomes), (Outcomes{}));
}

TEST_F(ServerCallSweep, AFailedStopIsReportedAndTheNextStartServes) {
  const Outcomes outcomes = Sweep(OfRunning([&] { service->OnStop(); }));
  EXPECT_EQ(Unexplained(outcomes), (Outcomes{}));
}

// A destructor returns a ticket, and a failure must not leave it: that would end the process.
TEST_F(ServerCallSweep, ARestartTicketIsGivenBackWhicheverCallFails) {
  std::unique_ptr<Lifecycle> lifecycle;
  const Outcomes outcomes = Sweep({
      .prepare = [&] { lifecycle = std::make_unique<Lifecycle>(); },
      .operation = [&] { EXPECT_TRUE(Lifecycle::RestartTicket(*lifecycle).Delay(0)); },
      .check =
          [&] {
            EXPECT_TRUE(lifecycle->WaitForRestarts(0));
            lifecycle.reset();
          },
  });
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"ResetEvent", {"Failed to RemoveSignal for Event object / ResetEvent failed (6)"}},
                {"WaitForSingleObject", {"Failed to Wait for Event object / WaitForSingleObject failed (6)"}},
                {"SetEvent", {""}},
            }));
}

// On the thread of the test instead of a restart thread.
TEST_F(ServerCallSweep, AFailedRestartIsReportedAndTheManagersStopAndStartServe) {
  auto restart = OfRunning([&] {
    Lifecycle::RestartTicket ticket = service->NewRestartTicket();
    EXPECT_TRUE(ticket.Delay(0));
    service->Restart(ticket);
  });
  restart.stride = kSlowestStride;
  EXPECT_EQ(Unexplained(Sweep(restart)), (Outcomes{}));
}

// Destroyed without a stop: the destructor ends everything. Only the failure to close an event leaves it.
TEST_F(ServerCallSweep, ARunningServiceIsDestroyedWhicheverCallFails) {
  // A plain delete, which lets an exception out; that of the smart pointer would end the process.
  // NOLINTNEXTLINE(readability-uniqueptr-delete-release)
  auto destruction = OfRunning([&] { delete service.release(); });
  destruction.stride = kSlowestStride;
  EXPECT_EQ(Unexplained(Sweep(destruction)), (Outcomes{}));
}

TEST_F(ServerCallSweep, AStopThatMovesTheFileServesAtEitherPlace) {
  const std::string other = folder.File("Moved.dat");
  const Outcomes outcomes = Sweep({
      .prepare =
          [&] {
            log.emplace();
            DeleteFileA(other.c_str());
            StartService();
            Ask(*service, MakeRequest(RequestCode::SetLogFile, other));
          },
      .operation = [&] { service->OnStop(); },
      .check =
          [&] {
            service.reset();
            registry::SetText("LogFile", logFile);
            StopsAndStartsAgain();
          },
      .report = [&] { return Logged(); },
      .eventsAreSet = true,
      .stride = kSlowStride,
  });
  EXPECT_EQ(Unexplained(outcomes), (Outcomes{}));
}

// By name: other threads make calls at the same time, so a number might hit the wrong one.
TEST_F(ServerCallSweep, AFileThatCannotBeMovedStaysWhereItIs) {
  const std::string other = folder.File("Moved.dat");
  log.emplace();
  StartService();
  Ask(*service, MakeRequest(RequestCode::SetLogFile, other));
  TestSupport::ArmCallFault(1, "MoveFileA", true);
  EXPECT_EQ(PlainFailureOf([&] { service->OnStop(); }), "");
  TestSupport::DisarmCallFault();
  EXPECT_EQ(TestSupport::FailedCall(), "MoveFileA");
  EXPECT_EQ(GetFileAttributesA(other.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_NE(GetFileAttributesA(logFile.c_str()), INVALID_FILE_ATTRIBUTES);
  service.reset();
  registry::SetText("LogFile", logFile);
  StopsAndStartsAgain();
}

TEST_F(ServerCallSweep, AFailedTickIsLoggedAndTheNextOneMakesUpForIt) {
  const Outcomes outcomes = Sweep(OfRunning(
      [&] {
        driver->Put(std::vector<LogMessageBody>{MakeMessage("polled")});
        service->OnTimer(kDriverPollTimer);
        service->OnTimer(kFlushWritesTimer);
        service->OnTimer(kWriteToDiskTimer);
        // The message that the failing call kept back.
        service->OnTimer(kDriverPollTimer);
        EXPECT_TRUE(Arrives("polled"));
      },
      "polled"));
  EXPECT_EQ(Unexplained(outcomes), (Outcomes{}));
}

TEST_F(ServerCallSweep, ARequestThatFailsIsAnsweredAndLogged) {
  std::string replies;
  const auto ask = [&](const GuardedRequest& request) {
    const std::size_t entries = log->Count();
    if (!Is(Ask(*service, request), ReplyCode::Failed)) return;
    replies += "failed";
    EXPECT_GT(log->Count(), entries) << "answered Failed without an entry: " << request.request.code;
  };
  GuardedRequest settings = MakeRequest(RequestCode::SetSettings);
  settings.request.settings = {
      .maxMessage = kCapacity, .devicePollRate = 200, .typeFilter = 15, .saveRate = kFifthOfASecond};
  GuardedRequest message = MakeRequest(RequestCode::SubmitMessage);
  message.request.message = MakeMessage("asked");
  TestSupport::SweptOperation operation = OfRunning([&] {
    replies.clear();
    for (const RequestCode code :
         {RequestCode::Ping, RequestCode::GetFileMapName, RequestCode::GetSettings, RequestCode::GetLogFile,
          RequestCode::GetDefaultLogFile, RequestCode::GetFilter, RequestCode::ClearFilters}) {
      ask(MakeRequest(code));
    }
    ask(MakeRequest(RequestCode::AddFilter, "filter"));
    ask(MakeRequest(RequestCode::ClearFilters));
    ask(MakeRequest(RequestCode::SetLogFile, logFile));
    ask(message);
    ask(MakeRequest(RequestCode::ClearLog));
    ask(settings);
  });
  operation.report = [&] { return Logged() + (replies.empty() ? "" : " | " + replies); };
  const Outcomes outcomes = Sweep(operation);
  EXPECT_EQ(Unexplained(outcomes), (Outcomes{}));
}

}  // namespace
