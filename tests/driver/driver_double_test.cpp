// The real driver, loaded by the real service manager.

#include "driver/driver_double.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/wait_until.h"
#include "util/win32.h"

namespace {

// The literal values that the server opens and sends.
constexpr const char* kDevice = R"(\\.\TAMLOG)";
constexpr DWORD kGetMessage = 0x00222004;

LogMessageBody Message(const std::string& text, std::int16_t second = 0) {
  LogMessageBody body{};
  const std::int16_t time[8] = {2026, 1, 2, 3, 4, second, 678, 9};
  std::memcpy(body.timestamp, time, sizeof(time));
  body.type = 3;
  std::memcpy(body.origin, "ORIGIN!!", sizeof(body.origin));
  std::memcpy(body.tail, "TAIL", sizeof(body.tail));
  std::memset(body.source, 's', 6);
  text.copy(body.text, sizeof(body.text) - 1);
  return body;
}

std::vector<LogMessageBody> Numbered(int count) {
  std::vector<LogMessageBody> messages;
  messages.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) messages.push_back(Message(std::to_string(i)));
  return messages;
}

bool SameBytes(const LogMessageBody& a, const LogMessageBody& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

// Fetches until a fetch fails, as the server's driver poll does.
std::vector<LogMessageBody> Drain(DriverDouble& driver) {
  std::vector<LogMessageBody> messages;
  LogMessageBody body{};
  while (driver.Get(body)) messages.push_back(body);
  return messages;
}

// The handle the server opens: its access, its share mode.
class ServersHandle {
 public:
  ServersHandle() : handle(CreateFileA(kDevice, 0xC0000000, 2, nullptr, OPEN_EXISTING, 0x80, nullptr)) {}
  ~ServersHandle() { CloseHandle(handle); }
  ServersHandle(const ServersHandle&) = delete;
  ServersHandle& operator=(const ServersHandle&) = delete;

  bool IsOpen() const { return handle != INVALID_HANDLE_VALUE; }

  // 0, or the error of a fetch into a buffer of `length` bytes.
  DWORD Fetch(DWORD code, DWORD length) {
    DWORD returned = 0;
    return DeviceIoControl(handle, code, nullptr, 0, buffer.data(), length, &returned, nullptr) != 0
               ? 0
               : GetLastError();
  }

 private:
  HANDLE handle;
  std::array<char, 1024> buffer{};
};

class LoadedDriver : public testing::Test {
 protected:
  // The driver hears of a closed handle a moment after CloseHandle has returned.
  bool HasOneHandle() {
    return TestSupport::WaitUntil([this] { return driver.Counters().openHandles == 1; });
  }

  LoadedDriverDouble loaded;
  DriverDouble driver;
};

std::uint32_t OpenError() {
  try {
    DriverDouble driver;
  } catch (const DriverDoubleError& error) {
    return error.Code();
  }
  return 0;
}

TEST_F(LoadedDriver, HandsOverTheBytesThatWerePutIn) {
  const LogMessageBody sent = Message("hello");
  driver.Put(std::span(&sent, 1));
  LogMessageBody received{};
  ASSERT_TRUE(driver.Get(received));
  EXPECT_TRUE(SameBytes(sent, received));
}

TEST_F(LoadedDriver, HandsOverEachMessageOnceInItsOrder) {
  const std::vector<LogMessageBody> sent = Numbered(5);
  driver.Put(std::span(sent).first(2));
  driver.Put(std::span(sent).subspan(2));
  const std::vector<LogMessageBody> received = Drain(driver);
  ASSERT_EQ(5U, received.size());
  for (std::size_t i = 0; i < 5; ++i) EXPECT_TRUE(SameBytes(sent[i], received[i])) << i;
}

TEST_F(LoadedDriver, FailsWhenItIsEmptyAndServesWhatComesLater) {
  LogMessageBody body{};
  EXPECT_FALSE(driver.Get(body));
  const LogMessageBody sent = Message("later");
  driver.Put(std::span(&sent, 1));
  EXPECT_TRUE(driver.Get(body));
  EXPECT_FALSE(driver.Get(body));
}

TEST_F(LoadedDriver, AnswersTheServersOpenAndControlCode) {
  ServersHandle server;
  ASSERT_TRUE(server.IsOpen());
  const std::vector<LogMessageBody> sent = Numbered(1);
  driver.Put(sent);
  EXPECT_EQ(0U, server.Fetch(kGetMessage, 546));
  EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_ITEMS), server.Fetch(kGetMessage, 546));
}

