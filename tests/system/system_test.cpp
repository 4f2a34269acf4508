#include "tests/system/system_test.h"

#include <cstring>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <utility>

#include "tests/support/messages.h"
#include "util/win32.h"

#undef StartService  // would rename the fixture's operation

namespace {

using namespace std::chrono_literals;

constexpr auto kStartLimit = 40s;
constexpr auto kStopLimit = 40s;
constexpr auto kProcessEndLimit = 20s;
constexpr auto kConnectLimit = 30s;
constexpr auto kReplyLimit = 60s;
constexpr const char* kServerName = "TamLogServer.exe";

std::string DiagnosticLog() {
  return ServiceDirectory() + "\\TamLogServiceLog.txt";
}

// Returns a message that the server accepts and drops: its answer shows that a start under way is complete,
// because both take the same lock.
LogMessageBody DroppedMessage() {
  return WithType(Message("dropped", 0), kMessageTypes);
}

}  // namespace

LogMessageBody Message(const std::string& text, int atMs) {
  LogMessageBody message{};
  std::memset(&message, 0x5A, sizeof(message));
  for (std::uint8_t i = 0; i < 8; ++i) message.origin[i] = static_cast<std::uint8_t>(0xE0 + i);
  for (std::uint8_t i = 0; i < 4; ++i) message.tail[i] = static_cast<std::uint8_t>(0xB0 + i);
  TestSupport::SetTime(message, 2026, 3, 14, TestSupport::AtMillisecond(12 * 3600000 + atMs));
  message.timestamp[7] = 77;
  message.type = 1;
  if (text.size() >= kTextSize) throw std::runtime_error("the text does not fit a message");
  std::memcpy(message.text, text.c_str(), text.size() + 1);
  return WithSource(message, "System test");
}

LogMessageBody WithSource(LogMessageBody message, const std::string& source) {
  if (source.size() >= kTextSize) throw std::runtime_error("the source does not fit a message");
  std::memcpy(message.source, source.c_str(), source.size() + 1);
  return message;
}

LogMessageBody WithType(LogMessageBody message, std::uint32_t type) {
  message.type = type;
  return message;
}

// An entry is a line with the time, " - ", the text and a line end; a text may have several lines.
std::vector<std::string> DiagnosticTexts(const std::string& diagnostics) {
  const std::regex stamp("(^|\n)[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\\d \\d\\d:\\d\\d:\\d\\d \\d{4}\n - ");
  std::vector<std::string> texts;
  std::sregex_iterator entry(diagnostics.begin(), diagnostics.end(), stamp);
  while (entry != std::sregex_iterator()) {
    const auto begin = static_cast<std::size_t>(entry->position() + entry->length());
    const std::sregex_iterator next = std::next(entry);
    const std::size_t end =
        next == std::sregex_iterator() ? diagnostics.size() - 1 : static_cast<std::size_t>(next->position());
    texts.push_back(diagnostics.substr(begin, end - begin));
    entry = next;
  }
  return texts;
}

ProtocolWatch::ProtocolWatch(std::string logFile) : path(std::move(logFile)), thread([this] { Run(); }) {}

ProtocolWatch::~ProtocolWatch() {
  stopping = true;
  thread.join();
}

void ProtocolWatch::Run() {
  while (!stopping) {
    std::this_thread::sleep_for(20ms);
    const std::optional<LogFileHeader> header = TestLogFile::ReadHeader(path);
    if (!header || header->readCount >= 0) continue;
    const OwnedHandle event = Own(OpenEventA(EVENT_MODIFY_STATE, FALSE, kWriteWaitEventName));
    if (event && SetEvent(event.get()) != 0) ++rescues;
  }
}

SystemTest::SystemTest()
    : serverPath(OwnDirectory() + (IsWindowsWorld() ? "\\windows_world\\" : "\\") + kServerName) {
  logFile = scratch.File("Logs.dat");
}

void SystemTest::SetUp() {
  Sweep();
  DeleteFileIfThere(DiagnosticLog());
  LoadDriver();
}

void SystemTest::TearDown() {
  if (process && process->Alive()) StopService();
  Sweep();
  UnloadDriver();
  EXPECT_EQ(TakeDiagnostics(), "");
  DeleteFileIfThere(DiagnosticLog());
}

// Removes all remains of earlier tests from the machine, including those of killed tests.
void SystemTest::Sweep() {
  if (ServiceControl::State() != ServiceState::Absent) {
    ProcessById left(ServiceControl::ProcessId());
    if (left.Runs(kServerName)) left.Kill();
    ServiceControl::Delete();
  }
  process.reset();
  ServerRegistry::Delete();
}

void SystemTest::LoadDriver() {
  loadedDriver = std::make_unique<LoadedDriverDouble>();
  driver = std::make_unique<DriverDouble>();
  firstOpens = driver->Counters().opens;
}

void SystemTest::UnloadDriver() {
  driver.reset();
  loadedDriver.reset();
}

void SystemTest::Settings(const ServerSettings& settings) {
  ServerRegistry::Write("LogFile", logFile);
  ServerRegistry::Write("MaxMessage", settings.maxMessage);
  ServerRegistry::Write("DevicePollRate", settings.devicePollRate);
  ServerRegistry::Write("SaveRate", settings.saveRate);
  ServerRegistry::Write("TypeFilter", settings.typeFilter);
}

void SystemTest::UseCopyOfServer() {
  const std::string copy = scratch.File(kServerName);
  CopyFileTo(serverPath, copy);
  serverPath = copy;
}

