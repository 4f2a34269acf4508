#include "tamlogctl/server/settings.h"

#include "client/live/log_client.h"
#include "client/message/utf8.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/backup.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/path_probe.h"
#include "tamlogctl/server/resubmit.h"
#include "tamlogctl/server/service.h"
#include "tamlogctl/server/stored_lengths.h"
#include "tamlogctl/server/stored_path.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

std::uint64_t Unsigned(std::int32_t count) {
  return count > 0 ? static_cast<std::uint64_t>(count) : 0;
}

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
  RestartWatch watch(client);
  if (const Status back = watch.Wait(); back != Status::Ok)
    return Interrupted() ? kInterrupted : watch.Refuse(back, "the server did not come back after the change");
  return kDone;
}

int ApplyAndReport(LogClient& client, const SettingsBody& present, const SettingsBody& wanted, bool wait) {
  if (const int exitCode = Apply(client, wanted, wait); exitCode != kDone || !wait) return exitCode;
  for (const std::string& line : ChangeLines(present, wanted)) Say(line);
  const auto inEffect = CapacityInEffect();
  const bool fits = !inEffect || static_cast<std::uint32_t>(*inEffect) == wanted.maxMessage;
  if (present.maxMessage != wanted.maxMessage || !fits) Say(CapacityText(wanted.maxMessage, inEffect));
  if (fits) return kDone;
  return Refuse(
      kNegative,
      "the capacity is not in effect: a reader may have kept the old log open; see: tamlogctl doctor");
}

// What a change of capacity does with the messages.
struct Rescue {
  bool keep = false;   // they are sent again
  std::string backup;  // the file in which they are saved; empty: in none
  LogSnapshot before;  // the log before the change
};

// Saves the messages: a change of capacity usually empties the log.
int Save(const SettingsOptions& options, Rescue& rescue) {
  const Status status = ReadLiveLog(options.timeoutMs, rescue.before);
  if (status != Status::Ok) return Refuse(status, "the log cannot be saved before the change of capacity");
  const std::int32_t count = rescue.before.header.messageCount;
  if (count == 0) return kDone;
  if (options.noBackup) {
    if (rescue.keep || options.yes || !StdinIsTerminal() || Confirmed(EmptyQuestion(count))) return kDone;
    return Refuse(kNegative, "nothing was done");
  }
  rescue.backup = options.backup.empty() ? BackupName() : options.backup;
  const int exitCode =
      WriteBackup(rescue.backup, rescue.before, "name another file with --backup, or add --no-backup");
  if (exitCode != kDone) return Refuse(exitCode, "the settings were not changed");
  Say("a change of capacity usually empties the log: its " + CountedAre(Unsigned(count), "message") +
      " saved in " + rescue.backup);
  return kDone;
}

