#pragma once

// Reads the logs that show, stats, merge and export work on: copied files, or the log of the running server.
// In every verb the same defect is reported in the same words and has the same exit code.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/file/log_file_scan.h"
#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "client/message/status.h"
#include "records/log_file_format.h"
#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

struct LogInput {
  TamLogClient::LogSnapshot snapshot;  // empty if nothing could be read
  int exitCode = kDone;                // kDamaged: the snapshot holds what is readable, if anything
};

// Reads the newest `count` messages of a log into `tail`; false when that cannot be done.
using ReadTail = std::function<bool(std::size_t count, TamLogClient::LogTail& tail)>;

// Reads a part of the log that suffices, by means of `read`. Nothing: the whole log has to be read.
using ReadPart = std::function<std::optional<TamLogClient::LogSnapshot>(const ReadTail& read)>;

// Reads the file at `path` (UTF-8): the part that `readPart` chooses, or all of it. Reports on stderr why the
// file cannot be read and, unless `quiet`, what is damaged.
LogInput ReadFileInput(const std::string& path, bool quiet, const ReadPart& readPart = {});

// Reads the log of the running server in the same way; nothing of it is held afterwards. Defers interrupts;
// after one the exit code is kInterrupted.
LogInput ReadLiveInput(std::uint32_t timeoutMs, bool quiet, const ReadPart& readPart = {});

// Reports on stderr why the log of the running server cannot be read; returns the program's exit code.
int ExplainStatus(TamLogClient::Status status);

// The header and the exit code of a file whose messages were not held.
struct ScannedInput {
  LogFileHeader header{};
  int exitCode = kDone;
};

// Passes every message of the file to `take`, in the order of the ring, without holding them. Reports as
// above. Nothing when only ReadFileInput can read the file; some messages may have been passed by then.
std::optional<ScannedInput> ScanFileInput(const std::string& path, bool quiet,
                                          const std::function<void(const LogMessage&)>& take);

// Returns whether a file whose messages have these properties has no other damage than single messages that
// break a rule of the format. If not, only ReadFileInput reads it rightly and reports the damage.
bool IsSound(const std::string& path, const TamLogClient::LogFileSurvey& survey);

// Reports on stderr, unless `quiet`, that so many messages of the log `name` break a rule of the format.
// Returns kDone for 0 messages, else kDamaged.
int JudgeMessages(const std::string& name, std::size_t damaged, bool quiet);

// Makes the input from a snapshot with a sound header; reports its damaged messages as above.
LogInput InputOf(const std::string& name, TamLogClient::LogSnapshot snapshot, bool quiet);

// Returns whether there is something to output. Damage may leave nothing at all.
bool WasRead(const LogInput& input);

// Return the exit code of all inputs together, and whether any of them could be read.
int WorstOf(const std::vector<LogInput>& inputs);
bool AnyRead(const std::vector<LogInput>& inputs);

}  // namespace TamLogCtl