CommandReport SystemTest::RunServer(const std::string& arguments) {
  ChildProcess server("\"" + serverPath + "\" " + arguments);
  return ReportAtEnd(server);
}

void SystemTest::InstallService() {
  const CommandReport report = RunServer("-install");
  EXPECT_EQ(report.output, "Installing service ... installed\n");
  EXPECT_EQ(report.exitCode, 0U);
}

void SystemTest::RemoveService() {
  const CommandReport report = RunServer("-remove");
  EXPECT_EQ(report.output, "Removing service ... removed\n");
  EXPECT_EQ(report.exitCode, 0U);
}

void SystemTest::StartService() {
  const std::uint32_t before = Starts();
  const std::uint32_t answer = ServiceControl::Start();
  if (answer != 0)
    throw std::runtime_error("starting the service failed with error " + std::to_string(answer));
  AdoptService();
  WaitForStarts(before + 1);
}

StopReport SystemTest::StopService() {
  const auto begin = std::chrono::steady_clock::now();
  StopReport report;
  report.answer = ServiceControl::SendStop();
  // Three answers are valid: in time; the process was gone before the answer; the handler took longer than
  // the manager waits.
  EXPECT_TRUE(report.answer == 0 || report.answer == ERROR_BROKEN_PIPE ||
              report.answer == ERROR_SERVICE_REQUEST_TIMEOUT)
      << report.answer;
  // The manager unregisters a service that was removed while it ran as soon as it stops.
  const bool stopped = Eventually(kStopLimit, [] {
    const ServiceState state = ServiceControl::State();
    return state == ServiceState::Stopped || state == ServiceState::Absent;
  });
  EXPECT_TRUE(stopped) << "state " << static_cast<std::uint32_t>(ServiceControl::State());
  report.duration =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
  EXPECT_EQ(process->WaitForEnd(kProcessEndLimit), 0U) << "the process did not end by itself";
  return report;
}

void SystemTest::AdoptService() {
  if (!Eventually(kStartLimit, [] { return ServiceControl::State() == ServiceState::Running; })) {
    throw std::runtime_error("the service did not reach running; its log: " + TakeDiagnostics());
  }
  process = std::make_unique<ProcessById>(ServiceControl::ProcessId());
}

void SystemTest::KillService() {
  process->Kill();
}

void SystemTest::RunService(const ServerSettings& settings) {
  Settings(settings);
  InstallService();
  StartService();
}

std::uint32_t SystemTest::Starts() {
  return driver->Counters().opens - firstOpens;
}

void SystemTest::WaitForStarts(std::uint32_t starts, std::chrono::milliseconds limit) {
  if (!Eventually(limit, [&] { return Starts() >= starts; })) {
    throw std::runtime_error("the server did not start again; its log: " + TakeDiagnostics());
  }
  EXPECT_EQ(Starts(), starts);
  EXPECT_EQ(AskForCode(SubmitRequest(DroppedMessage())), ReplyCode::Done);
}

PipeReply SystemTest::Ask(const PipeRequest& request) {
  std::optional<ServerConnection> connection = ServerConnection::Connect(kConnectLimit);
  if (!connection) throw std::runtime_error("no connection to the server");
  // A message waits until a poll of the driver is over, which may have ten thousand of its own.
  const std::optional<PipeReply> reply = connection->Ask(request, kReplyLimit);
  if (!reply) throw std::runtime_error("no reply to request " + std::to_string(request.code));
  return *reply;
}

ReplyCode SystemTest::AskForCode(const PipeRequest& request) {
  return static_cast<ReplyCode>(Ask(request).code);
}

void SystemTest::SubmitOverPipe(const LogMessageBody& message) {
  EXPECT_EQ(AskForCode(SubmitRequest(message)), ReplyCode::Done);
}

void SystemTest::PutIntoDriver(std::initializer_list<LogMessageBody> messages) {
  driver->Put(std::vector<LogMessageBody>(messages));
}

SettingsBody SystemTest::CurrentSettings() {
  const PipeReply reply = Ask(RequestOf(RequestCode::GetSettings));
  EXPECT_EQ(static_cast<ReplyCode>(reply.code), ReplyCode::Settings);
  return reply.settings;
}

void SystemTest::ExpectTexts(const std::vector<std::string>& newestFirst, std::chrono::milliseconds limit) {
  Eventually(limit, [&] { return FileExists(logFile) && TextsOfFile() == newestFirst; });
  EXPECT_EQ(TextsOfFile(), newestFirst);
}

bool SystemTest::WaitForMessageCount(std::int32_t count, std::chrono::milliseconds limit) {
  return Eventually(limit, [&] {
    const std::optional<LogFileHeader> header = TestLogFile::ReadHeader(logFile);
    return header && header->messageCount == count;
  });
}

void SystemTest::SignalWriteWait() {
  const OwnedHandle event = Own(OpenEventA(EVENT_MODIFY_STATE, FALSE, kWriteWaitEventName));
  if (!event || SetEvent(event.get()) == 0) ThrowLastError("signalling write-wait");
}

std::string SystemTest::TakeDiagnostics() {
  // The file itself stays until the next test: the server may be writing its next entry.
  std::string text = ReadWholeFile(DiagnosticLog());
  std::erase(text, '\r');
  const std::size_t before = std::exchange(diagnosticsTaken, text.size());
  return text.substr(before);
}
