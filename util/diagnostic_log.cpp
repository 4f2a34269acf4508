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

// A writer that does not come to its end holds the others up no longer than this.
constexpr std::chrono::seconds kLongestTurn{1};
constexpr std::chrono::milliseconds kLookAgain{1};

struct Destination {
  LeafLock lock;
  std::string fileName GUARDED_BY(lock);
  std::ostream* stream GUARDED_BY(lock) = nullptr;
  // Whether somebody appends. The run-time does it by a seek and a write, so two writers at once could cover
  // each other's entry. Not a lock: a thread may be ended by force in the middle of its turn, and the log has
  // to go on without it. Not a semaphore either: the library's waits by static objects, which are gone when
  // the last entries are written.
  std::atomic<bool> fileBusy{false};
};

// Waits for the turn, or for as long as it pays to; gives back only what it got.
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

// Never destroyed: the exit hooks write entries when static objects are already gone.
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

// Whether a stream took the entry. The lock is held meanwhile, so that a stream needs none of its own.
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
    // The log is the last resort of every catch site: the entry is lost, the caller goes on.
    return;
  }
}

}  // namespace TamLogUtil
