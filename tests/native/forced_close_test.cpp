// A stop whose time is over closes the store while another thread may still be opening it.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "records/log_file_format.h"
#include "store/message_file_server.h"
#include "store/server_configuration.h"
#include "tests/native/machine.h"
#include "util/exceptions.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;

constexpr char kPath[] = "C:\\Logs.dat";

template <class Step>
bool Succeeds(Step&& step) {
  try {
    step();
    return true;
  } catch (const ExceptionBase&) {
    return false;
  }
}

// AddressSanitizer reports a handle that is used after its close or closed twice, ThreadSanitizer one that
// both threads use at once.
TEST(ForcedClose, AtAnyMomentOfAnOpenClosesEachHandleOnce) {
  NativeMachine::Reset();
  ServerConfiguration configuration;
  configuration.logFile = kPath;
  configuration.maxMessage = 10;
  TamLogUtil::Mutex configLock;
  MessageFileServer server(&configuration, &configLock);
  const auto open = [&server] {
    server.OpenFile(kFileMapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName);
  };

  std::atomic<bool> ended{false};
  int opened = 0;
  int failed = 0;
  std::thread opening([&] {
    Timeout longest(20000);
    while ((opened < 100 || failed < 100) && !longest.Expired()) {
      ++(Succeeds(open) ? opened : failed);
      const TamLogUtil::Mutex::Access access(configLock, Timeout::Infinite);
      configuration.maxMessage = configuration.maxMessage % 50 + 10;
    }
    ended = true;
  });
  while (!ended) {
    Succeeds([&server] { server.CloseFile(Timeout::Immediate); });
    std::this_thread::yield();
  }
  opening.join();
  EXPECT_GE(opened, 100);
  EXPECT_GE(failed, 100);
  open();
  EXPECT_TRUE(server.VerifyIntegrity());
  server.CloseFile(Timeout::Infinite);
}

}  // namespace
