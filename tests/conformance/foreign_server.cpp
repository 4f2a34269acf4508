// A small independent server: it serves the pipes and shares a log in memory, as far as the claims of
// conformance/pipe_claims.c need it, and breaks the claims that its arguments name. The tests show with it
// that each claim can fail.
//
// usage: foreign_server [CLAIM...] [slow-pair]       prints "ready", then serves until its input ends
//
// slow-pair: makes the reply pipe of each pair a second and a half after the request pipe, which breaks no
// claim.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "conformance/log_layout.h"
#include "tests/conformance/foreign_log.h"
#include "tests/conformance/foreign_pipes.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::vector<std::string> g_broken;

bool Breaks(const char* claim) {
  return std::find(g_broken.begin(), g_broken.end(), claim) != g_broken.end();
}

std::uint32_t NumberAt(const PipeRecord& record, std::size_t offset) {
  std::uint32_t value = 0;
  std::memcpy(&value, record.data() + offset, sizeof value);
  return value;
}

void PutNumber(PipeRecord& record, std::size_t offset, std::uint32_t value) {
  std::memcpy(record.data() + offset, &value, sizeof value);
}

void PutText(PipeRecord& record, const std::string& text) {
  std::memcpy(record.data() + TAMLOG_RECORD_BODY, text.c_str(), text.size() + 1);
}

std::string TextAt(const PipeRecord& record) {
  return record.data() + TAMLOG_RECORD_BODY;
}

struct Settings {
  std::uint32_t maxMessage = 100;
  std::uint32_t devicePollRate = 1000;
  std::uint32_t typeFilter = 15;
  std::uint32_t saveRate = 300;
};

// The state that all connections share, and the requests that change it.
class ForeignServer {
 public:
  explicit ForeignServer(ForeignLog& theLog) : log(theLog) {}

  PipeRecord Answer(const PipeRecord& request) {
    const std::lock_guard lock(mutex);
    PipeRecord reply{};
    PutNumber(reply, TAMLOG_RECORD_CODE, Serve(request, reply));
    return reply;
  }

  // When the restart is due; nothing as long as no request started one.
  std::optional<Clock::time_point> RestartTime() {
    const std::lock_guard lock(mutex);
    return restart;
  }

  // Returns the capacity of the log to open next; 0: none.
  std::uint32_t AfterStop() {
    const std::lock_guard lock(mutex);
    restart.reset();
    if (Breaks("settings-kept")) settings.saveRate = 77;
    if (Breaks("burst") && lowestCapacity == 1) settings.maxMessage = 1;
    const bool wasCleared = cleared;
    cleared = false;
    if (Breaks("restart-over") || (Breaks("after-clear") && wasCleared)) return 0;
    return settings.maxMessage;
  }

 private:
  std::uint32_t Serve(const PipeRecord& request, PipeRecord& reply) {
    switch (NumberAt(request, TAMLOG_RECORD_CODE)) {
      case TAMLOG_GET_FILE_MAP_NAME:
        PutText(reply, Breaks("map-name") ? "Global\\Another" : TAMLOG_FILE_MAP);
        return TAMLOG_REPLY_FILE_MAP_NAME;
      case TAMLOG_SUBMIT_MESSAGE:
        return Submit(request);
      case TAMLOG_PING:
        return Breaks("ping") ? TAMLOG_REPLY_DONE : TAMLOG_REPLY_ALIVE;
      case TAMLOG_GET_SETTINGS:
        return GetSettings(reply);
      case TAMLOG_SET_SETTINGS:
        return SetSettings(request);
      case TAMLOG_GET_LOG_FILE:
        PutText(reply, Breaks("log-file") ? "Logs.dat" : path);
        return TAMLOG_REPLY_PATH;
      case TAMLOG_SET_LOG_FILE:
        if (!Breaks("set-log-file")) path = TextAt(request);
        return TAMLOG_REPLY_DONE;
      case TAMLOG_GET_FILTER:
        return GetFilter(NumberAt(request, TAMLOG_RECORD_INDEX), reply);
      case TAMLOG_CLEAR_FILTERS:
        include.clear();
        if (!Breaks("clear-filters")) exclude.clear();
        return TAMLOG_REPLY_DONE;
      case TAMLOG_ADD_FILTER:
        return AddFilter(TextAt(request), NumberAt(request, TAMLOG_RECORD_FILTER_KIND) != 0);
      case TAMLOG_GET_DEFAULT_LOG_FILE:
        PutText(reply, Breaks("default-path") ? "C:\\foreign\\Other.dat" : "C:\\foreign\\Logs.dat");
        return TAMLOG_REPLY_PATH;
      case TAMLOG_CLEAR_LOG:
        return ClearLog();
      default:
        return Breaks("unknown-request") ? TAMLOG_REPLY_FAILED : TAMLOG_REPLY_UNKNOWN_REQUEST;
    }
  }

  std::uint32_t Submit(const PipeRecord& request) {
    const char* const body = request.data() + TAMLOG_RECORD_MESSAGE;
    const std::uint32_t type = NumberAt(request, TAMLOG_RECORD_MESSAGE + TAMLOG_BODY_TYPE);
    if (type >= TAMLOG_TYPES) {
      if (Breaks("not-stored")) log.Append(body);
      return Breaks("submit-dropped") ? TAMLOG_REPLY_FAILED : TAMLOG_REPLY_DONE;
    }
    if ((settings.typeFilter >> type & 1) != 0 && Keeps(body + TAMLOG_BODY_SOURCE)) log.Append(body);
    return Breaks("submit") ? TAMLOG_REPLY_FAILED : TAMLOG_REPLY_DONE;
  }

