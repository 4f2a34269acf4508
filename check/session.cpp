#include "check/session.h"

#include <array>
#include <cstring>
#include <sstream>

#include "check/child.h"
#include "check/device.h"
#include "check/system.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/log/log_snapshot.h"
#include "client/message/win32.h"

#undef StartService

namespace TamLogCheck {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

namespace {

constexpr char kServerProgram[] = "TamLogServer.exe";
constexpr char kStateFile[] = "before-the-checks.txt";
constexpr std::uint32_t kStartMs = 30000;
constexpr int kChangeAttempts = 3;
constexpr std::uint32_t kChangeMs = 20000;  // the end of the connections follows a second after a change
constexpr std::uint32_t kStopMs = 60000;    // its own waits take 25 s at most

// Returns the program of a command line, without quotation marks and arguments.
std::string ProgramOf(const std::string& commandLine) {
  if (commandLine.starts_with('"')) return commandLine.substr(1, commandLine.find('"', 1) - 1);
  return commandLine.substr(0, commandLine.find(' '));
}

// Returns the number of messages in the log that the installed service uses; -1 when it cannot be read.
std::int32_t MessagesOfInstalled(const Registration& registration) {
  std::string path = StoredLogFile();
  if (path.empty()) {
    path = ProgramOf(registration.commandLine);
    path = PathIn(path.substr(0, path.find_last_of('\\')), "Logs.dat");
  }
  if (!Exists(path)) return 0;
  const Handle file = OpenAt(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  LogFileHeader header{};
  DWORD count = 0;
  if (!file || ReadFile(file.Get(), &header, sizeof(header), &count, nullptr) == 0) return -1;
  return count < sizeof(header) ? 0 : header.messageCount;
}

bool Answers() {
  LogClient client;
  if (client.Ping() != Status::Ok) return false;
  LogReader reader;
  return reader.Open() == Status::Ok;
}

}  // namespace

Session::~Session() {
  try {
    Restore();
  } catch (...) {
    return;  // the program has ended with a failure that it reports
  }
}

std::string Session::LogFile() const {
  return PathIn(folder, "Logs.dat");
}

std::string Session::DiagnosticLog() {
  return PathIn(SystemDirectory(), "TamLogServiceLog.txt");
}

void Session::MakeFolder() {
  folder = options.folder;
  if (folder.empty()) {
    std::array<char, 512> temporary{};
    if (GetTempPathA(static_cast<DWORD>(temporary.size()), temporary.data()) == 0) Fail("GetTempPath");
    folder = std::string(temporary.data()) + "tamlogcheck " + std::to_string(GetCurrentProcessId());
  }
  CreateProtectedDirectory(folder);
}

void Session::Prepare() {
  if (!MayAdminister())
    throw NoServer("this user is not an administrator, or the console has no administrator rights", false);
  const std::optional<Registration> registration = FindRegistration();
  installed = registration.has_value();
  std::string program = options.server.empty() ? PathIn(OwnDirectory(), kServerProgram) : options.server;
  if (registration) {
    wasRunning = !StatusOf().Stopped();
    const std::int32_t messages = MessagesOfInstalled(*registration);
    if (!options.interrupt && (wasRunning || messages != 0)) {
      throw NoServer(wasRunning
                         ? "the service TamLogServer is in use: --interrupt stops it for the checks"
                         : "the log of the service TamLogServer has messages: --interrupt uses the service "
                           "with another log",
                     true);
    }
  } else if (!Exists(program)) {
    throw NoServer("no server to install: " + program + " does not exist", false);
  }
  const bool deviceMissing = !DeviceIsThere();
  if (deviceMissing && !options.standInDevice) {
    throw NoServer("the driver's device \\\\.\\TAMLOG is missing; --stand-in-device provides an empty one",
                   false);
  }
  MakeFolder();
  settings = SaveSettings();
  if (installed) recovery = FindRecovery();
  deviceMade = deviceMissing;
  SaveState();
  const std::string problem = deviceMissing ? ProvideDevice() : "";
  if (!problem.empty()) {
    RemoveDirectoryAt(folder);
    throw NoServer("no stand-in for the driver's device: " + problem, false);
  }
  prepared = true;  // from here on there is something to restore
  if (installed) {
    if (wasRunning) Stop();
    return;
  }
  const std::string copy = PathIn(folder, kServerProgram);
  if (CopyFileA(program.c_str(), copy.c_str(), TRUE) == 0) Fail("copying " + program);
  Child installer("\"" + copy + "\" -install");
  if (installer.WaitForEnd(20000) != 0U) throw std::runtime_error("-install: " + installer.ReadAll(0));
}

// A run that is ended by force leaves this file, from which --restore continues.
void Session::SaveState() const {
  std::string text = std::string(installed ? "1 " : "0 ") + (wasRunning ? "1 " : "0 ") +
                     (deviceMade ? "1" : "0") + (recovery ? " 1 " : " 0 ");
  const Recovery kept = recovery.value_or(Recovery{});
  text += std::to_string(kept.resetSeconds) + " " + std::to_string(kept.actions.size());
  for (const RestartAction& action : kept.actions) {
    text += " " + std::to_string(action.type) + " " + std::to_string(action.delayMs);
  }
  WriteTextFile(PathIn(folder, kStateFile), text + "\n" + TextOf(settings));
}

std::vector<std::string> Session::RestoreFolder(const std::string& folder) {
  const std::string text = ReadTextFile(PathIn(folder, kStateFile));
  std::istringstream lines(text);
  const Options none;
  Session session(none);
  bool recoveryKnown = false;
  Recovery kept;
  std::size_t actions = 0;
  lines >> session.installed >> session.wasRunning >> session.deviceMade >> recoveryKnown >>
      kept.resetSeconds >> actions;
  for (std::size_t i = 0; i < actions && lines; ++i) {
    RestartAction action;
    lines >> action.type >> action.delayMs;
    kept.actions.push_back(action);
  }
  if (recoveryKnown) session.recovery = kept;
  lines.ignore(1);
  const std::streamoff read = lines.tellg();  // -1 after the end of a file that is cut
  const std::optional<SavedSettings> saved =
      SavedSettingsOf(read < 0 ? "" : text.substr(static_cast<std::size_t>(read)));
  if (!saved) return {"no run of the checks has left " + folder};
  session.settings = *saved;
  session.folder = folder;
  session.prepared = true;
  return session.Restore();
}

void Session::RemoveOwnService(std::vector<std::string>& problems) {
  if (FindRegistration()) {
    const std::uint32_t error = DeleteService();
    if (error != 0) problems.push_back("the service TamLogServer is still registered: " + ErrorText(error));
  }
}

std::vector<std::string> Session::Restore() {
  std::vector<std::string> problems;
  if (!prepared) return problems;
  prepared = false;
  const auto attempt = [&problems](const std::string& what, const std::function<void()>& step) {
    try {
      step();
    } catch (const std::exception& failure) {
      problems.push_back(what + ": " + failure.what());
    }
  };
  attempt("the service could not be stopped", [this] {
    if (Alive()) Stop();
  });
  if (installed) {
    attempt("the recovery of the service", [this] {
      if (recovery && FindRecovery() != recovery && SetRecovery(*recovery) != 0)
        throw std::runtime_error("not set again");
    });
  } else {
    attempt("the service", [&] { RemoveOwnService(problems); });
  }
  attempt("the settings in the registry", [this] { RestoreSettings(settings); });
  if (deviceMade) {
    const std::string problem = RemoveDevice();
    if (!problem.empty()) problems.push_back("the stand-in device: " + problem);
  }
  if (installed && wasRunning) {
    attempt("the service does not run again", [this] { Start(); });
  }
  if (!problems.empty()) {
    problems.push_back("tamlogcheck --restore \"" + folder + "\" tries again");
  } else if (!Eventually(5000, [this] { return RemoveDirectoryAt(folder); })) {
    problems.push_back("the directory " + folder + " could not be removed");
  }
  return problems;
}

bool Session::Alive() const {
  const std::uint32_t processId = StatusOf().processId;
  if (processId == 0) return false;
  const Handle process(OpenProcess(SYNCHRONIZE, FALSE, processId));
  return process && WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT;
}

void Session::Fresh(std::uint32_t capacity) {
  if (Alive()) Stop();
  if (Exists(LogFile()) && DeleteFileA(LogFile().c_str()) == 0) Fail("deleting the log of the checks");
  WriteSettings(LogFile(), capacity);
  Start();
}

std::uint64_t Session::Start() {
  const std::uint64_t begin = Ticks();
  const std::uint32_t error = StartService();
  if (error != 0) Fail("starting the service", error);
  if (!Eventually(kStartMs, [this] { return StatusOf().Running() && Alive() && Answers(); })) {
    throw std::runtime_error("the service does not answer " + std::to_string(kStartMs / 1000) +
                             " s after its start");
  }
  return Ticks() - begin;
}

std::uint64_t Session::Stop() {
  const std::uint64_t begin = Ticks();
  const Handle process(OpenProcess(SYNCHRONIZE, FALSE, StatusOf().processId));
  const std::uint32_t error = StopService();
  // The process may end before the manager has its answer, or after the manager has waited for it long
  // enough.
  if (error != 0 && error != ERROR_BROKEN_PIPE && error != ERROR_SERVICE_REQUEST_TIMEOUT) {
    Fail("stopping the service", error);
  }
  if (!Eventually(kStopMs, [] { return StatusOf().Stopped() || StatusOf().state == 0; })) {
    throw std::runtime_error("the service has not stopped after " + std::to_string(kStopMs / 1000) + " s");
  }
  if (process && WaitForSingleObject(process.Get(), 5000) != WAIT_OBJECT_0) {
    throw std::runtime_error("the service has stopped, and its process has not ended");
  }
  return Ticks() - begin;
}

void Session::Kill() {
  const Handle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, StatusOf().processId));
  if (!process || TerminateProcess(process.Get(), 1) == 0) Fail("ending the server's process");
  if (WaitForSingleObject(process.Get(), 5000) != WAIT_OBJECT_0)
    throw std::runtime_error("the process does not end");
}

