// The log of a running server as the input of show, stats and export.

#include <utility>

#include "client/live/log_reader.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/read/log_input.h"

namespace TamLogCtl {

using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

namespace {

// The reader is closed on return, before anything is printed: output may be slow, and a server that stops
// waits for its readers.
Status ReadLive(std::uint32_t timeoutMs, const ReadPart& readPart, LogSnapshot& snapshot) {
  LogReader reader;
  if (const Status status = reader.Open(); status != Status::Ok) return status;
  const auto readTail = [&](std::size_t count, TamLogClient::LogTail& tail) {
    return reader.Newest(count, tail, timeoutMs) == Status::Ok;
  };
  auto part = readPart ? readPart(readTail) : std::nullopt;
  if (!part) return reader.Snapshot(snapshot, timeoutMs);
  snapshot = std::move(*part);
  return Status::Ok;
}

}  // namespace

int ExplainStatus(Status status) {
  if (status == Status::NotRunning)
    return Refuse(ExitCodeOf(status), Explain(status) + ", or read a copied log with --file");
  return Refuse(status);
}

LogInput ReadLiveInput(std::uint32_t timeoutMs, bool quiet, const ReadPart& readPart) {
  const std::string name = "the running server's log";
  DeferInterrupts();  // so that Ctrl-C ends the verb with its own exit code
  LogSnapshot snapshot;
  const Status status = ReadLive(timeoutMs, readPart, snapshot);
  if (Interrupted()) return {{}, kInterrupted};
  if (!Readable(status)) return {{}, ExplainStatus(status)};
  LogInput input = InputOf(name, std::move(snapshot), quiet);
  if (status == Status::Damaged) {
    if (!quiet) Say(name + ": the header is not valid; see: tamlogctl verify --live");
    input.exitCode = kDamaged;
  }
  return input;
}

}  // namespace TamLogCtl
