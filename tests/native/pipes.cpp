// Named pipes: the native counterpart of pipe/pipe_calls.cpp. Messages, overlapped operations, and the errors
// and statuses with which the system ends them.

#include "tests/native/pipes.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include "pipe/pipe_calls.h"
#include "tests/native/handles.h"
#include "tests/native/machine.h"
#include "util/sync.h"

// The fields of the system's record that the transport uses.
struct _OVERLAPPED {
  std::atomic<std::uint32_t> status{0};
  TamLogUtil::NativeHandle completion = nullptr;
};

namespace NativeMachine {
namespace {

using TamLogUtil::NativeHandle;

constexpr std::uint32_t kBrokenPipe = 109;
constexpr std::uint32_t kNoData = 232;
constexpr std::uint32_t kNotConnected = 233;
constexpr std::uint32_t kMoreData = 234;
constexpr std::uint32_t kStillPending = 0x103;
constexpr std::uint32_t kStatusMoreData = 0x80000005U;
constexpr std::uint32_t kStatusDisconnected = 0xC00000B0U;
constexpr std::uint32_t kStatusCancelled = 0xC0000120U;
constexpr std::uint32_t kStatusBroken = 0xC000014BU;
constexpr std::size_t kQuota = 4096;

enum class Client : std::uint8_t { None, There, Gone, CutOff };

}  // namespace

// One instance of a pipe. Each has its own lock, so that instances do not synchronize threads with each
// other.
struct Pipe final : Object {
  std::mutex lock;
  Client client = Client::None;
  std::deque<std::string> messages;
  std::size_t queued = 0;
  // The pending operation; a connect has no buffer, a write has its bytes.
  _OVERLAPPED* pending = nullptr;
  void* buffer = nullptr;
  std::size_t size = 0;
  std::string unwritten;

  void Push(std::string message) {
    queued += message.size();
    messages.push_back(std::move(message));
  }
  std::string Pop() {
    std::string message = std::move(messages.front());
    messages.pop_front();
    queued -= message.size();
    return message;
  }

