// Measures round trips through the running server's pipes, next to a bare echo of as many bytes through one
// pipe: blocking reads and writes only, in a process of its own. The clients of both are the same except for
// the pipes, one thread each (bench/round_trips.py).
//
//   round_trips_bench echo
//   round_trips_bench [COUNT]
//
// The first form serves the echo until it is killed. The second measures: "echo-N", "ping-N", "submit-N" and
// "library-submit-N" in nanoseconds per round trip of N clients; "count-echo" and the like make COUNT and 2
// COUNT round trips of one client between marks.

#include <atomic>
#include <cstdlib>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/marks.h"
#include "bench/messages.h"
#include "bench/turns.h"
#include "client/live/log_client.h"
#include "records/pipe_protocol.h"
#include "util/win32.h"

namespace {

constexpr char kEchoPipe[] = R"(\\.\pipe\TamLogBenchEcho)";
constexpr int kTripsOfARound = 6000;  // of all clients together
// Later than the messages of any log that the server was started with.
std::atomic<std::uint64_t> nextTime = 300ULL * 86400000;

[[noreturn]] void Fail(const std::string& what) {
  Bench::Fail(what + " failed with " + std::to_string(GetLastError()));
}

void Echo(HANDLE pipe) {
  PipeRequest record{};
  DWORD bytes = 0;
  while (ReadFile(pipe, &record, sizeof record, &bytes, nullptr) != FALSE &&
         WriteFile(pipe, &record, bytes, &bytes, nullptr) != FALSE) {
  }
  CloseHandle(pipe);
}

int ServeEcho() {
  for (;;) {
    const HANDLE pipe =
        CreateNamedPipeA(kEchoPipe, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                         PIPE_UNLIMITED_INSTANCES, sizeof(PipeReply), sizeof(PipeRequest), 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) Fail("CreateNamedPipe");
    if (ConnectNamedPipe(pipe, nullptr) == FALSE && GetLastError() != ERROR_PIPE_CONNECTED) {
      Fail("ConnectNamedPipe");
    }
    std::thread(Echo, pipe).detach();
  }
}

// Retries for some seconds: the server may be about to offer its next instance.
HANDLE OpenPipe(const std::string& name, DWORD access) {
  for (int attempt = 0; attempt < 2000; ++attempt) {
    const HANDLE pipe = CreateFileA(name.c_str(), access, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (pipe != INVALID_HANDLE_VALUE) {
      DWORD mode = PIPE_READMODE_MESSAGE;
      if ((access & GENERIC_READ) != 0) SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr);
      return pipe;
    }
    if (GetLastError() != ERROR_FILE_NOT_FOUND && GetLastError() != ERROR_PIPE_BUSY) break;
    Sleep(2);
  }
  Fail("opening " + name);
}

class Client {
 public:
  virtual ~Client() = default;
  virtual void Trip() = 0;
};

// Writes to one handle and reads from the same or another one.
class BareClient : public Client {
 public:
  BareClient(HANDLE requests, HANDLE replies, std::uint32_t code) : request(requests), reply(replies) {
    record.code = code;
  }
  ~BareClient() override {
    CloseHandle(request);
    if (reply != request) CloseHandle(reply);
  }
  BareClient(const BareClient&) = delete;
  BareClient& operator=(const BareClient&) = delete;

  void Trip() override {
    DWORD bytes = 0;
    PipeReply answer{};
    if (WriteFile(request, &record, sizeof record, &bytes, nullptr) == FALSE) Fail("WriteFile");
    if (ReadFile(reply, &answer, sizeof answer, &bytes, nullptr) == FALSE) Fail("ReadFile");
    if (bytes != sizeof answer) Fail("an answer of another length");
  }

 protected:
  PipeRequest record{};

 private:
  HANDLE request;
  HANDLE reply;
};

// Submits messages that rise in time: ten per millisecond are more than a client can submit.
class BareSubmitter final : public BareClient {
 public:
  BareSubmitter(HANDLE requests, HANDLE replies)
      : BareClient(requests, replies, static_cast<std::uint32_t>(RequestCode::SubmitMessage)) {
    record.message = Bench::Messages(1).Next();
  }
  void Trip() override {
    Bench::SetTime(record.message, nextTime++ / 10);
    BareClient::Trip();
  }
};

class LibrarySubmitter final : public Client {
 public:
  void Trip() override {
    Bench::SetTime(message, nextTime++ / 10);
    if (client.Submit(message) != TamLogClient::Status::Ok) Fail("LogClient::Submit");
  }

 private:
  TamLogClient::LogClient client;
  LogMessageBody message = Bench::Messages(1).Next();
};

std::unique_ptr<Client> MakeClient(const std::string& kind) {
  if (kind == "library-submit") return std::make_unique<LibrarySubmitter>();
  if (kind == "echo") {
    const HANDLE pipe = OpenPipe(kEchoPipe, GENERIC_READ | GENERIC_WRITE);
    return std::make_unique<BareClient>(pipe, pipe, 0);
  }
  const HANDLE requests = OpenPipe(kRequestPipeName, GENERIC_WRITE);
  const HANDLE replies =
      OpenPipe(std::string(kRequestPipeName) + kReplyPipeSuffix, GENERIC_READ | FILE_WRITE_ATTRIBUTES);
  if (kind == "submit") return std::make_unique<BareSubmitter>(requests, replies);
  return std::make_unique<BareClient>(requests, replies, static_cast<std::uint32_t>(RequestCode::Ping));
}

// Returns the nanoseconds per round trip of all clients together. The first trips, before the clock starts,
// connect.
double Measure(const std::string& kind, int clients) {
  const int trips = kTripsOfARound / clients;
  std::latch connected(clients);
  std::latch begin(1);
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(clients));
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      const std::unique_ptr<Client> client = MakeClient(kind);
      for (int trip = 0; trip < 5; ++trip) client->Trip();
      connected.count_down();
      begin.wait();
      for (int trip = 0; trip < trips; ++trip) client->Trip();
    });
  }
  connected.wait();
  const double spent = Bench::Nanoseconds([&] {
    begin.count_down();
    for (std::thread& thread : threads) thread.join();
  });
  return spent / (trips * clients);
}

Bench::Measurements MakeMeasurements(int counted) {
  Bench::Measurements measurements;
  for (const std::string kind : {"echo", "ping", "submit", "library-submit"}) {
    for (const int clients : {1, 4, 16}) {
      measurements[kind + "-" + std::to_string(clients)] = [=] { return Measure(kind, clients); };
    }
    measurements["count-" + kind] = [=] {
      const std::unique_ptr<Client> client = MakeClient(kind);
      return Bench::MarkRepetitions(
          counted, [](int) {},
          [&](int count) {
            for (int i = 0; i < count; ++i) client->Trip();
          });
    };
  }
  return measurements;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "echo") return ServeEcho();
  return Bench::TakeTurns(MakeMeasurements(static_cast<int>(Bench::NumberIn(argc, argv, 1))));
}
