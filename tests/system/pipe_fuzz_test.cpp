// Fuzzes the pipes of the running service with random lengths, codes, pauses and half-open connections: the
// service must survive and serve others, while a well-behaved client submits messages and looks for them in
// the log. Requests that end the server or redirect its file on purpose (listed in docs/reliability.md) are
// left out: texts too long for their reply, and paths other than the one in use.
//
// TAMLOG_FUZZ_SECONDS sets the length in seconds (few by default, to keep the ordinary round short),
// TAMLOG_FUZZ_SEED the seed of the random numbers.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>

#include "tests/support/pipe_client.h"
#include "tests/system/settled_counts.h"
#include "tests/system/system_test.h"

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFuzzThreads = 3;
constexpr std::size_t kLongest = 2300;  // more than two records
constexpr std::size_t kHandleMargin = 6;
// The end, in a record, of the longest filter that fits its reply.
constexpr std::size_t kFilterEnd = offsetof(PipeRequest, filter) + kFilterTextSize - 1;

int FromEnvironment(const char* name, int otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::max(1, std::atoi(text)) : otherwise;
}

struct Account {
  std::atomic<std::uint64_t> connections{0};
  std::atomic<std::uint64_t> halfOpen{0};
  std::atomic<std::uint64_t> requests{0};
  std::atomic<std::uint64_t> replies{0};
};

// A client that ignores the rules of the protocol.
class Fuzzer {
 public:
  Fuzzer(std::uint32_t seed, Account& sharedAccount) : random(seed), account(sharedAccount) {}

  void Visit() {
    TestSupport::PipeClient client;
    switch (Below(8)) {
      case 0:
        return HalfOpen(client);
      case 1:
        return Connected(client) ? Burst(client) : void();
      default:
        return Connected(client) ? Talk(client) : void();
    }
  }

 private:
  std::uint32_t Below(std::uint32_t limit) { return random() % limit; }
  void Pause(std::uint32_t mostMs) {
    std::this_thread::sleep_for(std::chrono::milliseconds(Below(mostMs + 1)));
  }

  bool Connected(TestSupport::PipeClient& client) {
    if (!client.OpenRequestPipe(500)) return false;
    if (Below(4) == 0) Pause(10);
    // A half-open pair that is abandoned here blocks all other clients until one of them opens the reply
    // pipe.
    if (!client.OpenReplyPipe(500)) return FreeListener();
    ++account.connections;
    return true;
  }

  // Frees the listener in the way that the protocol describes.
  bool FreeListener() {
    TestSupport::PipeClient other;
    other.OpenReplyPipe(100);
    return false;
  }

  void HalfOpen(TestSupport::PipeClient& client) {
    ++account.halfOpen;
    if (Below(2) == 0) {
      client.OpenReplyPipe(100);
      Pause(20);
      return;
    }
    if (!client.OpenRequestPipe(500)) return;
    if (Below(2) == 0) Send(client);
    Pause(50);
    if (Below(2) == 0) client.CloseRequestPipe();
    client.OpenReplyPipe(500);
    Pause(20);
  }

  // Sends requests in sequence, with or without waiting for their replies.
  void Talk(TestSupport::PipeClient& client) {
    for (std::uint32_t left = Below(20); left > 0; --left) {
      if (!Send(client)) return;
      if (Below(4) == 0) Pause(30);
      if (Below(8) != 0 && client.Receive(500)) ++account.replies;
    }
  }

  // Sends more requests than the pipe holds and reads no reply.
  void Burst(TestSupport::PipeClient& client) {
    for (std::uint32_t left = Below(12); left > 0; --left) {
      if (!Send(client)) return;
    }
    Pause(20);
  }

  bool Send(TestSupport::PipeClient& client) {
    const std::string bytes = Bytes();
    ++account.requests;
    return client.SendBytes(bytes.data(), bytes.size(), 200);
  }

  std::uint32_t Code() {
    constexpr std::uint32_t kHarmless[] = {2, 3, 4, 5, 7, 9, 10, 11, 12, 14};
    // Restarts are rare: each ends every connection and takes more than a second.
    const std::uint32_t choice = Below(1000);
    if (choice == 0) return static_cast<std::uint32_t>(RequestCode::ClearLog);
    if (choice == 1) return static_cast<std::uint32_t>(RequestCode::SetSettings);
    if (choice < 60) return Without8(random());
    return kHarmless[Below(std::size(kHarmless))];
  }

  static std::uint32_t Without8(std::uint32_t code) {
    return code % 256 == static_cast<std::uint32_t>(RequestCode::SetLogFile) ? code + 1 : code;
  }

  std::size_t Length() {
    switch (Below(8)) {
      case 0:
        return Below(sizeof(PipeRequest));
      case 1:
        return Below(kLongest);
      case 2:
        return sizeof(PipeRequest) + Below(8);
      default:
        return sizeof(PipeRequest);
    }
  }

