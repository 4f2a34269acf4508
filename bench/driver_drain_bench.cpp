// Measures the server's real driver poll, next to a bare loop of device control calls over the same driver
// and messages. The server object runs in this process as it does in the service (timers, pipes, log file,
// settings from the registry); the program calls its poll as its timer would (bench/driver_drain.py).
//
// Measurements: "poll" and "bare" in nanoseconds per message; "count-poll" drains COUNT and 2 COUNT between
// marks.

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/marks.h"
#include "bench/messages.h"
#include "bench/turns.h"
#include "driver/driver_double.h"
#include "server/driver_device.h"
#include "server/server_service.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace {

constexpr std::size_t kDrained = 10000;
constexpr std::size_t kPutAtOnce = 1000;

class Drain {
 public:
  Drain() : messages(1) {
    messages.Skip(300ULL * 86400000 / Bench::kMillisecondsApart);  // later than any in the log
    service.OnStart();
    device = CreateFileA(kDriverDevicePath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, 0, nullptr);
  }
  ~Drain() {
    CloseHandle(device);
    service.OnStop();
  }
  Drain(const Drain&) = delete;
  Drain& operator=(const Drain&) = delete;

  void Put(std::size_t count) {
    const std::vector<LogMessageBody> bodies = Bench::NextOf(messages, count);
    for (std::size_t i = 0; i < count; i += kPutAtOnce) {
      driver.Put(std::span(bodies).subspan(i, std::min(kPutAtOnce, count - i)));
    }
  }
  void Poll() { service.OnTimer(kDriverPollTimer); }
  void Bare() {
    LogMessageBody message{};
    DWORD bytes = 0;
    std::uint64_t taken = 0;
    while (DeviceIoControl(device, IOCTL_TAMLOG_GET_MESSAGE, nullptr, 0, &message, sizeof message, &bytes,
                           nullptr) != FALSE) {
      taken += message.type + 1;
    }
    Bench::sink = Bench::sink + taken;
  }
  double Measure(void (Drain::*empty)()) {
    Put(kDrained);
    const double spent = Bench::Nanoseconds([&] { (this->*empty)(); });
    if (driver.Counters().queued != 0) Bench::Fail("messages are left in the driver");
    return spent / kDrained;
  }

 private:
  ServerService service;
  DriverDouble driver;
  HANDLE device;
  Bench::Messages messages;
};

}  // namespace

int main(int argc, char** argv) {
  const auto counted = static_cast<int>(Bench::NumberIn(argc, argv, 1));
  try {
    Drain drain;
    return Bench::TakeTurns({{"poll", [&] { return drain.Measure(&Drain::Poll); }},
                             {"bare", [&] { return drain.Measure(&Drain::Bare); }},
                             {"count-poll", [&] {
                                return Bench::MarkRepetitions(
                                    counted, [&](int count) { drain.Put(static_cast<std::size_t>(count)); },
                                    [&](int) { drain.Poll(); });
                              }}});
  } catch (const TamLogUtil::Exceptions::ExceptionBase& failure) {
    Bench::Fail(failure.Compose("; "));
  } catch (const std::exception& failure) {
    Bench::Fail(failure.what());
  }
}
