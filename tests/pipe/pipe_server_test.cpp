#include "pipe/pipe_server.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "pipe/security_attributes.h"
#include "tests/pipe/pipe_server_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/watchdog.h"
#include "util/exceptions.h"
#include "util/win32.h"

// Must follow windows.h.
#include <aclapi.h>

using TamLogUtil::Timeout;
using TestSupport::Clock;
using TestSupport::Gate;
using TestSupport::kAlive;
using TestSupport::kPing;
using TestSupport::MillisecondsSince;
using TestSupport::PipeClient;
using TestSupport::RequestOf;
using TestSupport::SleepMs;
using TestSupport::WaitUntil;

namespace {

class PipeServerTest : public TestSupport::PipeServerFixture {
 protected:
  // Three replies fit into the pipe; the write of the fourth stays pending.
  void LeaveAReplyPending(PipeClient& client) {
    ASSERT_TRUE(client.Connect());
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(client.Send(RequestOf(kPing)));
    ASSERT_TRUE(WaitUntil([&] { return handler.handled == 4; }));
  }
  // Starts the server and leaves a request of the client in a handler that waits at the gate.
  void StartWithABusyHandler(PipeClient& client) {
    handler.behaviour = [this](const PipeRequest&, PipeReply&) { gate.Pass(); };
    server->Start();
    ASSERT_TRUE(client.Connect());
    ASSERT_TRUE(client.Send(RequestOf(3)));
    ASSERT_TRUE(WaitUntil([&] { return gate.SomebodyArrived(); }));
  }
};

// --- A connection ---------------------------------------------------------------------------------------

TEST_F(PipeServerTest, ClientGetsOneReplyForEachRequest) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  for (int i = 0; i < 50; ++i) EXPECT_EQ(client.CallCode(kPing), kAlive);
  EXPECT_EQ(handler.handled, 50);
  EXPECT_FALSE(client.Receive(50));
  EXPECT_EQ(client.LastError(), 258U);
}

TEST_F(PipeServerTest, HandlerSeesTheRequestAndItsReplyArrivesWhole) {
  handler.behaviour = [](const PipeRequest& request, PipeReply& reply) {
    EXPECT_EQ(reply.code, 11U);
    reply.code = 16;
    for (std::size_t i = 0; i < kPipeBodySize; ++i) {
      reply.bytes[i] = static_cast<std::uint8_t>(request.bytes[i] ^ 0xFFU);
    }
  };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  PipeRequest request = RequestOf(9);
  for (std::size_t i = 0; i < kPipeBodySize; ++i) request.bytes[i] = static_cast<std::uint8_t>(i * 7U);
  const std::optional<PipeReply> reply = client.Call(request);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, 16U);
  for (std::size_t i = 0; i < kPipeBodySize; ++i) {
    ASSERT_EQ(reply->bytes[i], static_cast<std::uint8_t>((i * 7U) ^ 0xFFU)) << i;
  }
}

TEST_F(PipeServerTest, ReplyIsDoneWhenTheHandlerLeavesItAlone) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(10), 11U);
}

TEST_F(PipeServerTest, CodesThatAreNoRequestsAreAnsweredWithoutTheHandler) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  for (const std::uint32_t code : {0U, 1U, 15U, 16U, 0xFFFFFFFFU})
    EXPECT_EQ(client.CallCode(code), 5U) << code;
  EXPECT_EQ(handler.handled, 0);
  EXPECT_EQ(client.CallCode(kPing), kAlive);
}

TEST_F(PipeServerTest, CodeFourteenIsLeftToTheHandler) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(14), 11U);
  EXPECT_EQ(handler.handled, 1);
  EXPECT_EQ(handler.lastCode, 14U);
}

TEST_F(PipeServerTest, WithoutAHandlerRequestsFailAndTheConnectionGoesOn) {
  server->SetMessageHandler(nullptr);
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), 7U);
  EXPECT_EQ(client.CallCode(15), 5U);
  EXPECT_EQ(client.CallCode(kPing), 7U);
}

