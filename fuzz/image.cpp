// Fuzzes the log file that a server finds at its start: the server's own opening (check, compact, resize,
// empty, load), and its later work on the file, while other processes overwrite the header.
//
// Input: the configured capacity (2 bytes), that of a second opening (2), 28 steps of a byte each, the file.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>

#include "client/file/log_file_verify.h"
#include "fuzz/input.h"
#include "store/message_file_server.h"
#include "store/server_configuration.h"
#include "tests/native/machine.h"
#include "tests/support/messages.h"
#include "util/exceptions.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using Fuzz::Require;
using TamLogClient::FileRule;
using TamLogClient::LogFileImage;
using TamLogClient::VerifyLogFile;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;

constexpr char kPath[] = "C:\\Logs.dat";
// More than a page of slots, yet few enough for many runs a second.
constexpr std::uint16_t kMostCapacity = 40;

struct Head {
  std::uint16_t capacity;
  std::uint16_t secondCapacity;
  std::array<std::uint8_t, 28> steps;
};

class OpenedLog {
 public:
  explicit OpenedLog(std::uint16_t capacity) {
    configuration.logFile = kPath;
    configuration.maxMessage = capacity % kMostCapacity;
    for (bool& kept : configuration.typeFilter) kept = true;
  }
  ~OpenedLog() { server.CloseFile(Timeout::Infinite); }
  OpenedLog(const OpenedLog&) = delete;
  OpenedLog& operator=(const OpenedLog&) = delete;

  void Open() {
    server.OpenFile(kFileMapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName);
    CheckHeader();
  }

  void Reopen(std::uint16_t capacity) {
    configuration.maxMessage = capacity % kMostCapacity;
    server.CloseFile(Timeout::Infinite);
    Open();
    tampered = false;
  }

  void Step(std::uint8_t step, const Head& head) {
    const auto argument = static_cast<std::uint8_t>(step >> 3U);
    switch (step & 7U) {
      case 3:
        return server.FlushWrites();
      case 4:
        return Clear();
      case 5:
        return server.WriteToDisk();
      case 6:
        return TamperWithHeader(argument, head);
      case 7:
        return Reopen(head.secondCapacity);
      default:
        server.AddMessage(TestSupport::Message("added", TestSupport::At(argument, step & 7U)));
    }
  }

  std::uint32_t Capacity() const { return configuration.maxMessage; }
  bool Tampered() const { return tampered; }

  // Checks that the header of an opened file is sound, whatever the file contained before.
  void CheckHeader() const {
    const std::string bytes = NativeMachine::ReadFile(kPath);
    const LogFileImage image(bytes);
    const LogFileHeader& header = image.Header();
    Require(bytes.size() == LogFileSize(Capacity()));
    Require(header.maxMessages == static_cast<std::int32_t>(Capacity()));
    Require(header.messageCount >= 0 && header.messageCount <= header.maxMessages);
    Require(header.nextSlot >= 0 && (header.nextSlot < header.maxMessages || header.maxMessages == 0));
    Require(header.readCount == 0 && header.serverRunning == 1);
    for (const auto& name : image.Names().name) Require(std::strlen(name) < sizeof name);
  }

 private:
  void Clear() {
    const TamLogUtil::Mutex::Access access(configLock, Timeout::Infinite);
    server.ClearMessages();
  }

  // Overwrites a number of the header, as any process that has the file mapped may do. The count of readers
  // is excepted: with it such a process could make the server wait forever.
  void TamperWithHeader(std::uint8_t where, const Head& head) {
    std::size_t size = 0;
    std::uint8_t* const bytes = NativeMachine::BytesOf(kPath, size);
    const std::size_t place = 4 + 4 * (where % 11U);
    Require(place + 4 <= size);
    std::memcpy(bytes + place, head.steps.data() + where % 24U, 4);
    tampered = true;
  }

  ServerConfiguration configuration;
  TamLogUtil::Mutex configLock;
  MessageFileServer server{&configuration, &configLock};
  bool tampered = false;
};

// Checks that the server treats the file as the client's checker predicts.
void CheckOpening(const std::string& before, std::uint32_t capacity) {
  const LogFileImage image(before);
  const std::string after = NativeMachine::ReadFile(kPath);
  const LogFileHeader header = LogFileImage(after).Header();
  if (!image.HasHead()) return;
  const bool accepted = VerifyLogFile(image, {.most = 1}).Accepted();
  if (before.size() == LogFileSize(capacity) && !accepted) Require(header.messageCount == 0);
  if (before.size() != LogFileSize(capacity) || !accepted) return;
  if (image.Header().maxMessages != static_cast<std::int32_t>(capacity)) return;
  Require(header.messageCount == image.Header().messageCount);
  const LogFileImage opened(after);
  Require(after.substr(kSlotsOffset) == before.substr(kSlotsOffset));
}

// Checks that the server writes no damage; only the reverse order that a full rewrite leaves is allowed. (A
// log without slots breaks a rule by itself.)
void CheckWritten(std::uint32_t capacity) {
  if (capacity == 0) return;
  const std::string bytes = NativeMachine::ReadFile(kPath);
  const auto report = VerifyLogFile(LogFileImage(bytes), {.most = 1, .live = true});
  Require(report.Damage() == report.Count(FileRule::NewestFirst));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const auto head = input.Take<Head>();
  const std::string file = input.TakeRest();
  NativeMachine::Reset();
  NativeMachine::StandStill();
  NativeMachine::WriteFile(kPath, file);
  {
    OpenedLog log(head.capacity);
    log.Open();
    CheckOpening(file, log.Capacity());
    for (const std::uint8_t step : head.steps) {
      try {
        log.Step(step, head);
      } catch (const ExceptionBase&) {
        // An operation may fail only because other processes have written into the header.
        Require(log.Tampered());
      }
    }
    if (!log.Tampered()) CheckWritten(log.Capacity());
    log.Reopen(head.secondCapacity);
  }
  NativeMachine::Reset();
  return 0;
}