  std::uint32_t Pend(_OVERLAPPED* overlapped) {
    pending = overlapped;
    overlapped->status = kStillPending;
    TamLogUtil::CheckedResetEvent(overlapped->completion);
    return PipeCalls::kPending;
  }
  // The event last: after it the waiting thread may reuse the record.
  void Complete(std::uint32_t status) {
    if (pending == nullptr) return;
    _OVERLAPPED* const ended = std::exchange(pending, nullptr);
    buffer = nullptr;
    ended->status = status;
    TamLogUtil::CheckedSetEvent(ended->completion);
  }
  // 0 or "more data", as an error or a status.
  bool TakeMessage(void* target, std::size_t room) {
    std::string message = Pop();
    const std::size_t taken = std::min(message.size(), room);
    std::memcpy(target, message.data(), taken);
    if (taken == message.size()) return true;
    queued += message.size() - taken;
    messages.push_front(message.substr(taken));
    return false;
  }
};

namespace {

struct Listening {
  std::mutex lock;
  std::list<std::pair<std::string, std::weak_ptr<Pipe>>> instances;
};

Listening& TheListening() {
  static Listening listening;
  return listening;
}

Pipe& PipeOf(NativeHandle instance) {
  return As<Pipe>(instance);
}

// Returns an instance that waits for a client, and removes from the list those that no longer exist.
std::shared_ptr<Pipe> TakeInstance(const std::string& name) {
  Listening& listening = TheListening();
  const std::lock_guard guard(listening.lock);
  for (auto entry = listening.instances.begin(); entry != listening.instances.end();) {
    const std::shared_ptr<Pipe> pipe = entry->second.lock();
    if (pipe != nullptr && entry->first != name) {
      ++entry;
      continue;
    }
    entry = listening.instances.erase(entry);
    if (pipe == nullptr) continue;
    const std::lock_guard pipeGuard(pipe->lock);
    if (pipe->client != Client::None) continue;
    pipe->client = Client::There;
    pipe->Complete(0);
    return pipe;
  }
  return nullptr;
}

std::shared_ptr<Pipe> OpenPipe(const std::string& name, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    std::shared_ptr<Pipe> pipe = TakeInstance(name);
    if (pipe != nullptr || std::chrono::steady_clock::now() >= end) return pipe;
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

void ClosePipe(std::shared_ptr<Pipe>& pipe) {
  if (pipe == nullptr) return;
  {
    const std::lock_guard guard(pipe->lock);
    if (pipe->client == Client::There) pipe->client = Client::Gone;
    // Messages sent before can still be read; a pending read will get none.
    pipe->Complete(kStatusBroken);
  }
  pipe.reset();
}

}  // namespace

bool PipeClient::Connect(std::chrono::milliseconds limit) {
  return OpenRequestPipe(limit) && OpenReplyPipe(limit);
}

bool PipeClient::OpenRequestPipe(std::chrono::milliseconds limit) {
  requests = OpenPipe(kRequestPipeName, limit);
  return requests != nullptr;
}

bool PipeClient::OpenReplyPipe(std::chrono::milliseconds limit) {
  replies = OpenPipe(std::string(kRequestPipeName) + kReplyPipeSuffix, limit);
  return replies != nullptr;
}

void PipeClient::Attach(NativeHandle requestInstance, NativeHandle replyInstance) {
  requests = std::dynamic_pointer_cast<Pipe>(ObjectOf(requestInstance));
  replies = std::dynamic_pointer_cast<Pipe>(ObjectOf(replyInstance));
  requests->client = Client::There;
  replies->client = Client::There;
}

bool PipeClient::Send(const void* bytes, std::size_t size) {
  const std::lock_guard guard(requests->lock);
  if (requests->client != Client::There) return false;
  requests->Push(std::string(static_cast<const char*>(bytes), size));
  if (requests->pending != nullptr && requests->buffer != nullptr) {
    const bool whole = requests->TakeMessage(requests->buffer, requests->size);
    requests->Complete(whole ? 0 : kStatusMoreData);
  }
  return true;
}

std::optional<PipeReply> PipeClient::Receive(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    {
      const std::lock_guard guard(replies->lock);
      if (replies->client == Client::CutOff) return std::nullopt;
      if (!replies->messages.empty()) {
        PipeReply reply{};
        replies->TakeMessage(&reply, sizeof reply);
        if (replies->pending != nullptr) {
          replies->Push(std::move(replies->unwritten));
          replies->Complete(0);
        }
        return reply;
      }
    }
    if (std::chrono::steady_clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

std::optional<PipeReply> PipeClient::Ask(const PipeRequest& request, std::chrono::milliseconds limit) {
  if (!Send(&request, sizeof request)) return std::nullopt;
  return Receive(limit);
}

void PipeClient::Close() {
  ClosePipe(requests);
  ClosePipe(replies);
}

}  // namespace NativeMachine

namespace PipeCalls {

using NativeMachine::Client;
using NativeMachine::Pipe;
using NativeMachine::PipeOf;
using TamLogUtil::NativeHandle;

void DeleteOverlapped::operator()(_OVERLAPPED* overlapped) const {
  delete overlapped;
}

OwnedOverlapped NewOverlapped(NativeHandle completionEvent) {
  OwnedOverlapped made(new _OVERLAPPED());
  made->completion = completionEvent;
  return made;
}

std::uint32_t StatusOf(const _OVERLAPPED& overlapped) {
  return overlapped.status;
}

NativeHandle NewEvent() {
  return TamLogUtil::CheckedCreateEvent(nullptr, true, false, nullptr);
}

void AwaitEvent(NativeHandle event, std::uint32_t milliseconds) {
  TamLogUtil::CheckedWaitForSingleObject(event, milliseconds);
}

NativeHandle NewInstance(const std::string& name, Direction /*direction*/,
                         TamLogUtil::SecurityAttributes* /*security*/) {
  auto pipe = std::make_shared<Pipe>();
  auto& listening = NativeMachine::TheListening();
  const std::lock_guard guard(listening.lock);
  listening.instances.remove_if([](const auto& entry) { return entry.second.expired(); });
  listening.instances.emplace_back(name, pipe);
  return NativeMachine::NewHandle(std::move(pipe));
}

std::uint32_t Connect(NativeHandle instance, _OVERLAPPED* overlapped) {
  Pipe& pipe = PipeOf(instance);
  const std::lock_guard guard(pipe.lock);
  if (pipe.client == Client::There) return kAlreadyConnected;
  if (pipe.client == Client::Gone) return NativeMachine::kNoData;
  return pipe.Pend(overlapped);
}

std::uint32_t Read(NativeHandle instance, void* buffer, std::size_t size, _OVERLAPPED* overlapped) {
  Pipe& pipe = PipeOf(instance);
  const std::lock_guard guard(pipe.lock);
  if (pipe.client == Client::None || pipe.client == Client::CutOff) return NativeMachine::kNotConnected;
  if (!pipe.messages.empty()) return pipe.TakeMessage(buffer, size) ? 0 : NativeMachine::kMoreData;
  if (pipe.client == Client::Gone) return NativeMachine::kBrokenPipe;
  pipe.buffer = buffer;
  pipe.size = size;
  return pipe.Pend(overlapped);
}

std::uint32_t Write(NativeHandle instance, const void* bytes, std::size_t size, _OVERLAPPED* overlapped) {
  Pipe& pipe = PipeOf(instance);
  const std::lock_guard guard(pipe.lock);
  if (pipe.client == Client::Gone) return NativeMachine::kNoData;
  if (pipe.client != Client::There) return NativeMachine::kNotConnected;
  std::string message(static_cast<const char*>(bytes), size);
  if (pipe.queued + size <= NativeMachine::kQuota) {
    pipe.Push(std::move(message));
    return 0;
  }
  pipe.unwritten = std::move(message);
  return pipe.Pend(overlapped);
}

void Disconnect(NativeHandle instance) {
  Pipe& pipe = PipeOf(instance);
  const std::lock_guard guard(pipe.lock);
  pipe.client = Client::CutOff;
  pipe.messages.clear();
  pipe.queued = 0;
  pipe.Complete(NativeMachine::kStatusDisconnected);
}

void Cancel(NativeHandle instance, _OVERLAPPED* overlapped) {
  Pipe& pipe = PipeOf(instance);
  const std::lock_guard guard(pipe.lock);
  if (pipe.pending == overlapped) pipe.Complete(NativeMachine::kStatusCancelled);
}

}  // namespace PipeCalls
