// Runs every operation of the pipe server with its first, second, third ... system call failing, on its own
// threads too. After each round the server ends within a bound, leaves nothing open, and serves clients when
// it is started again.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "pipe/connection.h"
#include "pipe/connection_list.h"
#include "pipe/overlap.h"
#include "pipe/pipe_server.h"
#include "pipe/security_attributes.h"
#include "tests/pipe/pipe_server_fixture.h"
#include "tests/support/call_sweep.h"
#include "tests/support/diagnostic_log_capture.h"

namespace {

using TamLogUtil::Timeout;
using TestSupport::Beyond;
using TestSupport::DiagnosticLogCapture;
using TestSupport::FailedCall;
using TestSupport::kAlive;
using TestSupport::kPing;
using TestSupport::Outcomes;
using TestSupport::PipeClient;
using TestSupport::PlainText;
using TestSupport::Sweep;
using TestSupport::TestHandler;
using TestSupport::WaitUntil;

constexpr std::uint32_t kBoundMs = 20000;
constexpr int kStride = 3;
constexpr std::uint32_t kHalfwayMs = 2000;

// The outcomes of a server with its listener and connections: a failure on the test's own thread is thrown,
// one on a thread of the server ends that thread with an entry in the log, and one of releasing something is
// silent.
Outcomes ServerOutcomes() {
  const std::string onThread =
      "Thread terminated due to unhandled exception : Exception occured during thread Run() / ";
  const std::string lock = "Failed to Wait for Mutex object / WaitForSingleObject failed (6)";
  const std::string completion = "Failed to create the completion event in Overlap construction";
  const std::string cancellation = "Failed to create the cancellation event in Overlap construction";
  Outcomes outcomes = {
      {"CreateEventA",
       {"Failed to create Mutex object / CreateEvent() failed (8)", completion + " (8)",
        cancellation + " (8)"}},
      {"DuplicateHandle",
       {completion + " (1450)", cancellation + " (1450)", "Failed to wait for Thread object in Join() (1450)",
        ""}},
      {"ResetEvent", {"Failed to reset overlap object / ResetEvent failed (6)"}},
      {"SetEvent",
       {"Failed to cancel asynchronous operation / SetEvent failed (6)",
        "Failed to RemoveSignal for Mutex object / SetEvent failed (6)", ""}},
      {"WaitForSingleObject", {lock, "Failed to wait for Thread object in Join() (6)", ""}},
      {"WaitForMultipleObjects", {"WaitForMultipleObjects failed (6)", ""}},
      {"CreateThread", {"Failed to start Thread object, invalid handle returned by CreateThread() (8)"}},
      {"AllocateAndInitializeSid", {"AllocateAndInitializeSid() failed (8)"}},
      {"InitializeSecurityDescriptor", {"InitializeSecurityDescriptor() failed (1305)"}},
      {"SetEntriesInAclA", {"SetEntriesInAcl() failed (8)"}},
      {"SetSecurityDescriptorDacl", {"SetSecurityDescriptorDacl() failed (1338)"}},
  };
  for (auto& [call, texts] : outcomes) {
    const std::set<std::string> thrown = texts;
    for (const std::string& text : thrown) {
      if (!text.empty()) texts.insert(onThread + text);
    }
  }
  for (const char* const call :
       {"CreateNamedPipeA", "ConnectNamedPipe", "DisconnectNamedPipe", "ReadFile", "WriteFile", "CancelIoEx",
        "CloseHandle", "LocalFree", "FreeSid", "TerminateThread"}) {
    outcomes[call] = {""};
  }
  return outcomes;
}

const Outcomes kNoAttributes = {
    {"AllocateAndInitializeSid", {"AllocateAndInitializeSid() failed (8)"}},
    {"InitializeSecurityDescriptor", {"InitializeSecurityDescriptor() failed (1305)"}},
    {"SetEntriesInAclA", {"SetEntriesInAcl() failed (8)"}},
    {"SetSecurityDescriptorDacl", {"SetSecurityDescriptorDacl() failed (1338)"}},
    {"LocalFree", {""}},
    {"FreeSid", {""}},
};

TEST(PipeCallSweep, SecurityAttributesThatCannotBeBuiltAreReported) {
  EXPECT_EQ(Sweep({.operation = [] { EveryoneSecurity(kPipeAccess).GetSecurityAttributes(); }}),
            kNoAttributes);
}

TEST(PipeCallSweep, AnOverlapThatCannotBeMadeOrUsedIsReported) {
  const Outcomes outcomes = Sweep({.operation = [] {
    Overlap overlap;
    overlap.Cancel();
    overlap.Reset();
    overlap.Wait(0);
  }});
  const std::string completion = "Failed to create the completion event in Overlap construction";
  const std::string cancellation = "Failed to create the cancellation event in Overlap construction";
  EXPECT_EQ(outcomes, (Outcomes{
                          {"CreateEventA", {completion + " (8)", cancellation + " (8)"}},
                          {"DuplicateHandle", {completion + " (1450)", cancellation + " (1450)"}},
                          {"SetEvent", {"Failed to cancel asynchronous operation / SetEvent failed (6)"}},
                          {"ResetEvent", {"Failed to reset overlap object / ResetEvent failed (6)"}},
                          {"WaitForMultipleObjects", {"WaitForMultipleObjects failed (6)"}},
                          {"CloseHandle", {""}},
                      }));
}

class PipeServerSweep : public testing::Test {
 protected:
  void MakeServer() {
    server = std::make_unique<PipeServer>(name);
    handler.server = server.get();
    server->SetMessageHandler(&handler);
  }

