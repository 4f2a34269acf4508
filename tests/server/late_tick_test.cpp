// A tick that is still running when a stop runs out of time, and the start that follows it.

#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

#include "tests/server/server_fixture.h"
#include "util/sync.h"
#include "util/win32.h"

namespace {

// A service whose driver tick can be blocked just before its work.
class HeldUpService final : public ServerService {
 public:
  HeldUpService() { mayContinue.RemoveSignal(); }

  void OnTimer(std::uint32_t timerId) override {
    if (timerId == kDriverPollTimer && !held.exchange(true)) mayContinue.Wait(60000);
    ServerService::OnTimer(timerId);
  }

  std::atomic<bool> held = false;
  TamLogUtil::Event mayContinue{nullptr, nullptr};
};

using LateTick = ServerTest;

// The tick is about to take the lock that the start sequence holds: whichever comes first, both get through.
TEST_F(LateTick, StartWaitsForItBeforeTheLockThatItNeeds) {
  registry::SetNumber("DevicePollRate", 10);
  auto heldUp = std::make_unique<HeldUpService>();
  HeldUpService& late = *heldUp;
  service = std::move(heldUp);
  service->OnStart();
  ASSERT_TRUE(WaitUntil([&] { return late.held.load(); }, 5000ms));
  service->OnStop();  // gives up on the tick at its deadline

  std::atomic<bool> started = false;
  std::thread start([&] {
    service->OnStart();
    started = true;
  });
  Sleep(500);
  EXPECT_FALSE(started);
  late.mayContinue.SetSignal();
  const bool both = WaitUntil([&] { return started.load(); }, 10000ms);
  if (!both) std::_Exit(1);  // nothing could be destroyed safely
  start.join();
  Submit(*service, MakeMessage("after the late tick"));
  EXPECT_TRUE(Arrives("after the late tick"));
  service->OnStop();  // no tick may run after the members of this class are destroyed
}

}  // namespace
