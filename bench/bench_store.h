#pragma once

// The server's real store over a full file in this process, for the programs that measure it; and the mapped
// slots as a reader sees them. Windows only. Use from one thread, except for `server`, which any thread may
// use as its header states.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "bench/messages.h"
#include "store/message_file_server.h"
#include "util/native_handle.h"
#include "util/sync.h"

namespace Bench {

inline constexpr char kMap[] = "Global\\TamLogBenchMap";
inline constexpr char kHeaderLock[] = "Global\\TamLogBenchHeaderLock";
inline constexpr char kReadWait[] = "Global\\TamLogBenchReadWait";
inline constexpr char kWriteWait[] = "Global\\TamLogBenchWriteWait";

// Returns a message with a source of 12 characters and a text of 80; `tenths` counts tenths of milliseconds
// from a fixed day on.
inline LogMessageBody MessageAt(std::uint64_t tenths) {
  LogMessageBody body{};
  SetTime(body, tenths / 10);
  std::memset(body.source, 's', 12);
  std::memset(body.text, 't', 80);
  return body;
}

// A server over a full file.
class Store {
 public:
  // New: writes a file whose messages are a millisecond apart. Given: uses the file that make_log has
  // written.
  enum class File { New, Given };

  Store(const std::string& path, std::uint32_t slots, File file = File::New)
      : now(std::uint64_t{slots} * (file == File::New ? 10 : 10 * kMillisecondsApart)) {
    configuration.maxMessage = slots;
    configuration.logFile = path;
    std::fill(std::begin(configuration.typeFilter), std::end(configuration.typeFilter), true);
    if (file == File::New) WriteFullFile();
    Open();
  }
  ~Store() { Close(); }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  void Open() { server.OpenFile(kMap, kHeaderLock, kReadWait, kWriteWait); }
  void Close() { server.CloseFile(TamLogUtil::Timeout::Infinite); }

  // Returns messages later than all previous ones.
  std::vector<LogMessageBody> InOrder(std::size_t count) {
    std::vector<LogMessageBody> bodies;
    bodies.reserve(count);
    for (std::size_t i = 0; i < count; ++i) bodies.push_back(MessageAt(++now));
    return bodies;
  }
  // Returns messages of which every second one is a second late, after 10,000 others.
  std::vector<LogMessageBody> EverySecondLate(std::size_t count) {
    std::vector<LogMessageBody> bodies = InOrder(count);
    for (std::size_t i = 1; i < count; i += 2) bodies[i] = MessageAt(now - count + i - 6667);
    return bodies;
  }
  std::vector<LogMessageBody> Reversed(std::size_t count) {
    std::vector<LogMessageBody> bodies = InOrder(count);
    std::reverse(bodies.begin(), bodies.end());
    return bodies;
  }

  MessageFileServer server{&configuration, &configLock};
  ServerConfiguration configuration;

 private:
  void WriteFullFile() const;

  TamLogUtil::Mutex configLock;
  std::uint64_t now;
};

// A second mapping of the slots, as a reader has it. Ends the program when no mapping exists.
class View {
 public:
  View();
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  LogFileHeader* Header() { return reinterpret_cast<LogFileHeader*>(bytes); }
  LogMessage* Slots() { return reinterpret_cast<LogMessage*>(bytes + kSlotsOffset); }

 private:
  TamLogUtil::NativeHandle mapping;
  char* bytes;
};

}  // namespace Bench
