// Connections whose system calls fail, and behaviour that shows only at a known moment of a read.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/pipe/call_faults.h"
#include "tests/pipe/pipe_server_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TestSupport::CallFault;
using TestSupport::DiagnosticLogCapture;
using TestSupport::Faults;
using TestSupport::kAlive;
using TestSupport::kPing;
using TestSupport::PipeClient;
using TestSupport::RequestOf;
using TestSupport::WaitUntil;

namespace {

constexpr auto kOthers = CallFault::On::OtherThreads;

class ConnectionFaults : public TestSupport::PipeServerFixture {
 protected:
  ConnectionFaults() { Faults().Clear(); }
  ~ConnectionFaults() override { Faults().Clear(); }

  // A client whose connection waits in its first read.
  void ConnectAndWaitForTheRead(PipeClient& client) {
    server->Start();
    ASSERT_TRUE(client.Connect());
    ASSERT_TRUE(WaitUntil([] { return Faults().serverRead.PendingCalls() == 1; }));
  }
};

TEST_F(ConnectionFaults, TwelveFailedReadsInARowEndTheConnection) {
  Faults().serverRead.Fail(ERROR_INVALID_HANDLE, kOthers, 1000);
  DiagnosticLogCapture log;
  server->Start();
  PipeClient client(name);
  EXPECT_TRUE(IsTakenAndSentAway(client));
  EXPECT_EQ(handler.ended, 1);
  EXPECT_EQ(Faults().serverRead.Calls(), 12);
  EXPECT_EQ(log.Count(), 0U);
}

TEST_F(ConnectionFaults, ElevenFailedReadsInARowAreRetried) {
  Faults().serverRead.Fail(ERROR_INVALID_HANDLE, kOthers, 11);
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);
}

TEST_F(ConnectionFaults, ReadThatSucceedsStartsTheCountAgain) {
  Faults().serverRead.Fail(ERROR_INVALID_HANDLE, kOthers, 11);
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  for (int round = 1; round <= 3; ++round) {
    // The read that follows the failed ones.
    ASSERT_TRUE(WaitUntil([&] { return Faults().serverRead.PendingCalls() == round; }));
    Faults().serverRead.Fail(ERROR_INVALID_HANDLE, kOthers, 11);
    EXPECT_EQ(client.CallCode(kPing), kAlive);
  }
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  EXPECT_EQ(handler.ended, 0);
}

class ReadThatSaysTheClientIsGone : public ConnectionFaults,
                                    public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(ReadThatSaysTheClientIsGone, EndsTheConnectionWithoutAnotherTry) {
  Faults().serverRead.Fail(GetParam(), kOthers, 1000);
  server->Start();
  PipeClient client(name);
  EXPECT_TRUE(IsTakenAndSentAway(client));
  EXPECT_EQ(Faults().serverRead.Calls(), 1);
  EXPECT_EQ(handler.ended, 1);
}

INSTANTIATE_TEST_SUITE_P(Errors, ReadThatSaysTheClientIsGone, ::testing::Values(109, 230, 233),
                         [](const auto& value) { return std::to_string(value.param); });

TEST_F(ConnectionFaults, ClientThatLeavesDuringAReadCostsOneRetry) {
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  client.Disconnect();
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  EXPECT_EQ(Faults().serverRead.Calls(), 2);
}

class OverlongWhileAReadWaits : public ConnectionFaults, public ::testing::WithParamInterface<std::size_t> {};

// The status of such a read does not count as "too long", so the rest of the message is taken for a request.
TEST_P(OverlongWhileAReadWaits, ItsRestIsServedAsTheNextRequest) {
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  std::string bytes(GetParam(), '\0');
  bytes[sizeof(PipeRequest)] = static_cast<char>(kPing);
  ASSERT_TRUE(client.SendBytes(bytes.data(), bytes.size()));
  const std::optional<PipeReply> reply = client.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, kAlive);
  EXPECT_EQ(handler.handled, 1);
  EXPECT_EQ(client.CallCode(10), 11U);
  EXPECT_EQ(handler.handled, 2);
}

INSTANTIATE_TEST_SUITE_P(Bytes, OverlongWhileAReadWaits, ::testing::Values(1029, 1500, 2056),
                         [](const auto& value) { return std::to_string(value.param); });

