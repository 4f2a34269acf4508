// Clients of the pipes are killed between their two opens, inside a request, before reading a reply and
// inside it, and at random moments. The server continues and keeps none of their resources. TAMLOG_KILLS sets
// the number of clients killed at random moments.

#include <algorithm>
#include <cstdlib>
#include <random>

#include "client/live/log_client.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class KilledPipeClients : public SystemTest {
 protected:
  static int Kills() {
    const char* const text = std::getenv("TAMLOG_KILLS");
    return text != nullptr ? std::max(1, std::atoi(text)) : 20;
  }

  static ChildProcess Client(const std::string& words, const std::string& line) {
    ChildProcess client("\"" + OwnDirectory() + "\\system_client.exe\" " + words);
    EXPECT_EQ(client.ReadLine(20s), line);
    return client;
  }

  static void KillClient(const std::string& words, const std::string& line) {
    ChildProcess client = Client(words, line);
    client.Kill();
  }

  static std::string Unstick() { return RunTool("doctor --unstick").output; }

  static bool IsServed(std::chrono::milliseconds limit) {
    std::optional<ServerConnection> client = ServerConnection::Connect(limit);
    return client && client->AskForCode(RequestOf(RequestCode::Ping)) == ReplyCode::Alive;
  }

  // The server releases what it holds for its clients once it has noticed their end.
  void ExpectHandles(std::size_t most) {
    EXPECT_TRUE(Eventually(20s, [&] { return ServiceProcess().HandleCount() <= most; }))
        << ServiceProcess().HandleCount() << " instead of " << most;
  }

  // Returns an upper limit for the handles of a server that has already served some clients.
  std::size_t HandlesOfAWarmServer() {
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(IsServed(20s));
    std::this_thread::sleep_for(500ms);
    // The thread library keeps the records of ended threads, with one or two handles each.
    return ServiceProcess().HandleCount() + 8;
  }
};

TEST_F(KilledPipeClients, BetweenTheTwoOpensOneKeepsTheOthersOutUntilDoctorUnsticksTheServer) {
  RunService();
  const std::size_t handles = HandlesOfAWarmServer();
  KillClient("half", "half");
  EXPECT_FALSE(IsServed(1s));
  const std::string output = Unstick();
  EXPECT_TRUE(IsServed(20s)) << output;
  ExpectHandles(handles);
}

TEST_F(KilledPipeClients, InsideARequestOneEndsOnlyItsOwnConnection) {
  RunService();
  std::optional<ServerConnection> other = ServerConnection::Connect(20s);
  ASSERT_TRUE(other);
  const std::size_t handles = HandlesOfAWarmServer();
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{4}, std::size_t{30}, sizeof(PipeRequest) - 1}) {
    KillClient("part " + std::to_string(bytes), "written");
    EXPECT_EQ(other->AskForCode(RequestOf(RequestCode::Ping)), ReplyCode::Alive) << bytes;
    EXPECT_TRUE(IsServed(20s)) << bytes;
  }
  SubmitOverPipe(Message("behind them", 3600000));
  ASSERT_TRUE(
      Eventually(10s, [this] { return !TextsOfFile().empty() && TextsOfFile()[0] == "behind them"; }));
  ExpectHandles(handles);
}

TEST_F(KilledPipeClients, BeforeItReadsAReplyOnesMessagesAreStoredOnceEach) {
  RunService();
  const std::size_t handles = HandlesOfAWarmServer();
  KillClient("unread 3", "sent");
  // The server may or may not have read the last of them when the client dies, but the order is certain.
  EXPECT_TRUE(IsServed(20s));
  SubmitOverPipe(Message("behind them", 3600000));
  ASSERT_TRUE(
      Eventually(10s, [this] { return !TextsOfFile().empty() && TextsOfFile()[0] == "behind them"; }));
  std::vector<std::string> texts = TextsOfFile();
  texts.erase(texts.begin());
  std::ranges::reverse(texts);
  ASSERT_LE(texts.size(), 3U);
  for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(texts[i], "unread " + std::to_string(i));
  ExpectHandles(handles);
}

TEST_F(KilledPipeClients, InsideAReplyOneEndsOnlyItsOwnConnectionAndItsMessageIsStored) {
  RunService();
  std::optional<ServerConnection> other = ServerConnection::Connect(20s);
  ASSERT_TRUE(other);
  const std::size_t handles = HandlesOfAWarmServer();
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{4}, sizeof(PipeReply) - 1}) {
    KillClient("within " + std::to_string(bytes), "read");
    EXPECT_EQ(other->AskForCode(RequestOf(RequestCode::Ping)), ReplyCode::Alive) << bytes;
    EXPECT_TRUE(IsServed(20s)) << bytes;
  }
  ExpectTexts({"within", "within", "within"});
  ExpectHandles(handles);
}

// A client that a restart interrupted between its two opens acquires a reply pipe of the new server, whose
// request pipe another client opens; then it gives up, and the pair is of no use to any client. The server
// creates a new pair, whose reply pipe the next client acquires in the same mistaken way.
TEST_F(KilledPipeClients, WithAReplyPipeOpenedAloneOneLeavesAServerThatOurClientsStillReach) {
  RunService();
  for (int i = 0; i < 5; ++i) {
    {
      ServerConnection stray;
      ASSERT_TRUE(Eventually(20s, [&stray] { return stray.OpenReplyPipe() == 0; }));
    }
    TamLogClient::LogClient client({.timeoutMs = 20000});
    EXPECT_EQ(client.Ping(), TamLogClient::Status::Ok) << i;
    EXPECT_EQ(client.Ping(), TamLogClient::Status::Ok) << i;
  }
}

// The client that meets the stray may get its answer only after a time-out: the reply pipe of the next pair
// already existed then, and no call failed.
TEST_F(KilledPipeClients, WithTheReplyPipeOfAnotherInItsHandOneHoldsUpOurClientsForOneTimeoutAtMost) {
  RunService();
  ServerConnection stray;
  ASSERT_TRUE(Eventually(20s, [&stray] { return stray.OpenReplyPipe() == 0; }));
  for (int i = 0; i < 3; ++i) {
    TamLogClient::LogClient client;
    const bool met = client.Ping() != TamLogClient::Status::Ok;
    EXPECT_FALSE(met && i > 0) << i;
    std::string name;
    EXPECT_EQ(client.GetFileMapName(name), TamLogClient::Status::Ok) << i;
    EXPECT_EQ(name, kFileMapName);
  }
}

TEST_F(KilledPipeClients, AtRandomMomentsNoneTakesTheServerAlong) {
  RunService({.maxMessage = 20000});
  const std::size_t handles = HandlesOfAWarmServer();
  std::mt19937 random(20261121);
  std::uniform_int_distribution<int> microseconds(0, 30000);
  const int kills = Kills();
  int blocked = 0;
  for (int i = 0; i < kills && !HasFailure(); ++i) {
    ChildProcess client = Client("asking", "asking");
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
    client.Kill();
    if (IsServed(3s)) continue;
    ++blocked;
    const std::string output = Unstick();
    EXPECT_TRUE(IsServed(20s)) << output;
  }
  ExpectHandles(handles);
  EXPECT_TRUE(ServiceProcess().Alive());
  std::printf(
      "clients: %d killed at random moments, %d of them between their two opens, which doctor fixed\n", kills,
      blocked);
}