TEST_F(PipeServerTest, ConnectionWithoutAHandlerEndsWithoutAWordAndIsForgotten) {
  server->SetMessageHandler(nullptr);
  server->Start();
  {
    PipeClient client(name);
    ASSERT_TRUE(client.Connect());
    EXPECT_EQ(client.CallCode(kPing), 7U);
  }
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_EQ(handler.ended, 0);
}

TEST_F(PipeServerTest, HandlerSetLaterServesClientsThatComeLater) {
  server->SetMessageHandler(nullptr);
  server->Start();
  PipeClient early(name);
  ASSERT_TRUE(early.Connect());
  EXPECT_EQ(early.CallCode(kPing), 7U);
  server->SetMessageHandler(&handler);
  EXPECT_EQ(early.CallCode(kPing), 7U);  // copied when it connected
  PipeClient first(name);
  ASSERT_TRUE(first.Connect());
  EXPECT_EQ(first.CallCode(kPing), kAlive);
}

TEST_F(PipeServerTest, ReplyBytesThatTheHandlerDoesNotSetAreThoseOfEarlierReplies) {
  handler.behaviour = [](const PipeRequest& request, PipeReply& reply) {
    if (request.code == 7) std::memset(reply.bytes, 'p', sizeof(reply.bytes));
  };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  const std::optional<PipeReply> first = client.Call(RequestOf(kPing));
  ASSERT_TRUE(first);
  EXPECT_EQ(first->bytes[0], 0);  // no old memory of the server before the first reply is filled
  EXPECT_EQ(first->bytes[kPipeBodySize - 1], 0);
  ASSERT_TRUE(client.Call(RequestOf(7)));
  const std::optional<PipeReply> later = client.Call(RequestOf(kPing));
  ASSERT_TRUE(later);
  EXPECT_EQ(later->bytes[0], 'p');
  EXPECT_EQ(later->bytes[kPipeBodySize - 1], 'p');
}

TEST_F(PipeServerTest, ShortRequestIsFollowedByTheEarlierBytes) {
  std::string path;
  handler.behaviour = [&path](const PipeRequest& request, PipeReply&) { path = request.path; };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  PipeRequest request = RequestOf(8);
  std::strcpy(request.path, "C:\\first.dat");
  ASSERT_TRUE(client.Call(request));
  EXPECT_EQ(path, "C:\\first.dat");
  request.path[0] = 'D';
  ASSERT_TRUE(client.SendBytes(&request, 5));  // the code and one character
  ASSERT_TRUE(client.Receive());
  EXPECT_EQ(path, "D:\\first.dat");
}

TEST_F(PipeServerTest, CodeIsClearedBeforeEachRequest) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  const std::uint8_t lowByte = kPing;
  ASSERT_TRUE(client.SendBytes(&lowByte, 1));
  const std::optional<PipeReply> reply = client.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, kAlive);  // the other three bytes are zero, so this is a Ping
}

TEST_F(PipeServerTest, EmptyMessageIsAnUnknownRequest) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  ASSERT_TRUE(client.SendBytes("", 0));
  const std::optional<PipeReply> reply = client.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, 5U);
  EXPECT_EQ(client.CallCode(kPing), kAlive);
}

TEST_F(PipeServerTest, UnterminatedTextsEndAfterTheRecord) {
  std::string path;
  std::string filter;
  handler.behaviour = [&](const PipeRequest& request, PipeReply&) {
    const char* const text = reinterpret_cast<const char*>(&request) + 4;
    if (request.code == 8) path = text;
    if (request.code == 11) filter = text;
  };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  for (int round = 0; round < 2; ++round) {  // the guard is still there after a record was read over it
    PipeRequest request = RequestOf(8);
    std::memset(request.bytes, 'x', sizeof(request.bytes));
    ASSERT_TRUE(client.Call(request));
    EXPECT_EQ(path, std::string(1024, 'x'));
    request.code = 11;
    ASSERT_TRUE(client.Call(request));
    EXPECT_EQ(filter, std::string(1024, 'x'));
  }
}

