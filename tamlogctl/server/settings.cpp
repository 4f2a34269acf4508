#include "tamlogctl/server/settings.h"

#include "client/live/log_client.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/backup.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/resubmit.h"
#include "tamlogctl/server/stored_lengths.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

bool Same(const SettingsBody& left, const SettingsBody& right) {
  return left.maxMessage == right.maxMessage && left.devicePollRate == right.devicePollRate &&
         left.saveRate == right.saveRate && left.typeFilter == right.typeFilter;
}

// Sends the settings, and waits until the server is back with them unless `wait` is false.
int Apply(LogClient& client, const SettingsBody& settings, bool wait) {
  const Status status = client.SetSettings(settings);
  if (status != Status::Ok) return Refuse(status, "settings");
  if (!wait) {
    Say("sent; the server restarts within a second");
    return kDone;
  }
  if (const Status back = RestartWatch(client).Wait(); back != Status::Ok)
    return Interrupted() ? kInterrupted : Refuse(back, "the server did not come back after the change");
  const auto inEffect = CapacityInEffect();
  Say(CapacityText(settings.maxMessage, inEffect));
  if (!inEffect || static_cast<std::uint32_t>(*inEffect) == settings.maxMessage) return kDone;
  return Refuse(
      kNegative,
      "the capacity is not in effect: a reader may have kept the old log open; see: tamlogctl doctor");
}

// Saves the messages: a change of capacity usually empties the log.
int Save(const SettingsOptions& options, LogSnapshot& snapshot) {
  const Status status = ReadLiveLog(options.timeoutMs, snapshot);
  if (status != Status::Ok) return Refuse(status, "the log cannot be saved before the change of capacity");
  if (snapshot.header.messageCount == 0) return kDone;
  const std::string count = std::to_string(snapshot.header.messageCount);
  if (options.noBackup) {
    Say("a change of capacity usually empties the log, which has " + count + " messages");
    return kDone;
  }
  const std::string name = options.backup.empty() ? BackupName() : options.backup;
  const int exitCode = WriteBackup(name, snapshot, "name another file with --backup, or add --no-backup");
  if (exitCode != kDone) return Refuse(exitCode, "the settings were not changed");
  Say("a change of capacity usually empties the log: its " + count + " messages are saved in " + name);
  return kDone;
}

bool ReadChange(SettingsChange& change) {
  std::string problem;
  const auto read = ParseSettings(ReadInput(), problem);
  if (!read) {
    Say("standard input: " + problem);
    return false;
  }
  // An option of the command line takes precedence.
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

// Returns why the server should not get this path; empty when it may.
std::string PathProblem(const std::string& path, bool force) {
  if (path.size() > kLongestLogPath) {
    return "the path has " + std::to_string(path.size()) + " bytes, " + std::to_string(kLongestLogPath) +
           " are allowed (with a longer one the server could not start)";
  }
  if (!IsAbsolute(path)) return "not an absolute path; the server would look for it in its own directory";
  if (FileExists(path) && !force) {
    return "already exists; the server would go on with it if it is a log, and empty it otherwise; add "
           "--force to allow that";
  }
  return "";
}

// Returns whether a new path is stored, and the file has not been moved there yet.
bool MoveIsPending(LogClient& client) {
  std::string path;
  return ReadStoredLengths().PathFits() && client.GetLogFile(path) == Status::Ok && !FileExists(path);
}

// Moves the file by a restart of its own. A restart that moves the file does not wait for readers: a reader
// that notices it too late keeps the old section open, and a server that has to shrink that section does not
// start again.
int MoveFirst(LogClient& client, const SettingsBody& present) {
  Say("the log is moved to its new path first, by a restart of its own");
  return Apply(client, present, true);
}

int Resize(LogClient& client, const SettingsBody& wanted, const SettingsOptions& options) {
  LogSnapshot before;
  if (const int exitCode = Save(options, before); exitCode != kDone) return exitCode;
  const int exitCode = Apply(client, wanted, options.wait || options.keep);
  if (!options.keep || (exitCode != kDone && exitCode != kNegative)) return exitCode;
  return WorseOf(exitCode, Resubmit(client, before, options.timeoutMs));
}

int ShowPath(LogClient& client) {
  if (!ReadStoredLengths().PathFits())
    return Refuse(
        kRefused,
        "the stored path is so long that the server would crash if it were requested; set a shorter "
        "one: tamlogctl settings path FILE");
  std::string path;
  const Status status = client.GetLogFile(path);
  if (status != Status::Ok) return Refuse(status, "settings path");
  return WriteLines(Shown(AnsiToUtf8(path)) + "\n") ? kDone : kOutputFailed;
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
  return WriteLines(out) ? kDone : kOutputFailed;
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
    Say("nothing to change; the server is not restarted");
    return kDone;
  }
  if (wanted.typeFilter == 0) Say("warning: with all types switched off every message is dropped");
  if (!WaitForFlush()) return kInterrupted;
  if (!resizes) return Apply(client, wanted, options.wait || options.keep);
  if (static_cast<std::uint32_t>(*inEffect) == present.maxMessage && MoveIsPending(client)) {
    if (const int exitCode = MoveFirst(client, present); exitCode != kDone) return exitCode;
  }
  return Resize(client, wanted, options);
}

int SettingsPath(const SettingsOptions& options) {
  LogClient client({kRequestPipeName, options.timeoutMs});
  if (options.path.empty()) return ShowPath(client);
  const auto path = Utf8ToAnsi(options.path);  // the server's file calls use the code page
  if (!path)
    return Refuse(kUsage, "'" + options.path + "': this machine's code page lacks one of its characters");
  if (const std::string problem = PathProblem(*path, options.force); !problem.empty())
    return Refuse(kUsage, "'" + options.path + "': " + problem);
  DeferInterrupts();
  Status status = client.SetLogFile(*path);
  if (status != Status::Ok) return Refuse(status, "settings path");
  if (!options.apply) {
    Say("stored; the server moves its log there at its next restart (--apply restarts it at once)");
    return kDone;
  }
  SettingsBody present{};
  status = client.GetSettings(present);
  if (status != Status::Ok) return Refuse(status, "settings");
  return WaitForFlush() ? Apply(client, present, options.wait) : kInterrupted;
}

}  // namespace TamLogCtl