// The rest of each one is a read that succeeds, so failed reads never come twelve in a row.
TEST_F(ConnectionFaults, OverlongRequestsAloneNeverEndTheConnection) {
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  std::string bytes(1500, '\0');
  bytes[sizeof(PipeRequest)] = static_cast<char>(kPing);
  for (int sent = 1; sent <= 15; ++sent) {
    ASSERT_TRUE(client.SendBytes(bytes.data(), bytes.size()));
    const std::optional<PipeReply> reply = client.Receive();
    ASSERT_TRUE(reply) << sent;
    EXPECT_EQ(reply->code, kAlive) << sent;
    ASSERT_TRUE(WaitUntil([&] { return Faults().serverRead.PendingCalls() == sent + 1; }));
  }
  EXPECT_EQ(handler.ended, 0);
}

class VeryOverlongWhileAReadWaits : public ConnectionFaults,
                                    public ::testing::WithParamInterface<std::size_t> {};

TEST_P(VeryOverlongWhileAReadWaits, GetsOneTooLongAllTheSame) {
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  const std::string bytes(GetParam(), '\4');
  ASSERT_TRUE(client.SendBytes(bytes.data(), bytes.size()));
  const std::optional<PipeReply> reply = client.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, 4U);
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  EXPECT_EQ(handler.handled, 1);
}

INSTANTIATE_TEST_SUITE_P(Bytes, VeryOverlongWhileAReadWaits, ::testing::Values(2057, 3084, 3085, 4000),
                         [](const auto& value) { return std::to_string(value.param); });

TEST_F(ConnectionFaults, WriteThatFailsEndsTheConnectionWithoutAReply) {
  DiagnosticLogCapture log;
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  Faults().write.Fail(ERROR_INVALID_HANDLE, kOthers);
  EXPECT_FALSE(client.Call(RequestOf(kPing)));
  EXPECT_NE(client.LastError(), 258U);
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  EXPECT_EQ(handler.handled, 1);
  EXPECT_EQ(log.Count(), 0U);
}

TEST_F(ConnectionFaults, HandlesThatCannotBeDuplicatedEndTheConnectionSilently) {
  // The listener duplicates its two instances first; then the connection makes its two duplicates.
  Faults().duplicateHandle.Fail(ERROR_NOT_ENOUGH_MEMORY, kOthers, 2, 2);
  DiagnosticLogCapture log;
  server->Start();
  PipeClient client(name);
  EXPECT_TRUE(IsTakenAndSentAway(client));
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  EXPECT_EQ(log.Count(), 0U);
  EXPECT_TRUE(Serves());
}

TEST_F(ConnectionFaults, WaitThatFailsEndsTheConnectionAndIsLogged) {
  DiagnosticLogCapture log;
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  // Two connects were this client's, the third waits for the next.
  ASSERT_TRUE(WaitUntil([] { return Faults().connectNamedPipe.Returns() == 3 && Faults().ServerWaits(); }));
  // The next wait is that of the connection's next read.
  Faults().waitForMultiple.Fail(ERROR_INVALID_HANDLE, kOthers);
  ASSERT_TRUE(client.Send(RequestOf(kPing)));
  EXPECT_TRUE(client.WaitUntilDisconnected());
  EXPECT_EQ(handler.handled, 1);
  EXPECT_EQ(handler.ended, 1);
  ASSERT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
  const std::string expected =
      "Thread terminated due to unhandled exception : Exception occured during thread Run()\n"
      "WaitForMultipleObjects failed - Error code : 6 - ";
  EXPECT_EQ(log.Texts()[0].substr(0, expected.size()), expected);
  EXPECT_TRUE(Serves());
}

TEST_F(ConnectionFaults, EndThatCannotBeReportedIsLoggedAndTheConnectionIsForgotten) {
  DiagnosticLogCapture log;
  handler.beforeRelease = [] { throw TamLogUtil::Exceptions::ExceptionBase("no release"); };
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  client.CloseRequestPipe();
  EXPECT_TRUE(client.WaitUntilDisconnected());
  ASSERT_TRUE(WaitUntil([&] { return log.Count() == 1; }));
  EXPECT_EQ(
      log.Texts()[0],
      "Thread terminated due to unhandled exception : Exception occured during thread Run()\nno release");
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
}

TEST_F(ConnectionFaults, EndThatFailsForAnUnknownReasonIsSilentAndTheConnectionIsForgotten) {
  DiagnosticLogCapture log;
  handler.beforeRelease = [] { throw 1; };
  PipeClient client(name);
  ConnectAndWaitForTheRead(client);
  client.CloseRequestPipe();
  EXPECT_TRUE(client.WaitUntilDisconnected());
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_EQ(log.Count(), 0U);
}

}  // namespace
