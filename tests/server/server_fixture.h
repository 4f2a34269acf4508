#pragma once

// A real service object over a real registry key, a loaded driver, a log file in a folder of its own and the
// real pipes. Each test starts from nothing and leaves nothing behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "driver/driver_double.h"
#include "server/server_service.h"
#include "tests/server/faults.h"
#include "tests/server/requests.h"
#include "tests/server/support.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

class ServerTest : public testing::Test {
 protected:
  // Settings under which nothing happens by itself in the time of a test, except the flush every 200 ms.
  static constexpr std::uint32_t kNever = 3600000;  // milliseconds
  static constexpr std::uint32_t kCapacity = 20;

  ServerTest() : driver(std::make_unique<DriverDouble>()), logFile(folder.File("Test.dat")) {
    faults::Reset();
    TamLogUtil::SetLogFile(folder.File("Diagnostic.txt"));
    registry::DeleteAll();
    registry::SetText("LogFile", logFile);
    registry::SetNumber("MaxMessage", kCapacity);
    registry::SetNumber("DevicePollRate", kNever);
    registry::SetNumber("SaveRate", kNever / 1000);
    service = std::make_unique<ServerService>();
  }

  ~ServerTest() override {
    faults::Reset();
    service.reset();
    TamLogUtil::SetLogFile("");
    registry::DeleteAll();
  }

  // How often the server has opened the driver since the test began: once per start from stopped.
  std::uint32_t Starts() { return driver->Counters().opens - 1; }
  bool ServerHasDriverOpen() { return driver->Counters().openHandles == 2; }

  std::string Diagnostics() const { return WithoutCarriageReturns(ReadBytes(folder.File("Diagnostic.txt"))); }
  bool IsInLog(const std::string& text) const {
    const std::vector<std::string> stored = RingTexts(logFile);
    return std::find(stored.begin(), stored.end(), text) != stored.end();
  }
  bool Arrives(const std::string& text) const {
    return WaitUntil([&] { return IsInLog(text); }, 3000ms);
  }
  // A message that is not expected to arrive has been passed by one that is.
  bool IsDropped(const std::string& text) {
    Submit(*service, MakeMessage("probe behind " + text, "probe", 2, 59));
    return Arrives("probe behind " + text) && !IsInLog(text);
  }

  LoadedDriverDouble loaded;
  std::unique_ptr<DriverDouble> driver;
  TempDir folder;
  std::string logFile;
  std::unique_ptr<ServerService> service;
};

// The full text of the ExceptionBase that `action` throws; empty when it throws none.
template <class Action>
std::string FailureOf(Action&& action) {
  try {
    action();
  } catch (const TamLogUtil::Exceptions::ExceptionBase& exception) {
    return exception.Compose("\n");
  }
  return "";
}