// Puts the messages of `send` into the pipe before the server's next read starts.
void SendWhileTheHandlerIsBusy(TestSupport::TestHandler& handler, PipeClient& client, Gate& gate,
                               const std::function<void()>& send) {
  ASSERT_TRUE(client.Send(RequestOf(2)));  // waits at the gate
  ASSERT_TRUE(WaitUntil([&] { return gate.SomebodyArrived(); }));
  send();
  gate.Open();
  ASSERT_TRUE(client.Receive());
  handler.handled = 0;
}

class OverlongRequest : public PipeServerTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(OverlongRequest, FoundByAReadGetsExactlyOneTooLongAndTheConnectionGoesOn) {
  handler.behaviour = [this](const PipeRequest& request, PipeReply& reply) {
    if (request.code == 2) gate.Pass();
    if (request.code == kPing) reply.code = kAlive;
  };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  const std::string bytes(GetParam(), '\4');
  SendWhileTheHandlerIsBusy(handler, client, gate,
                            [&] { ASSERT_TRUE(client.SendBytes(bytes.data(), bytes.size())); });
  const std::optional<PipeReply> reply = client.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->code, 4U);
  EXPECT_EQ(handler.handled, 0);
  EXPECT_EQ(client.CallCode(kPing), kAlive);  // no second reply in between
  EXPECT_EQ(handler.handled, 1);
}

INSTANTIATE_TEST_SUITE_P(Bytes, OverlongRequest, ::testing::Values(1029, 1030, 2056, 2057, 3084, 3085, 4000),
                         [](const auto& value) { return std::to_string(value.param); });

TEST_F(PipeServerTest, OverlongRequestsOneAfterTheOtherGetOneReplyEach) {
  handler.behaviour = [this](const PipeRequest& request, PipeReply&) {
    if (request.code == 2) gate.Pass();
  };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  const std::string bytes(1029, '\4');
  SendWhileTheHandlerIsBusy(handler, client, gate, [&] {
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(client.SendBytes(bytes.data(), bytes.size()));
  });
  for (int i = 0; i < 3; ++i) {
    const std::optional<PipeReply> reply = client.Receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->code, 4U);
  }
  EXPECT_FALSE(client.Receive(100));
}

TEST_F(PipeServerTest, RequestsSentAheadAreServedInOrder) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  for (const std::uint32_t code : {4U, 1U, 10U}) ASSERT_TRUE(client.Send(RequestOf(code)));
  EXPECT_EQ(client.Receive()->code, kAlive);
  EXPECT_EQ(client.Receive()->code, 5U);
  EXPECT_EQ(client.Receive()->code, 11U);
}

void ThrowException(int kind) {
  if (kind == 0) throw TamLogUtil::Exceptions::ExceptionBase("a test's failure");
  if (kind == 1) throw std::bad_alloc();
  throw 0xC0000005U;
}

class HandlerThatThrows : public PipeServerTest, public ::testing::WithParamInterface<int> {};

TEST_P(HandlerThatThrows, ClientGetsFailedAndIsThenDisconnected) {
  handler.behaviour = [](const PipeRequest& request, PipeReply& reply) {
    reply.code = 13;
    if (request.code == 3) ThrowException(GetParam());
  };
  // The disconnection, which follows the report of the end, discards a reply that was not read yet.
  handler.beforeRelease = [this] { gate.Pass(); };
  TestSupport::DiagnosticLogCapture log;
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  EXPECT_EQ(client.CallCode(3), 7U);
  gate.Open();
  EXPECT_TRUE(client.WaitUntilDisconnected());
  EXPECT_EQ(handler.ended, 1);
  EXPECT_EQ(log.Count(), 0U);
  EXPECT_TRUE(Serves());
}

INSTANTIATE_TEST_SUITE_P(Kinds, HandlerThatThrows, ::testing::Values(0, 1, 2), [](const auto& value) {
  return std::string(value.param == 0 ? "ExceptionBase" : value.param == 1 ? "StandardException" : "Integer");
});

