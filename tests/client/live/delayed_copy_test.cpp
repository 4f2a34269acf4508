// A copy that does not end while the server stops: a page comes from a slow disk, or a debugger holds the
// thread. The log has to be released all the same, because a server that stops waits for the readers of its
// file.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>

#include "client/live/handle.h"
#include "client/live/log_stream.h"
#include "client/message/win32.h"
#include "store/message_file_server.h"
#include "tests/client/live/disturbed_copy.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using TamLogClient::LogChange;
using TamLogClient::LogStream;
using TamLogClient::LogStreamOptions;
using TamLogClient::Status;

constexpr DWORD kHeldMs = 4000;
constexpr std::uint64_t kReleasedMs = 1500;  // 250 ms where the machine is not busy

std::string NameOf(const char* role) {
  return "Global\\TamLogHeldCopy" + std::string(role) + std::to_string(GetCurrentProcessId());
}

bool IsShared() {
  return static_cast<bool>(
      TamLogClient::Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, NameOf("Map").c_str())));
}

class HeldCopy : public testing::Test {
 protected:
  HeldCopy() {
    configuration.maxMessage = 100;
    configuration.logFile = directory.File("Logs.dat");
    configuration.typeFilter[0] = true;
    server.OpenFile(NameOf("Map"), NameOf("HeaderLock"), NameOf("ReadWait"), NameOf("WriteWait"));
    Add("first");
  }

  void Add(const std::string& text) {
    server.AddMessage(TamLogTest::MakeBody(++now, text));
    server.FlushWrites();
  }

  TestSupport::TempDir directory;
  ServerConfiguration configuration;
  TamLogUtil::Mutex configLock;
  MessageFileServer server{&configuration, &configLock};
  int now = 0;
};

TEST_F(HeldCopy, DoesNotDelayAServerThatStops) {
  LogStreamOptions options;
  options.intervalMs = 10;
  options.mapName = NameOf("Map");
  LogStream stream(options);
  ASSERT_EQ(stream.Open(), Status::Ok);
  Add("second");
  TamLogTest::HoldNextCopy(kHeldMs);
  LogChange seen = LogChange::None;
  std::uint64_t returned = 0;
  std::jthread reading([&] {
    seen = stream.Wait(20000);
    returned = GetTickCount64();
  });
  while (!TamLogTest::CopyIsHeld()) Sleep(1);
  const std::uint64_t stopped = GetTickCount64();
  server.CloseFile(TamLogUtil::Timeout::Infinite);
  while (IsShared() && GetTickCount64() - stopped < 2 * std::uint64_t{kHeldMs}) Sleep(1);
  const std::uint64_t released = GetTickCount64();
  reading.join();
  EXPECT_LT(released - stopped, kReleasedMs);
  EXPECT_GT(returned, released) << "the copy was over before";
  EXPECT_EQ(seen, LogChange::Stopped);
}

}  // namespace
