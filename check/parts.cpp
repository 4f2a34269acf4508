#include "check/parts.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <iostream>
#include <thread>

#include "check/session.h"
#include "check/system.h"
#include "client/live/log_client.h"
#include "client/live/log_stream.h"
#include "client/message/win32.h"

namespace TamLogCheck {

namespace {

using TamLogClient::LogItem;
using TamLogClient::Status;

void Say(const std::string& line) {
  std::cout << line << std::endl;
}

// Says that the part is ready, and waits for the end of its input.
void Stay() {
  Say("ready");
  std::string line;
  while (std::getline(std::cin, line)) {
  }
}

// Is true from the end of the input on.
class InputEnd {
 public:
  InputEnd() {
    std::thread([this] {
      Stay();
      ended = true;
    }).detach();
  }
  bool Reached() const { return ended; }

 private:
  std::atomic<bool> ended{false};
};

int Map() {
  const Handle mapping(OpenFileMappingA(FILE_MAP_READ, FALSE, kFileMapName));
  if (!mapping) Fail("OpenFileMapping");
  if (MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0) == nullptr) Fail("MapViewOfFile");
  Stay();
  return 0;
}

Handle OpenLock(const char* event) {
  Handle opened(OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, event));
  if (!opened) Fail(event);
  return opened;
}

// Takes read access as docs/read_access.md describes it, which no other program of ours does.
int Inside() {
  constexpr DWORD kMostMs = 10000;
  const Handle mapping(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, kFileMapName));
  if (!mapping) Fail("OpenFileMapping");
  auto* const readCount = static_cast<volatile std::int32_t*>(
      MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  if (readCount == nullptr) Fail("MapViewOfFile");
  const Handle headerLock = OpenLock(kHeaderLockName);
  const Handle readWait = OpenLock(kReadWaitEventName);
  const Handle writeWait = OpenLock(kWriteWaitEventName);
  const std::array<HANDLE, 2> both{readWait.Get(), headerLock.Get()};
  if (WaitForMultipleObjects(2, both.data(), TRUE, kMostMs) != WAIT_OBJECT_0) return 1;
  *readCount = *readCount + 1;
  ResetEvent(writeWait.Get());
  SetEvent(headerLock.Get());
  Stay();
  if (WaitForSingleObject(headerLock.Get(), kMostMs) != WAIT_OBJECT_0) return 1;
  *readCount = *readCount - 1;
  if (*readCount <= 0) {
    *readCount = 0;
    SetEvent(writeWait.Get());
  }
  SetEvent(headerLock.Get());
  return 0;
}

int Follow() {
  static InputEnd end;  // its thread may outlive this function
  TamLogClient::LogStream stream;
  if (stream.Open() != Status::Ok) return 1;
  Say("following");
  std::uint64_t messages = 0;
  std::uint64_t losses = 0;
  while (!end.Reached()) {
    LogItem item;
    const Status status = stream.Next(item, 200);
    if (status == Status::TimedOut) continue;
    if (status != Status::Ok) return 1;
    if (item.kind == LogItem::Kind::Message) ++messages;
    if (item.kind == LogItem::Kind::Lost) ++losses;
  }
  Say("messages " + std::to_string(messages) + " lost " + std::to_string(losses));
  return 0;
}

int Open(const std::string& milliseconds, const std::string& path) {
  const Handle file = OpenAt(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  if (!file) Fail("opening " + path);
  Say("ready");
  Sleep(std::stoul(milliseconds));
  return 0;
}

int Submit() {
  static InputEnd end;
  TamLogClient::LogClient client;
  std::uint64_t messages = 0;
  while (!end.Reached()) {
    if (client.Submit(MessageOf("load", "load " + std::to_string(messages))) == Status::Ok) {
      ++messages;
    } else {
      Sleep(50);
    }
  }
  Say("messages " + std::to_string(messages));
  return 0;
}

}  // namespace

int RunPart(const std::vector<std::string>& arguments) {
  const std::string& part = arguments.at(0);
  if (part == "map") return Map();
  if (part == "inside") return Inside();
  if (part == "follow") return Follow();
  if (part == "open") return Open(arguments.at(1), arguments.at(2));
  if (part == "submit") return Submit();
  return kUsage;
}

}  // namespace TamLogCheck
