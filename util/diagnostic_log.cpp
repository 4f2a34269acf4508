#include "util/diagnostic_log.h"

#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "util/leaf_lock.h"

namespace TamLogUtil {
namespace {

constexpr std::size_t kTimeBuffer = 64;

// A writer that never finishes blocks the others no longer than this.
constexpr std::chrono::seconds kLongestTurn{1};
constexpr std::chrono::milliseconds kLookAgain{1};

struct Destination {
  LeafLock lock;
  std::string fileName GUARDED_BY(lock);
  std::ostream* stream GUARDED_BY(lock) = nullptr;
  // Whether a thread appends. The run-time appends by a seek and a write, so two writers at once could
  // overwrite each other's entry. A flag instead of a lock, because a thread may be terminated in the middle
  // of its turn and the log has to continue without it; and instead of the library's semaphore, because that
  // waits by static objects, which are gone when the last entries are written.
  std::atomic<bool> fileBusy{false};
};

// One thread's turn at the file. Continues without the turn after kLongestTurn, and then releases nothing.
class FileTurn {
 public:
  explicit FileTurn(std::atomic<bool>& fileBusy) : busy(fileBusy) {
    const auto end = std::chrono::steady_clock::now() + kLongestTurn;
    while (!(owned = !busy.exchange(true, std::memory_order_acquire)) &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(kLookAgain);
    }
  }
  ~FileTurn() {
    if (owned) busy.store(false, std::memory_order_release);
  }
  FileTurn(const FileTurn&) = delete;
  FileTurn& operator=(const FileTurn&) = delete;

 private:
  std::atomic<bool>& busy;
  bool owned = false;
};

// Never destroyed: exit hooks write entries after static objects are gone.
Destination& TheDestination() {
  static auto* const destination = new Destination;
  return *destination;
}

bool LocalTime(std::time_t moment, std::tm& local) {
#ifdef _WIN32
  const __time64_t wide = moment;
  return _localtime64_s(&local, &wide) == 0;
#else
  return localtime_r(&moment, &local) != nullptr;
#endif
}

std::time_t Now() {
#ifdef _WIN32
  return _time64(nullptr);
#else
  return std::time(nullptr);
#endif
}

// Returns whether a stream is set. Writes under the lock, so the stream needs none of its own.
bool WriteToStream(Destination& destination, const std::string& entry) {
  LeafLock::Guard guard(destination.lock);
  if (destination.stream == nullptr) return false;
  *destination.stream << entry << std::flush;
  return true;
}

std::string FileName(Destination& destination) {
  LeafLock::Guard guard(destination.lock);
  return destination.fileName;
}

void AppendToFile(Destination& destination, const std::string& entry) {
  const std::string name = FileName(destination);
  if (name.empty()) return;
  const FileTurn turn(destination.fileBusy);
  std::ofstream file(name, std::ios::app);
  if (!file) return;
  file.write(entry.data(), static_cast<std::streamsize>(entry.size()));
  file.flush();
}

}  // namespace

void SetLogFile(const std::string& name) {
  Destination& destination = TheDestination();
  LeafLock::Guard guard(destination.lock);
  destination.stream = nullptr;
  destination.fileName = name;
}

void SetLogStream(std::ostream* stream) {
  Destination& destination = TheDestination();
  LeafLock::Guard guard(destination.lock);
  destination.stream = stream;
}

std::string LogTimeLine(const std::tm& local) {
  std::array<char, kTimeBuffer> buffer{};
#ifdef _WIN32
  if (asctime_s(buffer.data(), buffer.size(), &local) != 0) return {};
#else
  if (asctime_r(&local, buffer.data()) == nullptr) return {};
#endif
  return buffer.data();
}

std::string LogEntry(const std::string& timeLine, const std::string& text) {
  return timeLine + " - " + text + '\n';
}

void WriteLog(const std::string& text) noexcept {
  try {
    std::tm local{};
    if (!LocalTime(Now(), local)) return;
    const std::string entry = LogEntry(LogTimeLine(local), text);
    Destination& destination = TheDestination();
    if (!WriteToStream(destination, entry)) AppendToFile(destination, entry);
  } catch (...) {
    // Every handler relies on this log as its last resort: the entry is lost, the caller continues.
    return;
  }
}

}  // namespace TamLogUtil
