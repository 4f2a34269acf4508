#pragma once

// The fixture of the system tests: runs the real executable under the real service manager with the real
// driver double, through a small set of operations. Every test starts from a machine without service,
// settings, log file and waiting messages, and leaves it in that state; unexpected entries in the diagnostic
// log fail the test at its end.
//
// Every wait is bounded. Operations that cannot continue throw std::runtime_error, which fails the test.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "driver/driver_double.h"
#include "records/log_file_format.h"
#include "records/pipe_protocol.h"
#include "tests/system/platform.h"
#include "tests/system/reader_process.h"
#include "tests/system/server_connection.h"
#include "tests/system/server_registry.h"
#include "tests/system/service_control.h"
#include "tests/system/test_log_file.h"

// Settings that a test writes into the registry before it starts the service. Small and quick, not the
// defaults.
struct ServerSettings {
  std::uint32_t maxMessage = 100;
  std::uint32_t devicePollRate = 100;
  std::uint32_t saveRate = 300;
  std::uint32_t typeFilter = 0xFFFFFFFFU;
};

struct StopReport {
  std::uint32_t answer = 0;  // to the stop control
  std::chrono::milliseconds duration{0};
};

// Returns a message dated `atMs` milliseconds after noon of a fixed day. Every byte of it has a value of its
// own.
LogMessageBody Message(const std::string& text, int atMs);
LogMessageBody WithSource(LogMessageBody message, const std::string& source);
LogMessageBody WithType(LogMessageBody message, std::uint32_t type);

// Returns the texts of the entries in a piece of the diagnostic log, without their time stamps.
std::vector<std::string> DiagnosticTexts(const std::string& diagnostics);

// Reader and writer can pass each other in the protocol of the events: a reader that has just found the
// read-wait event signalled enters while a writer resets it at that moment. The writer's release then sets
// the reader count to 0 although that reader is inside, the reader's own release makes it -1, and write-wait
// stays reset: the next flush waits forever. Another process has to signal write-wait; in tests with busy
// readers this watch does so.
class ProtocolWatch {
 public:
  explicit ProtocolWatch(std::string logFile);
  ~ProtocolWatch();
  ProtocolWatch(const ProtocolWatch&) = delete;
  ProtocolWatch& operator=(const ProtocolWatch&) = delete;
  int Rescues() const { return rescues; }

 private:
  void Run();

  std::string path;
  std::atomic<bool> stopping{false};
  std::atomic<int> rescues{0};
  std::thread thread;
};

class SystemTest : public ::testing::Test {
 protected:
  SystemTest();
  void SetUp() override;
  void TearDown() override;

  // Operations on the machine.
  void Settings(const ServerSettings& settings);
  void UseCopyOfServer();  // the executable in a directory of its own, without a log file
  CommandReport RunServer(const std::string& arguments);  // its input is empty
  const std::string& ServerPath() const { return serverPath; }
  const std::string& LogFile() const { return logFile; }
  std::string ScratchFile(const std::string& name) const { return scratch.File(name); }
  DriverDouble& Driver() { return *driver; }
  void UnloadDriver();
  void LoadDriver();

  // Operations on the service.
  void InstallService();
  void RemoveService();
  void StartService();       // waits until it serves requests
  StopReport StopService();  // waits until the manager reports it stopped and its process has ended
  void KillService();
  // Adopts a service that the test has started by itself, so that it is stopped properly at the end.
  void AdoptService();
  void RunService(const ServerSettings& settings = {});  // settings, install, start
  ProcessById& ServiceProcess() { return *process; }
  // Returns how often the server has started since the test began, including restarts in the same process: it
  // opens the device once per start.
  std::uint32_t Starts();
  // Waits until that many starts are complete.
  void WaitForStarts(std::uint32_t starts, std::chrono::milliseconds limit = std::chrono::seconds(40));

  // Sends requests, each over a connection of its own.
  PipeReply Ask(const PipeRequest& request);
  ReplyCode AskForCode(const PipeRequest& request);
  void SubmitOverPipe(const LogMessageBody& message);
  void PutIntoDriver(std::initializer_list<LogMessageBody> messages);
  SettingsBody CurrentSettings();

  // Reads the file from outside.
  TestLogFile SlotsOfFile() const { return TestLogFile::Read(logFile); }
  LogFileHeader Header() const { return SlotsOfFile().header; }
  std::vector<std::string> TextsOfFile() const { return Texts(SlotsOfFile().NewestFirst()); }
  // Waits until the file holds exactly these texts, newest first; fails the test otherwise.
  void ExpectTexts(const std::vector<std::string>& newestFirst,
                   std::chrono::milliseconds limit = std::chrono::seconds(30));
  bool WaitForMessageCount(std::int32_t count, std::chrono::milliseconds limit);

  // Operations on shared objects.
  void SignalWriteWait();

  // Returns what the server has written into its diagnostic log since the last call.
  std::string TakeDiagnostics();

  std::string logFile;  // the path where the test expects the log file

 private:
  void Sweep();

  ScratchDirectory scratch;
  std::string serverPath;
  std::unique_ptr<LoadedDriverDouble> loadedDriver;
  std::unique_ptr<DriverDouble> driver;
  std::uint32_t firstOpens = 0;
  std::size_t diagnosticsTaken = 0;
  std::unique_ptr<ProcessById> process;
};