TEST_F(LoadedDriver, KeepsTheMessageWhenTheBufferIsTooSmall) {
  ServersHandle server;
  driver.Put(Numbered(1));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER), server.Fetch(kGetMessage, 545));
  EXPECT_EQ(1U, driver.Counters().queued);
  EXPECT_EQ(0U, server.Fetch(kGetMessage, 546));
}

TEST_F(LoadedDriver, RefusesAnUnknownCode) {
  ServersHandle server;
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_FUNCTION), server.Fetch(0x00222000, 546));
}

TEST_F(LoadedDriver, RefusesAPartOfAMessage) {
  DWORD returned = 0;
  HANDLE handle = CreateFileA(kDevice, 0xC0000000, 2, nullptr, OPEN_EXISTING, 0x80, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, handle);
  std::array<char, 600> input{};
  EXPECT_FALSE(
      DeviceIoControl(handle, TAMLOG_IOCTL_PUT_MESSAGES, input.data(), 600, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), GetLastError());
  EXPECT_FALSE(
      DeviceIoControl(handle, TAMLOG_IOCTL_PUT_MESSAGES, nullptr, 0, nullptr, 0, &returned, nullptr));
  CloseHandle(handle);
  EXPECT_EQ(0U, driver.Counters().put);
}

TEST_F(LoadedDriver, FailsEveryFetchWithTheStatusThatWasSetAndKeepsItsMessages) {
  ServersHandle server;
  driver.Put(Numbered(2));
  driver.SetFailure(0xC0000001);  // STATUS_UNSUCCESSFUL
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(static_cast<DWORD>(ERROR_GEN_FAILURE), server.Fetch(kGetMessage, 546));
  EXPECT_EQ(2U, driver.Counters().queued);
  driver.SetFailure(0);
  EXPECT_EQ(2U, Drain(driver).size());
}

TEST_F(LoadedDriver, RefusesAFailureThatIsASuccess) {
  for (const std::uint32_t status : {1U, 0x103U, 0x40000000U}) {
    EXPECT_THROW(driver.SetFailure(status), DriverDoubleError) << status;
  }
  driver.Put(Numbered(1));
  EXPECT_EQ(1U, Drain(driver).size());
}

TEST_F(LoadedDriver, CountsWhatHappened) {
  driver.Put(Numbered(3));
  LogMessageBody body{};
  EXPECT_TRUE(driver.Get(body));
  driver.SetFailure(0xC000000E);
  EXPECT_FALSE(driver.Get(body));
  {
    ServersHandle second;
    const TamLogDriverCounters counters = driver.Counters();
    EXPECT_EQ(2U, counters.queued);
    EXPECT_EQ(1U, counters.served);
    EXPECT_EQ(1U, counters.failed);
    EXPECT_EQ(2U, counters.openHandles);
    EXPECT_EQ(2U, counters.opens);
    EXPECT_EQ(3U, counters.put);
  }
  EXPECT_TRUE(HasOneHandle());
}

TEST_F(LoadedDriver, ResetEmptiesItEndsTheFailureAndZeroesTheCounters) {
  driver.Put(Numbered(3));
  driver.SetFailure(0xC0000001);
  driver.Reset();
  TamLogDriverCounters counters = driver.Counters();
  EXPECT_EQ(0U, counters.queued + counters.served + counters.failed + counters.put);
  EXPECT_EQ(1U, counters.openHandles);
  EXPECT_EQ(1U, counters.opens);
  driver.Put(Numbered(1));
  EXPECT_EQ(1U, Drain(driver).size());
}

TEST_F(LoadedDriver, TenThousandMessagesGoInAtOnceAndAreDrainedInOrder) {
  const std::vector<LogMessageBody> sent = Numbered(10000);
  driver.Put(sent);
  EXPECT_EQ(10000U, driver.Counters().queued);
  const std::vector<LogMessageBody> received = Drain(driver);
  ASSERT_EQ(sent.size(), received.size());
  for (std::size_t i = 0; i < sent.size(); ++i) ASSERT_TRUE(SameBytes(sent[i], received[i])) << i;
  EXPECT_EQ(0U, driver.Counters().queued);
  EXPECT_EQ(10000U, driver.Counters().served);
}

