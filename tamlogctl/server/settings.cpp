#include "tamlogctl/server/settings.h"

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/server/backup.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/resubmit.h"

namespace TamLogCtl {

namespace {

using TamLogClient::kMostPath;
using TamLogClient::LogClient;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

bool Same(const SettingsBody& left, const SettingsBody& right) {
  return left.maxMessage == right.maxMessage && left.devicePollRate == right.devicePollRate &&
         left.saveRate == right.saveRate && left.typeFilter == right.typeFilter;
}

// Sends the settings and waits until the server is back with them.
int Apply(LogClient& client, const SettingsBody& settings, bool wait) {
  const Status status = client.SetSettings(settings);
  if (status != Status::Ok) return Refuse(status, "settings");
  if (!wait) {
    Say("sent; the server restarts in a second");
    return kDone;
  }
  if (const Status back = RestartWatch(client).Wait(); back != Status::Ok) {
    if (Interrupted()) return kInterrupted;
    return Refuse(back, "the server did not come back after the change");
  }
  const auto inEffect = CapacityInEffect();
  Say("capacity " + std::to_string(settings.maxMessage) + " asked for, " +
      (inEffect ? std::to_string(*inEffect) : std::string("unknown")) + " in effect");
  if (!inEffect || static_cast<std::uint32_t>(*inEffect) == settings.maxMessage) return kDone;
  return Refuse(
      kNegative,
      "the capacity is not in effect: a reader may have kept the old log open; see: tamlogctl doctor");
}

// A change of capacity usually empties the log: its messages are saved first.
int Save(const SettingsOptions& options, LogSnapshot& snapshot) {
  TamLogClient::LogReader reader;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, options.timeoutMs);
  if (status != Status::Ok) return Refuse(status, "the log cannot be saved before the change of capacity");
  reader.Close();
  const std::string count = std::to_string(snapshot.header.messageCount);
  if (snapshot.header.messageCount == 0) return kDone;
  if (options.noBackup) {
    Say("a change of capacity usually empties the log, which holds " + count + " messages");
    return kDone;
  }
  const std::string name = options.backup.empty() ? BackupName() : options.backup;
  status = WriteBackup(name, snapshot);
  if (status != Status::Ok) {
    return Refuse(TargetExitCode(status), TargetProblem(name, status) + " (--backup FILE, or --no-backup)");
  }
  Say("a change of capacity usually empties the log: its " + count + " messages are saved in " + name);
  return kDone;
}

bool ReadChange(SettingsChange& change) {
  std::string text;
  std::string problem;
  for (std::string line; ReadLine(line);) text += line + "\n";
  const auto read = ParseSettings(text, problem);
  if (!read) {
    Say("standard input: " + problem);
    return false;
  }
  // What the command line names is meant more than what a saved object says.
  if (!change.capacity) change.capacity = read->capacity;
  if (!change.pollMs) change.pollMs = read->pollMs;
  if (!change.saveSeconds) change.saveSeconds = read->saveSeconds;
  if (!change.types) change.types = read->types;
  return true;
}

bool FileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool IsAbsolute(const std::string& path) {
  const bool drive = path.size() > 2 && path[1] == ':' && (path[2] == '\\' || path[2] == '/');
  return drive || path.rfind("\\\\", 0) == 0;
}

// The code page of the machine, which the server's file calls use. Empty when it cannot say the name.
std::string ToServerPath(const std::string& utf8) {
  const int size = static_cast<int>(utf8.size());
  std::wstring wide(utf8.size(), L'\0');
  wide.resize(
      static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size)));
  std::string bytes(4 * wide.size(), '\0');
  BOOL lossy = FALSE;
  const int length =
      WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), static_cast<int>(wide.size()),
                          bytes.data(), static_cast<int>(bytes.size()), nullptr, &lossy);
  bytes.resize(static_cast<std::size_t>(length));
  return lossy != FALSE ? std::string() : bytes;
}

std::string ToUtf8(const std::string& bytes) {
  const int size = static_cast<int>(bytes.size());
  std::wstring wide(bytes.size(), L'\0');
  const int length = MultiByteToWideChar(CP_ACP, 0, bytes.data(), size, wide.data(), size);
  std::string utf8(4 * bytes.size(), '\0');
  utf8.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(),
                                                           static_cast<int>(utf8.size()), nullptr, nullptr)));
  return utf8;
}

