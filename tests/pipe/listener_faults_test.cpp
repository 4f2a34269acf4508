// A listener whose system calls fail, and clients that connect at critical moments.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/pipe/call_faults.h"
#include "tests/pipe/pipe_server_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::Exceptions::ExceptionBase;
using TestSupport::CallFault;
using TestSupport::Clock;
using TestSupport::DiagnosticLogCapture;
using TestSupport::Faults;
using TestSupport::kAlive;
using TestSupport::kPing;
using TestSupport::MillisecondsSince;
using TestSupport::PipeClient;
using TestSupport::WaitUntil;

namespace {

constexpr auto kOthers = CallFault::On::OtherThreads;
constexpr auto kThis = CallFault::On::ThisThread;
constexpr char kLogPrefix[] =
    "Thread terminated due to unhandled exception : Exception occured during thread Run()\n";

class ListenerFaults : public TestSupport::PipeServerFixture {
 protected:
  ListenerFaults() { Faults().Clear(); }
  ~ListenerFaults() override { Faults().Clear(); }

  // Runs before the members that the replaced calls use are destroyed.
  void EndServer() {
    server->Stop();
    EXPECT_TRUE(JoinWithin(10000));
  }

  // Starts the server, expects its listener to end with one log entry that begins with `text`, and checks
  // that a second start works.
  void ExpectLoggedEnd(const std::string& text, bool withClient) {
    {
      DiagnosticLogCapture log;
      server->Start();
      PipeClient client(name);
      EXPECT_TRUE(!withClient || IsTakenAndSentAway(client));
      ASSERT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
      const std::string expected = kLogPrefix + text;
      EXPECT_EQ(log.Texts()[0].substr(0, expected.size()), expected);
      EXPECT_TRUE(JoinWithin(10000));
      EXPECT_EQ(handler.ended, 0);
    }
    Faults().Clear();
    server->Stop();
    server->Start();
    EXPECT_TRUE(Serves());
  }
};

TEST_F(ListenerFaults, SecurityThatCannotBeBuiltEndsTheListenerAndIsLogged) {
  Faults().allocateSid.Fail(ERROR_NOT_ENOUGH_MEMORY, kOthers);
  ExpectLoggedEnd("AllocateAndInitializeSid() failed - Error code : 8 - ", false);
}

TEST_F(ListenerFaults, WaitThatFailsEndsTheListenerAndIsLogged) {
  Faults().waitForMultiple.Fail(ERROR_INVALID_HANDLE, kOthers);
  ExpectLoggedEnd("WaitForMultipleObjects failed - Error code : 6 - ", false);
}

TEST_F(ListenerFaults, ConnectionWithoutItsEventsEndsTheListenerAndIsLogged) {
  Faults().createOverlapEvent.Fail(ERROR_NOT_ENOUGH_MEMORY, kOthers);
  ExpectLoggedEnd("Failed to create the completion event in Overlap construction - Error code : 8 - ", true);
}

TEST_F(ListenerFaults, ConnectionWhoseThreadCannotBeStartedEndsTheListenerAndIsLogged) {
  Faults().createThread.Fail(ERROR_NOT_ENOUGH_MEMORY, kOthers);
  ExpectLoggedEnd(
      "Failed to start Thread object, invalid handle returned by CreateThread() - Error code : 8 - ", true);
}

TEST_F(ListenerFaults, NoMemoryForAConnectionSendsTheClientAwayAndTheListenerGoesOn) {
  Faults().allocateConnection.Fail(ERROR_NOT_ENOUGH_MEMORY);
  DiagnosticLogCapture log;
  server->Start();
  PipeClient client(name);
  EXPECT_TRUE(IsTakenAndSentAway(client));
  EXPECT_TRUE(Serves());
  EXPECT_EQ(log.Count(), 0U);
}

TEST_F(ListenerFaults, RequestPipeThatCannotBeCreatedEndsTheListenerSilently) {
  Faults().createNamedPipe.Fail(ERROR_PIPE_BUSY, kOthers);
  DiagnosticLogCapture log;
  server->Start();
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_EQ(server->result, 1);
  EXPECT_EQ(Faults().createNamedPipe.Calls(), 2);  // the reply pipe is created nevertheless, and closed
  EXPECT_EQ(log.Count(), 0U);
}

TEST_F(ListenerFaults, InstanceThatCannotBeTakenOverEndsTheListenerSilently) {
  Faults().duplicateHandle.Fail(ERROR_NOT_ENOUGH_MEMORY, kOthers, 1, 1);
  DiagnosticLogCapture log;
  server->Start();
  EXPECT_TRUE(WaitUntil([&] { return server->result != -1; }));
  EXPECT_EQ(server->result, 1);
  EXPECT_EQ(log.Count(), 0U);
}

TEST_F(ListenerFaults, ClientThatConnectsBeforeTheListenerLooksIsServed) {
  PipeClient client(name);
  std::atomic<int> connected{0};
  Faults().connectNamedPipe.Before([&] {
    if (connected++ != 0) return;
    EXPECT_TRUE(client.Connect());
  });
  server->Start();
  ASSERT_TRUE(WaitUntil([&] { return connected >= 2; }));
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  EndServer();
}

TEST_F(ListenerFaults, ClientThatComesAndGoesBeforeTheListenerLooksMakesItTakeNewInstances) {
  std::atomic<int> looks{0};
  std::atomic<bool> gone{false};
  Faults().connectNamedPipe.Before([&] {
    if (looks++ != 0) return;
    {
      PipeClient client(name);
      EXPECT_TRUE(client.Connect());
    }
    gone = true;
  });
  server->Start();
  ASSERT_TRUE(WaitUntil([&] { return gone.load(); }));
  EXPECT_TRUE(Serves());
  // Two for the client that left, two for the one that was served, and perhaps those for the next.
  EXPECT_GE(looks, 4);
  EXPECT_EQ(handler.handled, 1);
  EXPECT_LE(handler.ended, 1);
  EndServer();
}

TEST_F(ListenerFaults, ConnectThatFailsMakesTheListenerTakeNewInstances) {
  Faults().connectNamedPipe.Fail(ERROR_NO_DATA, kOthers, 2);
  server->Start();
  ASSERT_TRUE(WaitUntil([] { return Faults().connectNamedPipe.Calls() == 3; }));
  EXPECT_TRUE(Serves());
}

TEST_F(ListenerFaults, StopThatComesWhileAConnectionIsMadeIsNotMissed) {
  std::atomic<bool> stopped{false};
  Faults().allocateConnection.Before([&] {
    server->Stop();
    stopped = true;
  });
  server->Start();
  PipeClient client(name);
  const Clock::time_point start = Clock::now();
  EXPECT_TRUE(IsTakenAndSentAway(client));
  ASSERT_TRUE(WaitUntil([&] { return stopped.load(); }));
  EXPECT_TRUE(JoinWithin(20000));
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_EQ(handler.ended, 0);
}

TEST_F(ListenerFaults, StartThatCannotClearTheCancellationThrows) {
  Faults().resetEvent.Fail(ERROR_INVALID_HANDLE, kThis);
  try {
    server->Start();
    FAIL() << "nothing was thrown";
  } catch (const ExceptionBase& e) {
    EXPECT_EQ(e.GetMessage(), "Failed to reset overlap object");
  }
  server->Start();
  EXPECT_TRUE(Serves());
}

TEST_F(ListenerFaults, StartWithoutAThreadThrows) {
  Faults().createThread.Fail(ERROR_NOT_ENOUGH_MEMORY, kThis);
  EXPECT_THROW(server->Start(), ExceptionBase);
  server->Start();
  EXPECT_TRUE(Serves());
}

// A lock without waiters is released without SetEvent, so the first call of Stop is the one that cancels.
TEST_F(ListenerFaults, StopThatCannotCancelThrows) {
  server->Start();
  Faults().setEvent.Fail(ERROR_INVALID_HANDLE, kThis);
  try {
    server->Stop();
    FAIL() << "nothing was thrown";
  } catch (const ExceptionBase& e) {
    EXPECT_EQ(e.GetMessage(), "Failed to cancel asynchronous operation");
  }
}

TEST_F(ListenerFaults, DestructionEndsAListenerByForceWhenItCannotBeCancelled) {
  server->Start();
  Faults().setEvent.Fail(ERROR_INVALID_HANDLE, kThis);
  server.reset();
}

}  // namespace