TEST_F(LoadedDriver, NothingIsLostOrServedTwiceByFourThreads) {
  constexpr int kRounds = 250;
  std::atomic<std::uint32_t> fetched{0};
  std::atomic<bool> finished{false};
  const auto put = [] {
    DriverDouble own;
    for (int i = 0; i < kRounds; ++i) own.Put(Numbered(2));
  };
  const auto fetch = [&] {
    DriverDouble own;
    while (!finished) fetched += static_cast<std::uint32_t>(Drain(own).size());
  };
  std::thread fetchers[2] = {std::thread(fetch), std::thread(fetch)};
  std::thread putters[2] = {std::thread(put), std::thread(put)};
  for (std::thread& putter : putters) putter.join();
  finished = true;
  for (std::thread& fetcher : fetchers) fetcher.join();
  fetched += static_cast<std::uint32_t>(Drain(driver).size());

  EXPECT_EQ(4U * kRounds, fetched);
  const TamLogDriverCounters counters = driver.Counters();
  EXPECT_EQ(4U * kRounds, counters.put);
  EXPECT_EQ(4U * kRounds, counters.served);
  EXPECT_EQ(0U, counters.queued);
  EXPECT_TRUE(HasOneHandle());
}

TEST(DriverService, WithoutTheDriverThereIsNoDevice) {
  DriverDouble::Remove();
  EXPECT_EQ(static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND), OpenError());
}

TEST(DriverService, StartWithoutInstallFails) {
  DriverDouble::Remove();
  try {
    DriverDouble::Start();
    FAIL() << "a missing driver was started";
  } catch (const DriverDoubleError& error) {
    EXPECT_EQ(static_cast<std::uint32_t>(ERROR_SERVICE_DOES_NOT_EXIST), error.Code());
  }
}

TEST(DriverService, InstallOfAMissingFileFailsAndNamesIt) {
  try {
    DriverDouble::Install("no_such_driver.sys");
    FAIL() << "a missing file was installed";
  } catch (const DriverDoubleError& error) {
    EXPECT_EQ(static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND), error.Code());
    EXPECT_NE(std::string::npos, std::string(error.what()).find("no_such_driver.sys")) << error.what();
  }
}

TEST(DriverService, UnloadsAndLoadsAgainEmpty) {
  DriverDouble::Install(DriverDouble::PathBesideExecutable());
  for (int round = 0; round < 5; ++round) {
    DriverDouble::Start();
    {
      DriverDouble driver;
      EXPECT_EQ(0U, driver.Counters().queued) << round;
      driver.Put(Numbered(10));
      EXPECT_EQ(10U, driver.Counters().queued) << round;
    }
    DriverDouble::Stop();
    EXPECT_EQ(static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND), OpenError()) << round;
  }
  EXPECT_TRUE(DriverDouble::Remove());
  EXPECT_FALSE(DriverDouble::Remove());
}

TEST(DriverService, StartAndStopMayBeRepeated) {
  LoadedDriverDouble loaded;
  DriverDouble::Start();
  DriverDouble::Stop();
  DriverDouble::Stop();
  DriverDouble::Start();
  EXPECT_EQ(0U, OpenError());
}

TEST(DriverService, InstallReplacesTheDriverThatIsLoaded) {
  LoadedDriverDouble first;
  DriverDouble().Put(Numbered(1));
  DriverDouble::Install(DriverDouble::PathBesideExecutable());
  EXPECT_EQ(static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND), OpenError());
  DriverDouble::Start();
  EXPECT_EQ(0U, DriverDouble().Counters().queued);
}

TEST(DriverService, AHandleThatOutlivesTheDriverFailsAndDoesNoHarm) {
  LoadedDriverDouble loaded;
  DriverDouble driver;
  driver.Put(Numbered(1));
  DriverDouble::Stop();
  LogMessageBody body{};
  EXPECT_FALSE(driver.Get(body));
  EXPECT_THROW(driver.Counters(), DriverDoubleError);
  DriverDouble::Start();
  EXPECT_FALSE(driver.Get(body));
}

}  // namespace