TEST_F(PipeServerTest, ClientThatLeavesEndsItsConnectionOnly) {
  server->Start();
  PipeClient stays(name);
  ASSERT_TRUE(stays.Connect());
  {
    PipeClient leaves(name);
    ASSERT_TRUE(leaves.Connect());
    EXPECT_EQ(leaves.CallCode(kPing), kAlive);
  }
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  EXPECT_EQ(stays.CallCode(kPing), kAlive);
  EXPECT_EQ(handler.ended, 1);
}

TEST_F(PipeServerTest, ClientThatTakesNoReplyPipeAnyMoreIsDisconnected) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);  // the listener has noticed both pipes
  client.CloseReplyPipe();
  ASSERT_TRUE(client.Send(RequestOf(kPing)));
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  EXPECT_EQ(handler.handled, 2);
  EXPECT_TRUE(Serves());
}

TEST_F(PipeServerTest, EndIsReportedOnceFromTheConnectionsOwnThreadBeforeThePipesClose) {
  std::atomic<DWORD> handlerThread{0};
  std::atomic<DWORD> endThread{0};
  handler.behaviour = [&](const PipeRequest&, PipeReply&) { handlerThread = GetCurrentThreadId(); };
  handler.beforeRelease = [&] {
    endThread = GetCurrentThreadId();
    gate.Pass();
  };
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(10), 11U);
  client.CloseRequestPipe();
  ASSERT_TRUE(WaitUntil([&] { return gate.SomebodyArrived(); }));
  EXPECT_EQ(handlerThread, endThread);
  EXPECT_FALSE(client.WaitUntilDisconnected(100));
  gate.Open();
  EXPECT_TRUE(client.WaitUntilDisconnected());
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
}

TEST_F(PipeServerTest, SilentClientIsDisconnectedAfterTenSecondsAndAPingKeepsAnotherAlive) {
  server->Start();
  PipeClient silent(name);
  PipeClient pinging(name);
  ASSERT_TRUE(silent.Connect());
  const Clock::time_point start = Clock::now();
  ASSERT_TRUE(pinging.Connect());
  std::thread pinger([&] {
    while (MillisecondsSince(start) < 13000) {
      EXPECT_EQ(pinging.CallCode(kPing), kAlive);
      SleepMs(3000);
    }
  });
  EXPECT_TRUE(silent.WaitUntilDisconnected(20000));
  const std::int64_t silence = MillisecondsSince(start);
  EXPECT_GE(silence, 9000);
  EXPECT_LE(silence, 15000);
  pinger.join();
  EXPECT_EQ(pinging.CallCode(kPing), kAlive);
  EXPECT_EQ(handler.ended, 1);
}

TEST_F(PipeServerTest, ClientThatTakesNoRepliesIsDisconnectedAfterTenSeconds) {
  server->Start();
  PipeClient client(name);
  ASSERT_NO_FATAL_FAILURE(LeaveAReplyPending(client));
  const Clock::time_point start = Clock::now();
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }, std::chrono::milliseconds(20000)));
  const std::int64_t waited = MillisecondsSince(start);
  EXPECT_GE(waited, 9000);
  EXPECT_LE(waited, 15000);
  EXPECT_TRUE(Serves());
}

// --- The listener ---------------------------------------------------------------------------------------

TEST_F(PipeServerTest, ReplyPipeHasTheNameOfTheRequestPipeFollowedByReply) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.OpenRequestPipe());
  HANDLE reply = INVALID_HANDLE_VALUE;
  EXPECT_TRUE(WaitUntil([&] {
    reply = CreateFileA((name + "Reply").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    return reply != INVALID_HANDLE_VALUE;
  }));
  CloseHandle(reply);
}