// A path was stored and the file has not been moved there yet.
bool MoveIsPending(LogClient& client) {
  std::string path;
  return LookAtKeptTexts().path < kEndsServer && client.GetLogFile(path) == Status::Ok && !FileExists(path);
}

// A restart that moves the file waits for no reader: one that does not see it in time keeps the old section,
// and a server that has to make that smaller stays stopped. So the file is moved by a restart of its own.
int MoveFirst(LogClient& client, const SettingsBody& present) {
  Say("the log is moved to its new path first, with a restart of its own");
  return Apply(client, present, true);
}

int ShowPath(LogClient& client) {
  if (LookAtKeptTexts().path >= kEndsServer) {
    return Refuse(kRefused, "the stored path is so long that the server would end if it were asked for it");
  }
  std::string path;
  const Status status = client.GetLogFile(path);
  if (status != Status::Ok) return Refuse(status, "settings path");
  return WriteOut(ToUtf8(path) + "\n") ? kDone : kOutputFailed;
}

}  // namespace

int GetSettings(const SettingsOptions& options) {
  LogClient client({kRequestPipeName, options.timeoutMs});
  SettingsBody settings{};
  const Status status = client.GetSettings(settings);
  if (status != Status::Ok) return Refuse(status, "settings");
  const auto inEffect = CapacityInEffect();
  const std::string out =
      options.json ? SettingsAsJson(settings, inEffect) : SettingsAsText(settings, inEffect);
  return WriteOut(out) ? kDone : kOutputFailed;
}

int SetSettings(const SettingsOptions& options) {
  SettingsChange change = options.change;
  if (options.fromInput && !ReadChange(change)) return kUsage;
  DeferInterrupts();
  LogClient client({kRequestPipeName, options.timeoutMs});
  SettingsBody present{};
  const Status status = client.GetSettings(present);
  if (status != Status::Ok) return Refuse(status, "settings");
  const SettingsBody wanted = Changed(present, change);
  const auto inEffect = CapacityInEffect();
  const bool resizes = inEffect && static_cast<std::uint32_t>(*inEffect) != wanted.maxMessage;
  if (Same(present, wanted) && !resizes) {
    Say("nothing to change; the server goes on without a restart");
    return kDone;
  }
  if (wanted.typeFilter == 0) Say("warning: with no type switched on every message is dropped");
  if (!WaitForFlush()) return kInterrupted;
  if (resizes && static_cast<std::uint32_t>(*inEffect) == present.maxMessage && MoveIsPending(client)) {
    if (const int exitCode = MoveFirst(client, present); exitCode != kDone) return exitCode;
  }
  LogSnapshot before;
  if (resizes) {
    if (const int exitCode = Save(options, before); exitCode != kDone) return exitCode;
  }
  const int exitCode = Apply(client, wanted, options.wait || options.keep);
  if (!resizes || !options.keep || (exitCode != kDone && exitCode != kNegative)) return exitCode;
  return WorseOf(exitCode, Resubmit(client, before));
}

int SettingsPath(const SettingsOptions& options) {
  LogClient client({kRequestPipeName, options.timeoutMs});
  if (options.path.empty()) return ShowPath(client);
  const std::string path = ToServerPath(options.path);
  if (path.empty()) {
    return Refuse(kUsage, "'" + options.path +
                              "' cannot be written in this machine's code page, which the server uses");
  }
  if (path.size() > kMostPath) {
    return Refuse(kUsage, "the path has " + std::to_string(path.size()) +
                              " bytes, 255 are allowed (with a longer one the server could not start); "
                              "choose a shorter one");
  }
  if (!IsAbsolute(path)) {
    return Refuse(kUsage, "'" + options.path +
                              "' is no absolute path: the server would look for it in its own directory");
  }
  if (FileExists(path) && !options.force) {
    return Refuse(kUsage, "'" + options.path +
                              "' exists: the server would go on with it if it is a log, and empty it if it "
                              "is not; add --force");
  }
  DeferInterrupts();
  Status status = client.SetLogFile(path);
  if (status != Status::Ok) return Refuse(status, "settings path");
  if (!options.apply) {
    Say("stored; the server moves its log there at its next restart (--apply restarts at once)");
    return kDone;
  }
  SettingsBody present{};
  status = client.GetSettings(present);
  if (status != Status::Ok) return Refuse(status, "settings");
  return WaitForFlush() ? Apply(client, present, options.wait) : kInterrupted;
}

}  // namespace TamLogCtl
