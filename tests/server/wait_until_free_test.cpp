// The stop's wait for the free file while somebody else has the configuration.

#include <gtest/gtest.h>

#include <cstdint>

#include "store/message_file_server.h"
#include "tests/server/support.h"

namespace {

// A request that changes the path may be at work inside the lock, so neither is the path read nor the lock
// freed.
TEST(WaitUntilFree, LeavesPathAndLockAloneWhenTheLockDoesNotComeInTime) {
  TamLogUtil::Mutex configLock;
  ServerConfiguration configuration;
  const TempDir folder;
  configuration.logFile = folder.Path();  // a folder would be an error if it were tried
  MessageFileServer file(&configuration, &configLock);

  configLock.Wait(TamLogUtil::Timeout::kForever);
  TamLogUtil::Timeout timeout(100);
  EXPECT_FALSE(file.WaitUntilFree(timeout));
  EXPECT_FALSE(configLock.TryWait(0)) << "still held";
  configLock.Release();
}

}  // namespace