TEST_F(PipeServerTest, ClientsMayOnlyWriteRequestsAndOnlyReadReplies) {
  server->Start();
  ASSERT_TRUE(WaitUntil([&] { return WaitNamedPipeA((name + "Reply").c_str(), 100) != 0; }));
  EXPECT_EQ(CreateFileA(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
  EXPECT_EQ(CreateFileA((name + "Reply").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

void ExpectPipeOpenToEveryone(HANDLE pipe) {
  PACL acl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetSecurityInfo(pipe, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &acl,
                            nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  ASSERT_NE(acl, nullptr);
  ASSERT_EQ(acl->AceCount, 1);
  void* raw = nullptr;
  ASSERT_TRUE(GetAce(acl, 0, &raw));
  auto* const ace = static_cast<ACCESS_ALLOWED_ACE*>(raw);
  EXPECT_EQ(ace->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
  EXPECT_EQ(ace->Header.AceFlags, 0);
  EXPECT_EQ(ace->Mask, 0x12019FU);
  EXPECT_TRUE(IsWellKnownSid(&ace->SidStart, WinWorldSid));
  LocalFree(descriptor);
}

TEST_F(PipeServerTest, BothPipesAreOpenToEveryone) {
  server->Start();
  PipeClient client(name);
  // Reading the access list requires READ_CONTROL, which the client's own handles do not have.
  const auto open = [](const std::string& pipe, DWORD access) {
    HANDLE handle = INVALID_HANDLE_VALUE;
    EXPECT_TRUE(WaitUntil([&] {
      handle = CreateFileA(pipe.c_str(), access | READ_CONTROL, 0, nullptr, OPEN_EXISTING, 0, nullptr);
      return handle != INVALID_HANDLE_VALUE;
    }));
    return handle;
  };
  const HANDLE request = open(name, GENERIC_WRITE);
  ExpectPipeOpenToEveryone(request);
  const HANDLE reply = open(name + "Reply", GENERIC_READ);
  ExpectPipeOpenToEveryone(reply);
  CloseHandle(request);
  CloseHandle(reply);
}

TEST_F(PipeServerTest, PipesCarryMessagesThroughBuffersOf4096Bytes) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  for (const HANDLE pipe : {client.RequestPipe(), client.ReplyPipe()}) {
    DWORD flags = 0;
    DWORD out = 0;
    DWORD in = 0;
    DWORD instances = 0;
    ASSERT_TRUE(GetNamedPipeInfo(pipe, &flags, &out, &in, &instances));
    EXPECT_TRUE((flags & PIPE_TYPE_MESSAGE) != 0);
    EXPECT_EQ(out, 4096U);
    EXPECT_EQ(in, 4096U);
    // Wine reports "unlimited" by another number than the one that requests it.
    EXPECT_TRUE(instances == PIPE_UNLIMITED_INSTANCES || instances == 0xFFFFFFFFU) << instances;
  }
}

TEST_F(PipeServerTest, ClientWithTheRequestPipeOnlyKeepsOthersWaitingUntilItOpensTheReplyPipe) {
  server->Start();
  PipeClient half(name);
  ASSERT_TRUE(half.OpenRequestPipe());
  PipeClient other(name);
  EXPECT_FALSE(other.Connect(500));
  EXPECT_EQ(other.LastError(), static_cast<std::uint32_t>(ERROR_PIPE_BUSY));
  ASSERT_TRUE(half.OpenReplyPipe());
  EXPECT_TRUE(other.Connect());
  EXPECT_EQ(other.CallCode(kPing), kAlive);
  EXPECT_EQ(half.CallCode(kPing), kAlive);
}

TEST_F(PipeServerTest, StopEndsAListenerThatWaitsForTheReplyPipe) {
  server->Start();
  PipeClient half(name);
  ASSERT_TRUE(half.OpenRequestPipe());
  SleepMs(50);
  const Clock::time_point start = Clock::now();
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_EQ(server->result, 0);
  EXPECT_EQ(handler.ended, 0);
}

TEST_F(PipeServerTest, StopEndsAListenerThatWaitsForAClientAtOnce) {
  server->Start();
  ASSERT_TRUE(WaitUntil([&] { return WaitNamedPipeA(name.c_str(), 100) != 0; }));
  const Clock::time_point start = Clock::now();
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_EQ(server->result, 0);
}

TEST_F(PipeServerTest, StopEndsAConnectionThatWaitsForARequestAtOnce) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  const Clock::time_point start = Clock::now();
  server->Stop();
  EXPECT_TRUE(client.WaitUntilDisconnected());
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_EQ(handler.ended, 1);
}

TEST_F(PipeServerTest, StopEndsAConnectionThatWaitsForItsClientToTakeAReply) {
  server->Start();
  PipeClient client(name);
  ASSERT_NO_FATAL_FAILURE(LeaveAReplyPending(client));
  SleepMs(50);
  const Clock::time_point start = Clock::now();
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_EQ(handler.ended, 1);
}

TEST_F(PipeServerTest, StoppedServerTakesNoClients) {
  server->Start();
  EXPECT_TRUE(Serves());
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  PipeClient client(name);
  EXPECT_FALSE(client.Connect(200));
  EXPECT_EQ(client.LastError(), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST_F(PipeServerTest, StartAfterStopAcceptsClientsAgain) {
  for (int round = 0; round < 5; ++round) {
    server->Start();
    EXPECT_TRUE(Serves()) << round;
    server->Stop();
    EXPECT_TRUE(JoinWithin(10000)) << round;
  }
}

TEST_F(PipeServerTest, StartRightAfterStopWaitsForTheOldListenerAndServes) {
  server->Start();
  for (int round = 0; round < 20; ++round) {
    server->Stop();
    server->Start();
  }
  EXPECT_TRUE(Serves());
}

TEST_F(PipeServerTest, StopAndJoinWithoutAStartDoNothing) {
  server->Stop();
  EXPECT_TRUE(JoinWithin(0));
  server->Start();
  EXPECT_TRUE(Serves());
}

TEST_F(PipeServerTest, RunReturnsZeroWhenStoppedBeforeItBegan) {
  EXPECT_EQ(server->Run(), 0U);  // never started counts as stopped
}

TEST_F(PipeServerTest, JoinIsFalseWithoutWaitingWhenTheTimeIsUp) {
  server->Start();
  PipeClient client(name);
  ASSERT_TRUE(client.Connect());
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(JoinWithin(0));
  EXPECT_LT(MillisecondsSince(start), 200);
}

TEST_F(PipeServerTest, JoinIsFalseWhenAConnectionOutlastsTheTime) {
  PipeClient client(name);
  ASSERT_NO_FATAL_FAILURE(StartWithABusyHandler(client));
  server->Stop();
  Timeout timeout(600);
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(server->Join(timeout));
  EXPECT_GE(MillisecondsSince(start), 550);
  EXPECT_TRUE(timeout.Expired());
  gate.Open();
}

TEST_F(PipeServerTest, JoinLooksForConnectionsEvery250Milliseconds) {
  PipeClient client(name);
  ASSERT_NO_FATAL_FAILURE(StartWithABusyHandler(client));
  server->Stop();
  std::thread opener([&] {
    SleepMs(50);
    gate.Open();
  });
  const Clock::time_point start = Clock::now();
  EXPECT_TRUE(JoinWithin(20000));
  const std::int64_t waited = MillisecondsSince(start);
  EXPECT_GE(waited, 240);  // the connection ended long before the second poll
  EXPECT_LT(waited, 5000);
  opener.join();
}

TEST_F(PipeServerTest, JoinOfARunningServerWithoutConnectionsIsFalse) {
  server->Start();
  EXPECT_FALSE(JoinWithin(100));
}

TEST_F(PipeServerTest, JoinWhoseTimeIsUpCannotHarmTheListWhateverHoldsTheLock) {
  // A Join without time left goes on without connectionsLock and then releases it for a waiting thread.
  server->Start();
  std::atomic<bool> done{false};
  std::thread joiner([&] {
    while (!done) EXPECT_FALSE(JoinWithin(0));
  });
  for (int i = 0; i < 60; ++i) EXPECT_TRUE(Serves());
  done = true;
  joiner.join();
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 60; }));
}

class ForeignPipe : public PipeServerTest {
 protected:
  void ExpectSilentEnd(const std::string& takenName, DWORD direction) {
    const HANDLE foreign =
        CreateNamedPipeA(takenName.c_str(), direction, PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr);
    ASSERT_NE(foreign, INVALID_HANDLE_VALUE);
    TestSupport::DiagnosticLogCapture log;
    server->Start();
    EXPECT_TRUE(WaitUntil([&] { return server->result != -1; }));
    EXPECT_EQ(server->result, 1);
    EXPECT_TRUE(JoinWithin(10000));
    EXPECT_EQ(log.Count(), 0U);
    CloseHandle(foreign);
  }
};

TEST_F(ForeignPipe, OfTheRequestPipesNameEndsTheListenerSilently) {
  ExpectSilentEnd(name, PIPE_ACCESS_INBOUND);
}

TEST_F(ForeignPipe, OfTheReplyPipesNameEndsTheListenerSilently) {
  ExpectSilentEnd(name + "Reply", PIPE_ACCESS_OUTBOUND);
  // The request instance that was created before was closed.
  EXPECT_EQ(CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(ForeignPipe, ListenerThatEndedByItselfCanBeStartedAgain) {
  ExpectSilentEnd(name, PIPE_ACCESS_INBOUND);
  server->Stop();
  EXPECT_TRUE(JoinWithin(10000));
  server->Start();
  EXPECT_TRUE(Serves());
}

// --- Release and destruction ----------------------------------------------------------------------------

TEST_F(PipeServerTest, ReleaseOfNullDoesNothing) {
  server->ReleaseConnection(nullptr);
}

TEST_F(PipeServerTest, ReleaseStopsAConnectionThatIsNotListed) {
  const HANDLE request =
      CreateNamedPipeA((name + "Own").c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                       PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 4096, 4096, 0, nullptr);
  const HANDLE reply =
      CreateNamedPipeA((name + "OwnReply").c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED,
                       PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr);
  PipeClient client(name + "Own");
  ASSERT_TRUE(client.Connect());
  auto* const connection = new PipeServerHandleThread(request, reply, &handler);
  CloseHandle(request);  // the connection has its own duplicates
  CloseHandle(reply);
  connection->Start();
  EXPECT_EQ(client.CallCode(kPing), kAlive);
  SleepMs(50);
  server->ReleaseConnection(connection);
  EXPECT_TRUE(client.WaitUntilDisconnected());
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  SleepMs(50);
}

TEST_F(PipeServerTest, DestructionEndsListenerAndIdleConnections) {
  server->Start();
  PipeClient first(name);
  PipeClient second(name);
  ASSERT_TRUE(first.Connect());
  ASSERT_TRUE(second.Connect());
  EXPECT_EQ(first.CallCode(kPing), kAlive);
  EXPECT_EQ(second.CallCode(kPing), kAlive);
  server.reset();
  EXPECT_TRUE(first.WaitUntilDisconnected());
  EXPECT_TRUE(second.WaitUntilDisconnected());
  EXPECT_EQ(handler.ended, 2);
}

TEST_F(PipeServerTest, DestructionEndsAConnectionByForceWhenItsHandlerDoesNotReturn) {
  const HANDLE never = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  handler.behaviour = [&](const PipeRequest& request, PipeReply&) {
    if (request.code == 3) WaitForSingleObject(never, INFINITE);
  };
  server->Start();
  PipeClient stuck(name);
  PipeClient idle(name);
  ASSERT_TRUE(stuck.Connect());
  ASSERT_TRUE(idle.Connect());
  ASSERT_TRUE(stuck.Send(RequestOf(3)));
  EXPECT_EQ(idle.CallCode(10), 11U);
  ASSERT_TRUE(WaitUntil([&] { return handler.handled == 2; }));
  const Clock::time_point start = Clock::now();
  server.reset();
  EXPECT_LT(MillisecondsSince(start), 10000);
  EXPECT_TRUE(stuck.WaitUntilDisconnected());
  EXPECT_EQ(handler.ended, 1);  // the idle one
  CloseHandle(never);
}

TEST_F(PipeServerTest, ConnectionMayOutliveTheServerOnItsLastSteps) {
  // The connection is off the list, so Join and the destructor do not wait for it, and it no longer uses the
  // server.
  server->Start();
  {
    PipeClient client(name);
    ASSERT_TRUE(client.Connect());
    EXPECT_EQ(client.CallCode(kPing), kAlive);
    server->Stop();
  }
  EXPECT_TRUE(JoinWithin(10000));
  server.reset();
  SleepMs(50);
}

}  // namespace