// Reports which messages are gone now, and how to bring them back.
void ReportLoss(const Rescue& rescue) {
  const auto now = SharedHeader();
  const std::int32_t before = rescue.before.header.messageCount;
  if (!now || now->messageCount >= before) return;
  const std::string found = now->messageCount == 0
                                ? "the log is empty now; it had " + Counted(Unsigned(before), "message")
                                : "the log has " + std::to_string(now->messageCount) + " of its " +
                                      Counted(Unsigned(before), "message") + " now";
  Say(found + (rescue.backup.empty() ? "; they were not saved (--no-backup)"
                                     : "; to bring them back: tamlogctl import \"" + rescue.backup + "\""));
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

// Returns whether a new path is stored, and the file has not been moved there yet.
bool MoveIsPending(LogClient& client) {
  std::string path;
  return ReadStoredLengths().PathFits() && client.GetLogFile(path) == Status::Ok &&
         PathTextProblem(AnsiToUtf8(path), path.size()).empty() &&
         LookAtForeignPath(path).file == PathFile::Missing;
}

// Returns why the log's volume has no room for another capacity; empty when it has, or nothing is known.
std::string RoomProblem(LogClient& client, std::uint32_t capacity) {
  std::string path;
  if (!ReadStoredLengths().PathFits() || client.GetLogFile(path) != Status::Ok ||
      !PathTextProblem(AnsiToUtf8(path), path.size()).empty())
    return "";
  const PathFacts facts = LookAtForeignPath(path);
  const std::uint64_t bytes = LogFileSize(capacity);
  if (!facts.freeBytes || *facts.freeBytes + facts.fileBytes >= bytes) return "";
  return "a log of " + std::to_string(capacity) + " messages needs " + BytesText(bytes) + ", and only " +
         BytesText(*facts.freeBytes) + " are free on " + path.substr(0, 2) +
         "; the server could not start again";
}

// Moves the file by a restart of its own. A restart that moves the file does not wait for readers: a reader
// that notices it too late keeps the old section open, and a server that has to shrink that section does not
// start again.
int MoveFirst(LogClient& client, const SettingsBody& present) {
  Say("the log is moved to its new path first, by a restart of its own");
  return Apply(client, present, true);
}

int Resize(LogClient& client, const SettingsBody& present, const SettingsBody& wanted, std::uint32_t inEffect,
           const SettingsOptions& options) {
  if (const std::string problem = RoomProblem(client, wanted.maxMessage); !problem.empty())
    return Refuse(kRefused, problem);
  Rescue rescue;
  rescue.keep = options.keepGiven ? options.keep : wanted.maxMessage > inEffect;
  if (const int exitCode = Save(options, rescue); exitCode != kDone) return exitCode;
  const bool wait = options.wait || rescue.keep;
  const int exitCode = ApplyAndReport(client, present, wanted, wait);
  if (!wait || (exitCode != kDone && exitCode != kNegative)) return exitCode;
  const int kept = rescue.keep ? Resubmit(client, rescue.before, options.timeoutMs) : kDone;
  ReportLoss(rescue);
  return WorseOf(exitCode, kept);
}

int ShowPath(const std::string& path) {
  return WriteLines(Shown(AnsiToUtf8(path)) + "\n") ? kDone : kOutputFailed;
}

int ShowPathOf(LogClient& client) {
  if (!ReadStoredLengths().PathFits())
    return Refuse(kRefused,
                  "the stored path is so long that a request for it would crash the server; set a shorter "
                  "one: tamlogctl "
                  "settings path FILE");
  std::string path;
  const Status status = client.GetLogFile(path);
  return status == Status::Ok ? ShowPath(path) : Refuse(status, "settings path");
}

// Returns what exists at a path that other users may have set; nothing of a path that must not be touched.
PathFacts FactsOf(const std::string& path) {
  return PathTextProblem(AnsiToUtf8(path), path.size()).empty() ? LookAtForeignPath(path) : PathFacts();
}

// Tries the path before the server gets it: one that it cannot use would keep it stopped. `bytes` is the room
// that the log needs there. Returns kDone, or an exit code after a line on stderr.
int TryNewPath(const SettingsOptions& options, const std::string& path, std::uint64_t bytes) {
  const auto refuse = [&options](const std::string& problem) {
    return Refuse(kUsage, "'" + options.path + "': " + problem);
  };
  const PathFacts facts = TryPath(path);
  const PathProblem problem = PathProblemOf(options.path, facts, bytes);
  if (!problem.problem.empty())
    return refuse(problem.problem + (problem.advice.empty() ? "" : "; " + problem.advice));
  const std::string existing = ExistingFileText(facts);
  return existing.empty() || options.force ? kDone : refuse(existing + "; add --force to allow that");
}

// Names a log that is not at the new path, and how to bring its messages back.
void ReportLogLeftAt(const std::string& old, const std::string& path) {
  if (old.empty() || old == path) return;
  const PathFacts facts = FactsOf(old);
  if (facts.file != PathFile::Log) return;
  const std::string shown = AnsiToUtf8(old);
  Say("a log with " + Counted(facts.messages, "message") + " stays at " + shown +
      "; to bring its messages back, once the server runs: tamlogctl import \"" + shown + "\"");
}

// Returns the path that the server uses before another is set.
std::string DefaultPath() {
  const auto program = Utf8ToAnsi(QueryServiceDetails().program);
  return program && !program->empty() ? DirectoryOf(*program) + "\\Logs.dat" : "";
}

int SetPathOffline(const SettingsOptions& options, const std::string& path) {
  const ServiceReport service = QueryService();
  const bool runs = service.state == ServiceState::Running || service.state == ServiceState::Pending;
  if (runs && !service.processGone) {
    const bool running = service.state == ServiceState::Running;
    return Refuse(
        kRefused,
        "the server is not stopped, and would overwrite the path when it stops; " +
            (running ? "without --offline the running server gets it, or first: tamlogctl server stop"
                     : "if it stays so, end process " + std::to_string(service.processId)));
  }
  const StoredPath stored = ReadStoredPath();
  if (const int exitCode = TryNewPath(options, path, LogFileSize(stored.capacity)); exitCode != kDone)
    return exitCode;
  if (const std::uint32_t error = WriteStoredPath(path); error != ERROR_SUCCESS) {
    const bool denied = error == ERROR_ACCESS_DENIED;
    return Refuse(denied ? kAccessDenied : kRefused,
                  "settings path: " + SystemText(error) + (denied ? "; run this as an administrator" : ""));
  }
  Say("stored; start the server with it: tamlogctl server start");
  ReportLogLeftAt(stored.path, path);
  if (const std::string usual = DefaultPath(); usual != stored.path) ReportLogLeftAt(usual, path);
  return kDone;
}

int SetPath(LogClient& client, const SettingsOptions& options, const std::string& path) {
  SettingsBody present{};
  Status status = client.GetSettings(present);
  if (status != Status::Ok) {
    return Refuse(ExitCodeOf(status), "settings path: " + Explain(status) +
                                          "; of a stopped server: tamlogctl settings path --offline FILE");
  }
  // The path of the file in use: the server writes it into the registry when it starts.
  const std::string old = ReadStoredPath().path;
  const bool moves = !old.empty() && FactsOf(old).file != PathFile::Missing && OnOneVolume(old, path);
  if (const int exitCode = TryNewPath(options, path, moves ? 0 : LogFileSize(present.maxMessage));
      exitCode != kDone)
    return exitCode;
  DeferInterrupts();
  status = client.SetLogFile(path);
  if (status != Status::Ok) return Refuse(status, "settings path");
  if (!options.apply) {
    Say("stored; the server moves its log there at its next restart (--apply restarts it at once)");
    return kDone;
  }
  if (!WaitForFlush()) return kInterrupted;
  const int exitCode = Apply(client, present, options.wait);
  if (exitCode != kDone || !options.wait) return exitCode;
  Say("path " + options.path + " is in effect");
  ReportLogLeftAt(old, path);
  return kDone;
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
  if (!resizes) return ApplyAndReport(client, present, wanted, options.wait);
  if (static_cast<std::uint32_t>(*inEffect) == present.maxMessage && MoveIsPending(client)) {
    if (const int exitCode = MoveFirst(client, present); exitCode != kDone) return exitCode;
  }
  return Resize(client, present, wanted, static_cast<std::uint32_t>(*inEffect), options);
}

int SettingsPath(const SettingsOptions& options) {
  LogClient client({kRequestPipeName, options.timeoutMs});
  if (options.path.empty()) return options.offline ? ShowPath(ReadStoredPath().path) : ShowPathOf(client);
  const auto path = Utf8ToAnsi(options.path);  // the server's file calls use the code page
  if (!path)
    return Refuse(kUsage, "'" + options.path + "': this machine's code page lacks one of its characters");
  if (const std::string problem = PathTextProblem(options.path, path->size()); !problem.empty())
    return Refuse(kUsage, "'" + options.path + "': " + problem +
                              "; expected a file on a drive of this machine, such as C:\\Logs\\Logs.dat");
  return options.offline ? SetPathOffline(options, *path) : SetPath(client, options, *path);
}

}  // namespace TamLogCtl
