// The stop's wait for the free file while another thread holds the configuration's lock.

#include <gtest/gtest.h>

#include <cstdint>

#include "store/message_file_server.h"
#include "tests/server/support.h"

namespace {

// A request may be changing the path under the lock, so the wait neither reads the path nor releases the
// lock.
TEST(WaitUntilFree, LeavesPathAndLockAloneWhenTheLockDoesNotComeInTime) {
  TamLogUtil::Mutex configLock;
  ServerConfiguration configuration;
  const TempDir folder;
  configuration.logFile = folder.Path();  // opening a folder would be an error
  MessageFileServer file(&configuration, &configLock);

  configLock.Wait(TamLogUtil::Timeout::kForever);
  TamLogUtil::Timeout timeout(100);
  EXPECT_FALSE(file.WaitUntilFree(timeout));
  EXPECT_FALSE(configLock.TryWait(0)) << "still held";
  configLock.Release();
}

}  // namespace
