#include <optional>
#include <string>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "client/message/time_text.h"
#include "tamlogctl/base/columns.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/settings_text.h"
#include "tamlogctl/server/status.h"
#include "tamlogctl/server/stored_lengths.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

struct Findings {
  Status pipe = Status::NotRunning;
  std::string logFile;
  std::string mapName;
  SettingsBody settings{};
  std::vector<FilterEntry> filters;
  bool filtersKnown = false;

  Status log = Status::NotRunning;
  LogFileHeader header{};  // read without read access, so that this program is not counted as a reader
  std::string oldest;
  std::string newest;
  std::uint64_t holdMicroseconds = 0;
};

void AskServer(const StatusOptions& options, Findings& found) {
  LogClient client({kRequestPipeName, options.timeoutMs});
  found.pipe = client.GetFileMapName(found.mapName);
  const bool pathFits = ReadStoredLengths().PathFits();  // a request for a longer one would crash the server
  if (found.pipe == Status::Ok && pathFits) found.pipe = client.GetLogFile(found.logFile);
  if (found.pipe == Status::Ok) found.pipe = client.GetSettings(found.settings);
  if (found.pipe != Status::Ok) return;
  found.filtersKnown = RequestFilters(client, found.filters) == kDone;
}

std::string TimeOf(const LogMessage& message) {
  std::string text;
  TamLogClient::AppendTime(TamLogClient::WordsOf(message.body), ' ', text);
  return text;
}

// Reads a few messages only, unless the ring is not in order of time.
Status FindEnds(LogReader& reader, std::uint32_t timeoutMs, Findings& found) {
  TamLogClient::LogTail tail;
  Status status = reader.Newest(1, tail, timeoutMs);
  if (status != Status::Ok || tail.header.messageCount == 0) return status;
  if (const auto ends = EndsOf(tail)) {
    found.oldest = TimeOf(*ends->oldest);
    found.newest = TimeOf(*ends->newest);
    return Status::Ok;
  }
  LogSnapshot snapshot;
  status = reader.Snapshot(snapshot, timeoutMs);
  reader.Close();  // ordering takes a while, and a server that restarts needs its log
  const auto order =
      status == Status::Ok ? OrderMessages(snapshot).oldestFirst : std::vector<std::uint32_t>();
  if (order.empty()) return status;
  found.oldest = TimeOf(snapshot.slots[order.front()]);
  found.newest = TimeOf(snapshot.slots[order.back()]);
  return status;
}

void ReadLog(const StatusOptions& options, Findings& found) {
  LogReader reader;
  // Not by the name that came over the pipe: any process can offer the pipe and name another mapping.
  found.log = reader.Open();
  if (found.log == Status::Ok) found.log = reader.Look(found.header);
  if (found.log == Status::Ok) found.log = FindEnds(reader, options.timeoutMs, found);
  found.holdMicroseconds = reader.LastHoldMicroseconds();
  reader.Close();
}

const char* StateOf(const Findings& found) {
  const bool pipe = found.pipe == Status::Ok;
  const bool log = found.log == Status::Ok;
  if (pipe && log) return "running";
  if (pipe) return "the pipe answers, the log cannot be read";
  if (log) return "the log is shared, the pipe does not answer";
  return found.pipe == Status::NotRunning && found.log == Status::NotRunning ? "not running" : "not usable";
}

int ExitCodeFor(const Findings& found) {
  if (found.pipe == Status::Ok && found.log == Status::Ok) return kDone;
  if (found.pipe == Status::NotRunning && found.log == Status::NotRunning) return kNotThere;
  if (found.pipe == Status::AccessDenied || found.log == Status::AccessDenied) return kAccessDenied;
  return found.log == Status::Damaged || found.log == Status::ForeignEvents ? kDamaged : kTimedOut;
}

std::string ListOf(const std::vector<FilterEntry>& filters, bool include) {
  std::string list;
  for (const FilterEntry& filter : filters) {
    if (filter.include != include) continue;
    list += list.empty() ? "" : ", ";
    list += FilterForShow(filter) + (filter.text.empty() ? " (matches everything)" : "");
  }
  return list.empty() ? "none" : list;
}

std::string LineOf(const std::string& name, const std::string& value) {
  return AlignedLeft(name, 10) + value + "\n";
}

