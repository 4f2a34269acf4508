// A client that opens the reply pipe alone and leaves puts the server and all later clients out of step: each
// of them gets a pair that it shares with another. The library's clients connect all the same, and their
// connection brings all others back into step.

#include "client/live/log_client.h"
#include "client/live/pipe_connection.h"
#include "tamlogctl/server/pipe_examiner.h"
#include "tests/support/pipe_client.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class OutOfStep : public SystemTest {
 protected:
  static void OpenReplyPipeAloneAndGo() {
    TestSupport::PipeClient client;
    ASSERT_TRUE(client.OpenReplyPipe(5000));
  }

  // Returns whether a client that takes any two pipes for a pair is served.
  static bool IsServedAtOnce() {
    TestSupport::PipeClient client;
    if (!client.Connect(5000)) return false;
    const std::optional<PipeReply> reply = client.Call(RequestOf(RequestCode::Ping), 5000);
    return reply && static_cast<ReplyCode>(reply->code) == ReplyCode::Alive;
  }
};

TEST_F(OutOfStep, AClientOfTheLibraryGetsInAndBringsTheServerBackIntoStep) {
  RunService();
  OpenReplyPipeAloneAndGo();
  ASSERT_FALSE(IsServedAtOnce());
  ASSERT_FALSE(IsServedAtOnce()) << "begun again from the start";
  TamLogClient::LogClient client;
  EXPECT_EQ(client.Ping(), TamLogClient::Status::Ok);
  EXPECT_EQ(client.Ping(), TamLogClient::Status::Ok);
  EXPECT_TRUE(IsServedAtOnce());
}

TEST_F(OutOfStep, DoctorGetsItsAnswer) {
  RunService();
  OpenReplyPipeAloneAndGo();
  std::uint32_t foreign = 0;
  EXPECT_EQ(TamLogCtl::ExaminePipes(kRequestPipeName, 5000, 5000, std::nullopt, foreign),
            TamLogCtl::PipeState::Answers);
  EXPECT_TRUE(IsServedAtOnce());
}

TEST_F(OutOfStep, ARestartBeforeTheFirstRequestIsNotTakenForIt) {
  RunService();
  TamLogClient::PipeConnection client(kRequestPipeName, 1000);
  ASSERT_EQ(client.Open(TamLogClient::CallDeadline(5000)), TamLogClient::Status::Ok);
  StopService();
  StartService();
  const PipeRequest ping = RequestOf(RequestCode::Ping);
  PipeReply reply{};
  bool sent = false;
  if (client.Exchange(ping, reply, TamLogClient::CallDeadline(5000), sent) != TamLogClient::Status::Ok) {
    ASSERT_EQ(client.Open(TamLogClient::CallDeadline(5000)), TamLogClient::Status::Ok);
    EXPECT_EQ(client.Exchange(ping, reply, TamLogClient::CallDeadline(5000), sent), TamLogClient::Status::Ok);
  }
  EXPECT_TRUE(IsServedAtOnce());
}
