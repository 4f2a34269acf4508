#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/log/log_snapshot.h"
#include "client/log/log_tail.h"
#include "client/message/time_text.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/settings_text.h"
#include "tamlogctl/server/status.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;
using Json = nlohmann::ordered_json;

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
  if (found.pipe == Status::Ok) found.pipe = client.GetLogFile(found.logFile);
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
  const auto order =
      status == Status::Ok ? OrderMessages(snapshot).oldestFirst : std::vector<std::uint32_t>();
  if (order.empty()) return status;
  found.oldest = TimeOf(snapshot.slots[order.front()]);
  found.newest = TimeOf(snapshot.slots[order.back()]);
  return status;
}

void ReadLog(const StatusOptions& options, Findings& found) {
  LogReader reader;
  found.log = found.mapName.empty() ? reader.Open() : reader.Open(found.mapName);
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
  return found.log == Status::Damaged ? kDamaged : kTimedOut;
}

std::string Visible(const std::string& text) {
  std::string out;
  TamLogClient::AppendVisible(text, out);
  return out;
}

std::string ListOf(const std::vector<FilterEntry>& filters, bool include) {
  std::string list;
  for (const FilterEntry& filter : filters) {
    if (filter.include != include) continue;
    list += list.empty() ? "" : ", ";
    list += filter.text.empty() ? "\"\" (matches everything)" : Visible(filter.text);
  }
  return list.empty() ? "none" : list;
}

void AppendServer(const Findings& found, std::string& out) {
  fmt::format_to(std::back_inserter(out), "pipe      {}\n",
                 found.pipe == Status::Ok ? "answers" : StatusText(found.pipe));
  if (found.pipe != Status::Ok) return;
  fmt::format_to(std::back_inserter(out), "file      {}\nmapping   {}\n", Visible(found.logFile),
                 found.mapName);
  fmt::format_to(
      std::back_inserter(out), "settings  {}\n          driver read every {} ms, disk written every {} s\n",
      CapacityText(found.settings.maxMessage,
                   found.log == Status::Ok ? std::optional(found.header.maxMessages) : std::nullopt),
      found.settings.devicePollRate, found.settings.saveRate);
  fmt::format_to(std::back_inserter(out), "types     {} kept\n", TypesText(found.settings.typeFilter));
  fmt::format_to(std::back_inserter(out), "filters   {}\n",
                 found.filtersKnown ? FilterRuleText(found.filters) : "unknown");
  if (found.filters.empty()) return;
  fmt::format_to(std::back_inserter(out), "  include {}\n  exclude {}\n", ListOf(found.filters, true),
                 ListOf(found.filters, false));
}

void AppendLog(const Findings& found, std::string& out) {
  fmt::format_to(std::back_inserter(out), "log       {}\n",
                 found.log == Status::Ok ? "shared" : StatusText(found.log));
  if (found.log != Status::Ok) return;
  const LogFileHeader& header = found.header;
  fmt::format_to(std::back_inserter(out), "messages  {} of {} ({:.1f} %)\n", header.messageCount,
                 header.maxMessages, 100.0 * header.messageCount / header.maxMessages);
  if (!found.oldest.empty()) {
    fmt::format_to(std::back_inserter(out), "oldest    {}\nnewest    {}\n", found.oldest, found.newest);
  }
  fmt::format_to(std::back_inserter(out), "counters  changes {}, rewrites {}, next sequence {}\n",
                 header.changeCount, header.rewriteCount, header.nextSequence);
  fmt::format_to(std::back_inserter(out), "readers   {} inside\n", header.readCount);
}

std::string AsText(const Findings& found) {
  std::string out = fmt::format("server    {}\n", StateOf(found));
  AppendServer(found, out);
  AppendLog(found, out);
  return out;
}

Json FilterList(const std::vector<FilterEntry>& filters) {
  Json list = Json::array();
  for (const FilterEntry& filter : filters) {
    list.push_back({{"kind", filter.include ? "include" : "exclude"}, {"text", filter.text}});
  }
  return list;
}

// As in the format json: an impossible date is null, and its words have a key of their own.
void AddTime(const char* name, const std::string& time, Json& to) {
  to[name] = nullptr;
  if (time.empty()) return;
  if (time.front() == '!') {
    to[std::string(name) + "_words"] = Json::parse("[" + time.substr(1) + "]", nullptr, false);
    return;
  }
  std::string iso = time;
  if (iso.size() > 10 && iso[10] == ' ') iso[10] = 'T';
  to[name] = iso;
}

std::string AsJson(const Findings& found) {
  Json json;
  json["state"] = StateOf(found);
  json["pipe"] = found.pipe == Status::Ok ? "answers" : StatusText(found.pipe);
  if (found.pipe == Status::Ok) {
    json["file"] = found.logFile;
    json["mapping"] = found.mapName;
    Json types = Json::array();
    for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
      if (((found.settings.typeFilter >> type) & 1U) != 0) types.push_back(type);
    }
    json["settings"] = {{"capacity", found.settings.maxMessage},
                        {"poll_ms", found.settings.devicePollRate},
                        {"types", std::move(types)},
                        {"save_s", found.settings.saveRate}};
    json["filters"] = found.filtersKnown ? FilterList(found.filters) : Json(nullptr);
  }
  json["log"] = found.log == Status::Ok ? "shared" : StatusText(found.log);
  if (found.log == Status::Ok) {
    json["capacity"] = found.header.maxMessages;
    json["messages"] = found.header.messageCount;
    AddTime("oldest", found.oldest, json);
    AddTime("newest", found.newest, json);
    json["change_count"] = found.header.changeCount;
    json["rewrite_count"] = found.header.rewriteCount;
    json["next_sequence"] = found.header.nextSequence;
    json["readers_inside"] = found.header.readCount;
    json["read_hold_us"] = found.holdMicroseconds;
  }
  // Texts may have any bytes; those that are not UTF-8 are replaced.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

int ShowStatus(const StatusOptions& options) {
  Findings found;
  DeferInterrupts();
  AskServer(options, found);
  ReadLog(options, found);
  if (!WriteOut(options.json ? AsJson(found) : AsText(found))) return kOutputFailed;
  return Interrupted() ? kInterrupted : ExitCodeFor(found);
}

}  // namespace TamLogCtl
