#pragma once

// A real service object over a real registry key, a loaded driver, a log file in the test's own folder and
// the real pipes. Each test starts from scratch and removes everything.

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
  // Settings under which no timer fires during a test, except the flush every 200 ms.
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

  // The number of times that the server has opened the driver in this test: once per start from stopped.
  std::uint32_t Starts() { return driver->Counters().opens - 1; }
  bool ServerHasDriverOpen() { return driver->Counters().openHandles == 2; }
  // The driver hears of a closed handle a moment after CloseHandle has returned.
  bool ServerClosesDriver() {
    return WaitUntil([&] { return driver->Counters().openHandles == 1; }, 3000ms);
  }

  std::string Diagnostics() const { return WithoutCarriageReturns(ReadBytes(folder.File("Diagnostic.txt"))); }
  bool IsInLog(const std::string& text) const {
    const std::vector<std::string> stored = RingTexts(logFile);
    return std::find(stored.begin(), stored.end(), text) != stored.end();
  }
  bool Arrives(const std::string& text) const {
    return WaitUntil([&] { return IsInLog(text); }, 3000ms);
  }
  // Submits another message and waits for it: if `text` is not in the log then, it was dropped.
  bool IsDropped(const std::string& text) {
    Submit(*service, MakeMessage("probe after " + text, "probe", 2, 59));
    return Arrives("probe after " + text) && !IsInLog(text);
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