void AppendServer(const Findings& found, std::string& out) {
  out += LineOf("pipe", found.pipe == Status::Ok ? "answers" : StatusText(found.pipe));
  if (found.pipe != Status::Ok) return;
  const auto inEffect = found.log == Status::Ok ? std::optional(found.header.maxMessages) : std::nullopt;
  out += LineOf("file", found.logFile.empty() ? "none or too long; see: tamlogctl doctor"
                                              : Shown(AnsiToUtf8(found.logFile)));
  out += LineOf("mapping",
                Shown(found.mapName) + (found.mapName == kFileMapName ? "" : ", which is not the server's"));
  out += LineOf("settings", CapacityText(found.settings.maxMessage, inEffect));
  out += LineOf("", "driver read every " + std::to_string(found.settings.devicePollRate) +
                        " ms, disk written every " + std::to_string(found.settings.saveRate) + " s");
  out += LineOf("types", TypesText(found.settings.typeFilter) + " kept");
  out += LineOf("filters", found.filtersKnown ? FilterRuleText(found.filters) : "unknown");
  if (found.filters.empty()) return;
  out += LineOf("  include", ListOf(found.filters, true));
  out += LineOf("  exclude", ListOf(found.filters, false));
}

void AppendLog(const Findings& found, std::string& out) {
  out += LineOf("log", found.log == Status::Ok ? "shared" : StatusText(found.log));
  if (found.log != Status::Ok) return;
  const LogFileHeader& header = found.header;
  const double percent = 100.0 * header.messageCount / header.maxMessages;
  out += LineOf("messages", std::to_string(header.messageCount) + " of " +
                                std::to_string(header.maxMessages) + " (" + Fixed(percent, 1) + " %)");
  if (!found.oldest.empty()) out += LineOf("oldest", found.oldest) + LineOf("newest", found.newest);
  out += LineOf("counters", "changes " + std::to_string(header.changeCount) + ", rewrites " +
                                std::to_string(header.rewriteCount) + ", next sequence " +
                                std::to_string(header.nextSequence));
  out += LineOf("readers", std::to_string(header.readCount) + " inside");
}

std::string AsText(const Findings& found) {
  std::string out = LineOf("server", StateOf(found));
  AppendServer(found, out);
  AppendLog(found, out);
  return out;
}

JsonArray FilterList(const std::vector<FilterEntry>& filters) {
  JsonArray list;
  for (const FilterEntry& filter : filters) {
    list.emplace_back(JsonObject{{"kind", filter.include ? "include" : "exclude"}, {"text", filter.text}});
  }
  return list;
}

// As in the format json: an impossible date is null, and its words have a key of their own.
void AddTime(const std::string& name, const std::string& time, JsonObject& to) {
  if (time.empty()) {
    to.emplace_back(name, Json());
    return;
  }
  if (time.front() == '!') {
    to.emplace_back(name, Json());
    to.emplace_back(name + "_words", ParseJson("[" + time.substr(1) + "]").value_or(Json()));
    return;
  }
  std::string iso = time;
  if (iso.size() > 10 && iso[10] == ' ') iso[10] = 'T';
  to.emplace_back(name, std::move(iso));
}

JsonObject SettingsObject(const SettingsBody& settings) {
  JsonArray types;
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    if (((settings.typeFilter >> type) & 1U) != 0) types.emplace_back(type);
  }
  return {{"capacity", settings.maxMessage},
          {"poll_ms", settings.devicePollRate},
          {"types", std::move(types)},
          {"save_s", settings.saveRate}};
}

std::string AsJson(const Findings& found) {
  JsonObject json{{"state", StateOf(found)},
                  {"pipe", found.pipe == Status::Ok ? "answers" : StatusText(found.pipe)}};
  if (found.pipe == Status::Ok) {
    json.emplace_back("file", AnsiToUtf8(found.logFile));
    json.emplace_back("mapping", found.mapName);
    json.emplace_back("settings", SettingsObject(found.settings));
    json.emplace_back("filters", found.filtersKnown ? Json(FilterList(found.filters)) : Json());
  }
  json.emplace_back("log", found.log == Status::Ok ? "shared" : StatusText(found.log));
  if (found.log == Status::Ok) {
    json.emplace_back("capacity", found.header.maxMessages);
    json.emplace_back("messages", found.header.messageCount);
    AddTime("oldest", found.oldest, json);
    AddTime("newest", found.newest, json);
    json.emplace_back("change_count", found.header.changeCount);
    json.emplace_back("rewrite_count", found.header.rewriteCount);
    json.emplace_back("next_sequence", found.header.nextSequence);
    json.emplace_back("readers_inside", found.header.readCount);
    json.emplace_back("read_hold_us", found.holdMicroseconds);
  }
  return WriteJson(json, 2) + "\n";
}

}  // namespace

int ShowStatus(const StatusOptions& options) {
  Findings found;
  DeferInterrupts();
  AskServer(options, found);
  ReadLog(options, found);
  if (!WriteLines(options.json ? AsJson(found) : AsText(found))) return kOutputFailed;
  return Interrupted() ? kInterrupted : ExitCodeFor(found);
}

}  // namespace TamLogCtl