  // Returns a record, a part of one, or more than one. The server handles bytes from 1,028 on as a request of
  // its own, so a code stands there.
  std::string Bytes() {
    std::string bytes(Length(), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    for (std::size_t record = 0; record < bytes.size(); record += sizeof(PipeRequest)) {
      const std::uint32_t code = Code();
      std::memcpy(&bytes[record], &code, std::min(sizeof code, bytes.size() - record));
      if (record + kFilterEnd < bytes.size()) bytes[record + kFilterEnd] = '\0';
      KeepSettingsModest(bytes, record);
    }
    return bytes;
  }

  // The server accepts any number; the rates only decide how much processor time is left for the rest of the
  // test, and the capacity how much disk space.
  void KeepSettingsModest(std::string& bytes, std::size_t record) {
    const SettingsBody settings = {.maxMessage = Below(3) == 0 ? 0 : 1 + Below(500),
                                   .devicePollRate = 20 + Below(2000),
                                   .typeFilter = random(),
                                   .saveRate = 1 + Below(300)};
    std::uint32_t code = 0;
    if (record + sizeof code + sizeof settings > bytes.size()) return;
    std::memcpy(&code, &bytes[record], sizeof code);
    if (code == static_cast<std::uint32_t>(RequestCode::SetSettings)) {
      std::memcpy(&bytes[record + sizeof code], &settings, sizeof settings);
    }
  }

  std::mt19937 random;
  Account& account;
};

}  // namespace

class PipeFuzz : public SystemTest {
 protected:
  // Pings as a client that keeps to the protocol: it gets its answer whatever the others do, possibly after
  // several connections.
  bool IsServed() {
    const auto end = Clock::now() + 30s;
    do {
      if (PingAlive()) return true;
    } while (Clock::now() < end && ServiceProcess().Alive());
    return false;
  }

  bool PingAlive() {
    const PipeRequest ping = RequestOf(RequestCode::Ping);
    TestSupport::PipeClient client;
    if (!client.Connect(2000)) {
      TestSupport::PipeClient other;  // another client has left the listener half-open
      other.OpenReplyPipe(100);
      ++freed;
      return false;
    }
    std::optional<PipeReply> reply = client.Call(ping, 2000);
    if (!reply && client.OpenRequestPipe(2000)) {
      ++backInStep;  // with the existing reply pipe
      reply = client.Call(ping, 2000);
    }
    return reply && static_cast<ReplyCode>(reply->code) == ReplyCode::Alive;
  }

  // Establishes the state that has to be the same before and after: no filters, the same settings, a server
  // just started. A restart requested before may swallow this one; it applies the settings then.
  void Settle() {
    EXPECT_TRUE(IsServed());
    AskForCode(RequestOf(RequestCode::ClearFilters));
    const std::uint32_t before = Starts();
    AskForCode(
        SettingsRequest({.maxMessage = 100, .devicePollRate = 100, .typeFilter = 15, .saveRate = 300}));
    EXPECT_TRUE(Eventually(15s, [&] { return Starts() > before; })) << "no restart";
    EXPECT_TRUE(IsServed());
    EXPECT_EQ(CurrentSettings().maxMessage, 100U);
  }

  int freed = 0;
  int backInStep = 0;
};

TEST_F(PipeFuzz, TheServiceLivesAndServesOthersWhateverComesOverThePipes) {
  const int seconds = FromEnvironment("TAMLOG_FUZZ_SECONDS", 4);
  const int seed = FromEnvironment("TAMLOG_FUZZ_SEED", 1);
  RunService();
  Settle();
  const ProcessCounts before = SettledCounts(ServiceProcess(), 10s);
  Account account;
  std::atomic<bool> stop{false};
  std::vector<std::thread> fuzzers;
  for (int i = 0; i < kFuzzThreads; ++i) {
    fuzzers.emplace_back([&, i] {
      Fuzzer fuzzer(static_cast<std::uint32_t>(seed * kFuzzThreads + i), account);
      while (!stop) fuzzer.Visit();
    });
  }
  int served = 0;
  for (const auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end;) {
    const bool isServed = IsServed();
    EXPECT_TRUE(isServed) << "another client was not served for 30 s";
    if (!isServed) break;
    ++served;
    std::this_thread::sleep_for(50ms);
  }
  stop = true;
  for (std::thread& fuzzer : fuzzers) fuzzer.join();
  ASSERT_TRUE(ServiceProcess().Alive()) << "exit code " << ServiceProcess().WaitForEnd(0s).value_or(0);
  EXPECT_GT(served, 0);
  Settle();
  const ProcessCounts after = CountsBackTo(ServiceProcess(), before, kHandleMargin, 30s);
  EXPECT_LE(after.handles, before.handles + kHandleMargin);
  EXPECT_LE(after.threads, before.threads);
  // Later than any time that the others may have sent: the log may be full of their messages.
  LogMessageBody last = Message("last", 0);
  std::fill(std::begin(last.timestamp), std::end(last.timestamp), std::numeric_limits<std::int16_t>::max());
  SubmitOverPipe(last);
  EXPECT_TRUE(Eventually(10s, [this] { return !TextsOfFile().empty() && TextsOfFile().front() == "last"; }));
  const std::vector<std::string> entries = DiagnosticTexts(TakeDiagnostics());
  for (const std::string& entry : entries) std::printf("diagnostic log: %s\n", entry.c_str());
  std::printf(
      "pipe: %d s, seed %d: %llu connections, %llu half-open ones, %llu requests, %llu replies, %u restarts; "
      "another client was served %d times, freed the listener %d times and got back into step %d times; "
      "%s before, %s after\n",
      seconds, seed, static_cast<unsigned long long>(account.connections),
      static_cast<unsigned long long>(account.halfOpen), static_cast<unsigned long long>(account.requests),
      static_cast<unsigned long long>(account.replies), Starts() - 1, served, freed, backInStep,
      before.Text().c_str(), after.Text().c_str());
}