  // Returns whether a ping is answered. Waits longer with each try, for a busy machine; gives up soon after a
  // call has failed: it may have been the listener's.
  bool IsServed(bool whateverFails) {
    int left = 10;
    std::uint32_t patience = 50;
    return WaitUntil(
        [&] {
          PipeClient client(name);
          if (ConnectsTo(client, patience) && client.CallCode(kPing, 4 * patience) == kAlive) return true;
          if (whateverFails || FailedCall().empty()) {
            patience *= 2;
            return false;
          }
          patience = 50;
          return --left == 0;
        },
        std::chrono::milliseconds(kBoundMs));
  }

  // A client that gave up between its two opens would keep all later ones waiting: after the first open it
  // gets enough time.
  static bool ConnectsTo(PipeClient& client, std::uint32_t patience) {
    return client.Connect(patience) || (client.RequestPipe() != nullptr && client.OpenReplyPipe(kHalfwayMs));
  }

  void StartWithASilentClient() {
    log.emplace();
    MakeServer();
    server->Start();
    silent.emplace(name);
    ASSERT_TRUE(silent->Connect(kBoundMs));
    ASSERT_EQ(silent->CallCode(kPing), kAlive);
  }

  // Returns whether the server ends in time. Join can return while a thread that failed still writes its
  // entry into the log, so its end is waited for.
  bool Ends() {
    server->Stop();
    Timeout timeout(kBoundMs);
    return server->Join(timeout) && TestSupport::ThreadsEnd(kBoundMs);
  }

  // After any failure the server ends, and serves when it is started again.
  void WorksAgain() {
    if (server == nullptr) return;
    EXPECT_TRUE(Ends());
    log.reset();
    server->Start();
    EXPECT_TRUE(IsServed(true));
    EXPECT_TRUE(Ends());
    server.reset();
  }

  std::string Logged() const {
    std::string texts;
    for (const std::string& text : log->Texts()) texts += PlainText(text);
    return texts;
  }

  const std::string name = TestSupport::PipeNameForThisProcess("TamLogTestCallSweep");
  TestHandler handler;
  std::unique_ptr<PipeServer> server;
  std::optional<PipeClient> silent;
  std::optional<DiagnosticLogCapture> log;
};

TEST_F(PipeServerSweep, AServerServesAtTheNextStartWhicheverCallFailed) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { log.emplace(); },
      .operation =
          [&] {
            MakeServer();
            server->Start();
            EXPECT_TRUE(IsServed(false));
            Ends();
          },
      .check = [&] { WorksAgain(); },
      .report = [&] { return Logged(); },
      .stride = kStride,
  });
  EXPECT_EQ(Beyond(outcomes, ServerOutcomes()), (Outcomes{}));
}

// The listener waits for a client, and a connected client sends nothing: the stop ends both waits.
TEST_F(PipeServerSweep, AStopWithASilentClientEndsWhicheverCallFails) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { StartWithASilentClient(); },
      .operation = [&] { EXPECT_TRUE(Ends()); },
      .check =
          [&] {
            silent.reset();
            WorksAgain();
          },
      .report = [&] { return Logged(); },
      .stride = kStride,
  });
  EXPECT_EQ(Beyond(outcomes, ServerOutcomes()), (Outcomes{}));
}

// Destroyed without a stop: the destructor ends everything.
TEST_F(PipeServerSweep, ARunningServerIsDestroyedWhicheverCallFails) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { StartWithASilentClient(); },
      .operation = [&] { server.reset(); },
      .check =
          [&] {
            silent.reset();
            log.reset();
          },
      .report = [&] { return Logged(); },
      .stride = kStride,
  });
  EXPECT_EQ(Beyond(outcomes, ServerOutcomes()), (Outcomes{}));
}

}  // namespace