  bool Keeps(const std::string& source) const {
    const auto matches = [&](const std::string& filter) { return Matches(source, filter); };
    if (source.empty() && Breaks("filter-empty")) return false;
    if (Breaks("filter-drops")) return true;
    if (!include.empty()) return std::any_of(include.begin(), include.end(), matches);
    return std::none_of(exclude.begin(), exclude.end(), matches);
  }

  static bool Matches(const std::string& source, const std::string& filter) {
    const auto lower = [](char c) {
      return c >= 'A' && c <= 'Z' && !Breaks("filter-keeps") ? char(c + 32) : c;
    };
    const std::size_t length = std::min(source.size(), filter.size());
    return std::equal(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(length), filter.begin(),
                      [&](char a, char b) { return lower(a) == lower(b); });
  }

  std::uint32_t GetSettings(PipeRecord& reply) const {
    PutNumber(reply, TAMLOG_RECORD_MAX_MESSAGE, settings.maxMessage);
    PutNumber(reply, TAMLOG_RECORD_DEVICE_POLL_RATE, settings.devicePollRate);
    PutNumber(reply, TAMLOG_RECORD_TYPE_FILTER, settings.typeFilter | (Breaks("settings") ? 16U : 0U));
    PutNumber(reply, TAMLOG_RECORD_SAVE_RATE, settings.saveRate);
    return TAMLOG_REPLY_SETTINGS;
  }

  std::uint32_t SetSettings(const PipeRecord& request) {
    const std::uint32_t capacity = NumberAt(request, TAMLOG_RECORD_MAX_MESSAGE);
    settings.maxMessage = Breaks("capacity-limits") ? capacity : std::clamp(capacity, 1U, 1000000U);
    settings.devicePollRate = NumberAt(request, TAMLOG_RECORD_DEVICE_POLL_RATE);
    settings.typeFilter =
        NumberAt(request, TAMLOG_RECORD_TYPE_FILTER) & (Breaks("set-settings") ? 0xFFFFFFFFU : 15U);
    settings.saveRate = NumberAt(request, TAMLOG_RECORD_SAVE_RATE);
    lowestCapacity = std::min(lowestCapacity, settings.maxMessage);
    StartRestart(milliseconds(Breaks("restart-later") ? 0 : Breaks("restart-breaks") ? 500 : 1000));
    return TAMLOG_REPLY_DONE;
  }

  void StartRestart(milliseconds pause) {
    if (!restart) restart = Clock::now() + pause;
  }

  std::uint32_t GetFilter(std::uint32_t index, PipeRecord& reply) const {
    const auto& first = Breaks("filter-order") ? exclude : include;
    const auto& second = Breaks("filter-order") ? include : exclude;
    const bool inFirst = index < first.size();
    if (!inFirst && index - first.size() >= second.size())
      return Breaks("no-such-filter") ? TAMLOG_REPLY_FILTER : TAMLOG_REPLY_NO_SUCH_FILTER;
    PutText(reply, inFirst ? first[index] : second[index - first.size()]);
    PutNumber(reply, TAMLOG_RECORD_FILTER_KIND, &(inFirst ? first : second) == &include ? 1 : 0);
    return TAMLOG_REPLY_FILTER;
  }

  std::uint32_t AddFilter(const std::string& text, bool isInclude) {
    if (Breaks("filters-back") && include.empty() && exclude.empty() && isInclude && !text.starts_with("kit"))
      return TAMLOG_REPLY_DONE;
    (isInclude ? include : exclude).push_back(text);
    return TAMLOG_REPLY_DONE;
  }

  std::uint32_t ClearLog() {
    if (!Breaks("cleared")) log.Clear();
    if (!Breaks("clear-restarts")) StartRestart(milliseconds(1000));
    cleared = true;
    return Breaks("clear") ? TAMLOG_REPLY_FAILED : TAMLOG_REPLY_DONE;
  }

  ForeignLog& log;
  std::mutex mutex;
  Settings settings;
  std::uint32_t lowestCapacity = 100;
  std::vector<std::string> include{"pipe"};
  std::vector<std::string> exclude;
  std::string path = "C:\\foreign\\Logs.dat";
  std::optional<Clock::time_point> restart;
  bool cleared = false;
};

// Serves until the restart is due.
void ServeUntilRestart(ForeignServer& server) {
  const ForeignPipes pipes(Breaks, [&](const PipeRecord& request) { return server.Answer(request); });
  std::puts("ready");
  std::fflush(stdout);
  for (;;) {
    const auto time = server.RestartTime();
    if (time && Clock::now() >= *time) return;
    std::this_thread::sleep_for(milliseconds(5));
  }
}

}  // namespace

int main(int count, char** arguments) {
  g_broken.assign(arguments + 1, arguments + count);
  std::thread([] {
    while (std::getchar() != EOF) {
    }
    ExitProcess(0);
  }).detach();
  ForeignLog log(Breaks);
  ForeignServer server(log);
  for (std::uint32_t capacity = 100;;) {
    if (capacity > 0) log.Open(capacity);
    ServeUntilRestart(server);
    log.Close();
    std::this_thread::sleep_for(milliseconds(300));
    capacity = server.AfterStop();
  }
}