std::uint64_t Session::OverRestart(const std::function<void()>& change) {
  LogClient client;
  if (client.Ping() != Status::Ok) throw std::runtime_error("the server does not answer before the restart");
  const auto isEnded = [&client] {
    const std::uint64_t before = client.Connections();
    return client.Ping() != Status::Ok || client.Connections() != before;
  };
  // The restart ends this connection. A server answers before its last start is complete; until then, a
  // change is stored but followed by no restart.
  bool ended = false;
  for (int attempt = 0; attempt < kChangeAttempts && !ended; ++attempt) {
    change();
    ended = Eventually(kChangeMs, isEnded);
  }
  if (!ended) throw std::runtime_error("no restart followed");
  const std::uint64_t begin = Ticks();
  if (!Eventually(kStartMs, Answers))
    throw std::runtime_error("the server does not answer after the restart");
  return Ticks() - begin;
}

LogMessageBody MessageOf(const std::string& source, const std::string& text) {
  LogMessageBody message{};
  SYSTEMTIME now{};
  GetLocalTime(&now);
  const std::array<WORD, 7> words{now.wYear,   now.wMonth,  now.wDay,         now.wHour,
                                  now.wMinute, now.wSecond, now.wMilliseconds};
  for (std::size_t i = 0; i < words.size(); ++i) message.timestamp[i] = static_cast<std::int16_t>(words[i]);
  std::memcpy(message.source, source.data(), std::min(source.size(), kTextSize - 1));
  std::memcpy(message.text, text.data(), std::min(text.size(), kTextSize - 1));
  return message;
}

void SubmitAll(const std::string& source, std::uint32_t count) {
  LogClient client;
  for (std::uint32_t i = 0; i < count; ++i) {
    const Status status = client.Submit(MessageOf(source, "text " + std::to_string(i)));
    if (status != Status::Ok) {
      throw std::runtime_error("message " + std::to_string(i) + ": " + TamLogClient::StatusText(status));
    }
  }
}

std::vector<std::string> SharedTexts(const std::string& source) {
  std::vector<std::string> texts;
  LogReader reader;
  LogSnapshot snapshot;
  if (reader.Open() != Status::Ok || reader.Snapshot(snapshot) != Status::Ok) return texts;
  for (const std::uint32_t slot : TamLogClient::OrderMessages(snapshot).oldestFirst) {
    const LogMessageBody& body = snapshot.slots[slot].body;
    if (source == body.source) texts.emplace_back(body.text);
  }
  return texts;
}

bool WaitForTexts(const std::string& source, std::size_t count, std::uint32_t limitMs) {
  return Eventually(limitMs, [&] { return SharedTexts(source).size() >= count; });
}

}  // namespace TamLogCheck
