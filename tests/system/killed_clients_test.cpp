// No client can hurt the server: tamlogctl is ended from outside at random moments while messages flow, and
// the server goes on. How often it has to be unstuck is counted. TAMLOG_KILLS sets the number of clients
// (a few by default, so that the ordinary round stays short).

#include <cstdlib>
#include <random>

#include "client/log_examiner.h"
#include "client/log_reader.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class KilledClients : public SystemTest {
 protected:
  static int Kills() {
    const char* const text = std::getenv("TAMLOG_KILLS");
    return text != nullptr ? std::max(1, std::atoi(text)) : 6;
  }

  // Submits without pause until stopped, over a connection of its own.
  void Feed() {
    std::optional<PipeConnection> client = PipeConnection::Connect(5s);
    for (int at = 0; client && !stopFeeding; ++at) {
      if (client->AskForCode(SubmitRequest(Message("load", at))) != ReplyCode::Done) break;
      ++fed;
      std::this_thread::sleep_for(2ms);
    }
  }

  // Whether the client that was just killed holds the server up; if so, mends it.
  static bool WasStuck() {
    TamLogClient::LogExaminer examiner;
    if (examiner.Open().mappingError != 0) return false;
    const TamLogClient::LogWatch watch = examiner.Watch(600);
    if (watch.lockTaken) examiner.FreeHeaderLock();
    const bool stuck =
        watch.lockTaken || (!watch.moved && (watch.readersInside || watch.countPassed || watch.countLeft));
    if (stuck) {
      EXPECT_TRUE(examiner.ForgetReaders(watch.header));
    }
    return stuck;
  }

  std::atomic<bool> stopFeeding{false};
  std::atomic<int> fed{0};
};

TEST_F(KilledClients, ServerGoesOnWhateverMomentTheyDieAt) {
  constexpr int kCapacity = 20000;
  RunService({.maxMessage = kCapacity});
  std::thread feeder([this] { Feed(); });
  std::mt19937 random(20260314);
  std::uniform_int_distribution<int> milliseconds(0, 250);
  const std::string tool = "\"" + OwnDirectory() + "\\tamlogctl.exe\" ";
  const int kills = Kills();
  int alive = 0;
  int stuck = 0;
  for (int i = 0; i < kills; ++i) {
    ChildProcess client(tool + (i % 2 == 0 ? "follow -n 1 --interval 10 -o cat" : "status"));
    if (i % 2 == 0) client.ReadLine(5s);  // it reads from here on
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
    alive += client.WaitForEnd(0ms) ? 0 : 1;
    client.Kill();
    client.WaitForEnd(5s);
    stuck += WasStuck() ? 1 : 0;
  }
  stopFeeding = true;
  feeder.join();
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  ASSERT_EQ(reader.Open(), TamLogClient::Status::Ok);
  ASSERT_EQ(reader.Snapshot(snapshot), TamLogClient::Status::Ok);
  const std::uint64_t whole = reader.LastHoldMicroseconds();
  SubmitOverPipe(Message("last", 3600000));
  ASSERT_TRUE(WaitForMessageCount(std::min(fed + 1, kCapacity), 10s)) << Header().messageCount;
  ASSERT_EQ(reader.Snapshot(snapshot), TamLogClient::Status::Ok);
  const std::uint64_t appended = reader.LastHoldMicroseconds();
  reader.Close();
  EXPECT_TRUE(ServiceProcess().Alive());
  EXPECT_EQ(TextsOfFile().front(), "last");
  std::printf(
      "killed %d clients, %d of them while they ran; stuck %d times; %d messages; read access held for "
      "%llu us (whole log of %d), %llu us (one message appended)\n",
      kills, alive, stuck, fed.load(), static_cast<unsigned long long>(whole), kCapacity,
      static_cast<unsigned long long>(appended));
  RecordProperty("stuck", stuck);
}
