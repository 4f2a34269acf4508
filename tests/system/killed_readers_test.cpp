// No client can harm the server: the test kills tamlogctl at random moments while messages flow, and the
// server continues. The test counts the blocked states by kind, and tamlogctl doctor must fix each of them.
// TAMLOG_KILLS sets the number of clients (few by default, to keep the ordinary round short).

#include <array>
#include <cstdlib>
#include <random>

#include "client/live/log_reader.h"
#include "tamlogctl/server/log_examiner.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;

class KilledClients : public SystemTest {
 protected:
  static int Kills() {
    const char* const text = std::getenv("TAMLOG_KILLS");
    return text != nullptr ? std::max(1, std::atoi(text)) : 6;
  }

  // Submits without pause until stopped, over one connection, which it replaces when it ends. Does not count
  // messages that were sent without an answer.
  void Feed() {
    for (int at = 0; !stopFeeding;) {
      std::optional<ServerConnection> client = ServerConnection::Connect(5s);
      while (client && !stopFeeding &&
             client->AskForCode(SubmitRequest(Message("load", at))) == ReplyCode::Done) {
        ++at;
        ++fed;
        std::this_thread::sleep_for(2ms);
      }
    }
  }

  enum class Stuck : std::uint8_t { No, HeaderLock, LockAndCount, ReaderInside, CountPassed, CountLeft };
  static constexpr std::size_t kStuckKinds = 6;

  // Returns how the client that was just killed blocks the server.
  static Stuck Look() {
    TamLogCtl::LogExaminer examiner;
    if (examiner.Open().mappingError != 0) return Stuck::No;
    const TamLogCtl::LogWatch watch = examiner.Watch(600);
    const bool counted = watch.readersInside || watch.countPassed || watch.countLeft;
    if (watch.lockTaken) return counted ? Stuck::LockAndCount : Stuck::HeaderLock;
    if (watch.moved) return Stuck::No;
    if (watch.readersInside) return Stuck::ReaderInside;
    if (watch.countPassed) return Stuck::CountPassed;
    return watch.countLeft ? Stuck::CountLeft : Stuck::No;
  }

  static std::string Tool() { return "\"" + OwnDirectory() + "\\tamlogctl.exe\" "; }

  // Fixes the log as a person would. The server has to write again afterwards.
  void Unstick(Stuck stuck) {
    const std::string output = RunTool("doctor --unstick").output;
    const auto changes = [this] {
      return TestLogFile::ReadHeader(logFile).value_or(LogFileHeader{}).changeCount;
    };
    const std::uint64_t before = changes();
    SubmitOverPipe(Message("fixed", fed));
    ++fed;
    const bool goesOn = Eventually(10s, [&] { return changes() != before; });
    const bool unstuck = goesOn && Look() == Stuck::No;
    EXPECT_TRUE(unstuck) << "kind " << static_cast<int>(stuck) << "\n" << output;
    if (unstuck) ++fixes;
  }

  std::atomic<bool> stopFeeding{false};
  std::atomic<int> fed{0};
  int fixes = 0;
};

TEST_F(KilledClients, ServerGoesOnWhateverMomentTheyDieAt) {
  constexpr int kCapacity = 20000;
  RunService({.maxMessage = kCapacity});
  std::thread feeder([this] { Feed(); });
  std::mt19937 random(20260314);
  std::uniform_int_distribution<int> milliseconds(0, 250);
  const int kills = Kills();
  int alive = 0;
  std::array<int, kStuckKinds> seen{};
  for (int i = 0; i < kills; ++i) {
    ChildProcess client(Tool() + (i % 2 == 0 ? "follow -n 1 --interval 10 -o cat" : "status"));
    if (i % 2 == 0) client.ReadLine(5s);  // it reads from now on
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
    alive += client.WaitForEnd(0ms) ? 0 : 1;
    client.Kill();
    client.WaitForEnd(5s);
    const Stuck stuck = Look();
    ++seen[static_cast<std::size_t>(stuck)];
    if (stuck != Stuck::No) Unstick(stuck);
    if (HasFailure()) break;  // the same fault would block the remaining clients
  }
  stopFeeding = true;
  feeder.join();
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  ASSERT_EQ(reader.Open(), TamLogClient::Status::Ok);
  ASSERT_EQ(reader.Snapshot(snapshot), TamLogClient::Status::Ok);
  const std::uint64_t whole = reader.LastCopyMicroseconds();
  SubmitOverPipe(Message("last", 3600000));
  // The file may hold more messages than were counted: messages sent without an answer may have been stored.
  ASSERT_TRUE(Eventually(10s, [this] { return TextsOfFile().front() == "last"; }));
  EXPECT_GE(Header().messageCount, std::min(fed + 1, kCapacity));
  ASSERT_EQ(reader.Snapshot(snapshot), TamLogClient::Status::Ok);
  const std::uint64_t appended = reader.LastCopyMicroseconds();
  reader.Close();
  EXPECT_TRUE(ServiceProcess().Alive());
  const int stuck = seen[1] + seen[2] + seen[3] + seen[4] + seen[5];
  std::printf(
      "killed %d clients, %d of them while they ran; %d messages\n"
      "stuck %d times: header lock %d, lock and count %d, reader inside %d, count passed %d, count left %d; "
      "fixed %d times\n"
      "the log was copied in %llu us (all of %d), %llu us (one message appended)\n",
      kills, alive, fed.load(), stuck, seen[1], seen[2], seen[3], seen[4], seen[5], fixes,
      static_cast<unsigned long long>(whole), kCapacity, static_cast<unsigned long long>(appended));
  EXPECT_EQ(stuck, 0) << "our readers take no access";
  EXPECT_EQ(fixes, stuck);
  RecordProperty("stuck", stuck);
}
