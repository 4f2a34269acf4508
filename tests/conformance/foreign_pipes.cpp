#include "tests/conformance/foreign_pipes.h"

#include <cstring>

namespace {

constexpr DWORD kBufferBytes = 4096;
constexpr DWORD kAnswerMs = 10000;

class Overlapped : public OVERLAPPED {
 public:
  Overlapped() : OVERLAPPED{} { hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr); }
  ~Overlapped() { CloseHandle(hEvent); }
  Overlapped(const Overlapped&) = delete;
  Overlapped& operator=(const Overlapped&) = delete;
};

}  // namespace

ForeignPipes::ForeignPipes(Breaks rule, Answer answering)
    : breaks(std::move(rule)),
      answer(std::move(answering)),
      ended(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
      acceptor([this, first = MakePair()] { Accept(first); }) {}

ForeignPipes::~ForeignPipes() {
  SetEvent(ended);
  acceptor.join();
  for (std::thread& connection : connections) connection.join();
  CloseHandle(ended);
}

ForeignPipes::Pair ForeignPipes::MakePair() const {
  const DWORD mode = breaks("connect") ? PIPE_TYPE_BYTE : PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE;
  const auto make = [&](const char* name, DWORD access) {
    return CreateNamedPipeA(name, access | FILE_FLAG_OVERLAPPED, mode, PIPE_UNLIMITED_INSTANCES, kBufferBytes,
                            kBufferBytes, 0, nullptr);
  };
  const HANDLE request = make(TAMLOG_REQUEST_PIPE, PIPE_ACCESS_INBOUND);
  if (breaks("slow-pair")) Sleep(1500);
  return {request, make(TAMLOG_REPLY_PIPE, PIPE_ACCESS_OUTBOUND)};
}

void ForeignPipes::Close(const Pair& pair) {
  for (const HANDLE pipe : {pair.request, pair.reply}) {
    DisconnectNamedPipe(pipe);
    CloseHandle(pipe);
  }
}

DWORD ForeignPipes::Finish(HANDLE pipe, OVERLAPPED& overlapped, BOOL started, DWORD limit,
                           DWORD& moved) const {
  moved = 0;
  const DWORD error = started ? 0 : GetLastError();
  if (error != 0 && error != ERROR_IO_PENDING) return error;
  const HANDLE events[] = {overlapped.hEvent, ended};
  if (WaitForMultipleObjects(2, events, FALSE, limit) != WAIT_OBJECT_0) CancelIoEx(pipe, &overlapped);
  return GetOverlappedResult(pipe, &overlapped, &moved, TRUE) ? 0 : GetLastError();
}

bool ForeignPipes::IsConnected(HANDLE pipe) const {
  Overlapped overlapped;
  DWORD moved = 0;
  const DWORD error = Finish(pipe, overlapped, ConnectNamedPipe(pipe, &overlapped), INFINITE, moved);
  return error == 0 || error == ERROR_PIPE_CONNECTED;
}

void ForeignPipes::Accept(Pair pair) {
  for (; WaitForSingleObject(ended, 0) != WAIT_OBJECT_0; pair = MakePair()) {
    if (!IsConnected(pair.request) || !IsConnected(pair.reply)) {
      Close(pair);
    } else if (breaks("two-clients")) {
      Serve(pair);
    } else {
      connections.emplace_back([this, pair] { Serve(pair); });
    }
  }
  Close(pair);
}

int ForeignPipes::ReadRequest(const Pair& pair, PipeRecord& request, bool& tooLong) {
  const DWORD limit = breaks("idle-9-s") ? 5000 : breaks("idle-12-s") ? INFINITE : kAnswerMs;
  request.fill(0);
  tooLong = false;
  for (PipeRecord rest;; tooLong = true) {
    Overlapped overlapped;
    DWORD moved = 0;
    char* const into = tooLong ? rest.data() : request.data();
    const DWORD error =
        Finish(pair.request, overlapped,
               ReadFile(pair.request, into, TAMLOG_RECORD_SIZE, nullptr, &overlapped), limit, moved);
    if (error == ERROR_MORE_DATA) continue;
    return error == 0 ? static_cast<int>(moved) : -1;
  }
}

bool ForeignPipes::Reply(const Pair& pair, const PipeRecord& reply) {
  Overlapped overlapped;
  DWORD moved = 0;
  return Finish(pair.reply, overlapped,
                WriteFile(pair.reply, reply.data(), TAMLOG_RECORD_SIZE, nullptr, &overlapped),
                breaks("not-reading") ? INFINITE : kAnswerMs, moved) == 0;
}

bool ForeignPipes::ReplyCode(const Pair& pair, std::uint32_t code) {
  PipeRecord reply{};
  std::memcpy(reply.data() + TAMLOG_RECORD_CODE, &code, sizeof code);
  return Reply(pair, reply);
}

void ForeignPipes::Serve(Pair pair) {
  PipeRecord request;
  PipeRecord next;
  bool tooLong = false;
  int tooLongOnes = 0;
  bool goesOn = true;
  while (goesOn) {
    const int count = ReadRequest(pair, request, tooLong);
    DWORD waiting = 0;
    if (count < 0) break;
    if (tooLong) {
      goesOn = ReplyCode(pair, TAMLOG_REPLY_TOO_LONG) && !(breaks("too-long-often") && ++tooLongOnes == 12);
      if (breaks("too-long")) goesOn = ReplyCode(pair, TAMLOG_REPLY_TOO_LONG);
    } else if (count == 0 && breaks("empty")) {
      goesOn = ReplyCode(pair, TAMLOG_REPLY_ALIVE);
    } else if (count > 0 && count < TAMLOG_RECORD_SIZE && breaks("short")) {
      goesOn = ReplyCode(pair, TAMLOG_REPLY_FAILED);
    } else {
      if (breaks("in-order")) Sleep(50);
      if (breaks("in-order") && PeekNamedPipe(pair.request, nullptr, 0, nullptr, &waiting, nullptr) &&
          waiting > 0) {
        ReadRequest(pair, next, tooLong);
        Reply(pair, answer(next));
      }
      goesOn =
          Reply(pair, answer(request)) && !(breaks("restart-later") && request[0] == TAMLOG_SET_SETTINGS);
    }
  }
  Close(pair);
  if (breaks("other-leaves")) SetEvent(ended);
}
