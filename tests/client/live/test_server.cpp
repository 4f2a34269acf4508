#include "tests/client/live/test_server.h"

#include <cstring>
#include <utility>

#include "client/live/handle.h"
#include "client/message/win32.h"

namespace TamLogTest {

namespace {

using TamLogClient::Handle;

Handle MakePipe(const std::string& name, DWORD direction) {
  return Handle(CreateNamedPipeA(name.c_str(), direction | FILE_FLAG_OVERLAPPED,
                                 PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 255, 4096, 4096, 0,
                                 nullptr));
}

// Waits for the operation or the stop. Returns the bytes, or -1 when the operation failed or the server has
// to stop.
int Finish(HANDLE pipe, OVERLAPPED& operation, BOOL started, HANDLE stopEvent) {
  if (started == FALSE && GetLastError() == ERROR_PIPE_CONNECTED) return 0;
  if (started == FALSE && GetLastError() != ERROR_IO_PENDING) return -1;
  const HANDLE both[] = {operation.hEvent, stopEvent};
  if (WaitForMultipleObjects(2, both, FALSE, INFINITE) != WAIT_OBJECT_0) CancelIoEx(pipe, &operation);
  DWORD bytes = 0;
  return GetOverlappedResult(pipe, &operation, &bytes, TRUE) != FALSE ? static_cast<int>(bytes) : -1;
}

}  // namespace

std::string TestServer::OwnPipeName() {
  return R"(\\.\pipe\TamLogTestPipe)" + std::to_string(GetCurrentProcessId());
}

TestServer::TestServer(Handler answer, std::string pipeName, std::uint32_t pauseMs)
    : name(std::move(pipeName)),
      handler(std::move(answer)),
      stopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
      thread([this, pauseMs] { Serve(pauseMs); }) {}

TestServer::~TestServer() {
  stop = true;
  SetEvent(stopEvent);
  thread.join();
  CloseHandle(stopEvent);
}

std::vector<PipeRequest> TestServer::Requests() const {
  const std::lock_guard guard(lock);
  return requests;
}

void TestServer::Serve(std::uint32_t pauseMs) {
  const Handle done(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  for (; !stop; pauseMs = 0) {
    Handle request;
    if (pauseMs > 0) request = MakePipe(name, PIPE_ACCESS_INBOUND);
    Sleep(pauseMs);
    const Handle reply = MakePipe(name + kReplyPipeSuffix, PIPE_ACCESS_OUTBOUND);
    if (!request) request = MakePipe(name, PIPE_ACCESS_INBOUND);
    bool connected = true;
    for (const HANDLE pipe : {request.Get(), reply.Get()}) {
      OVERLAPPED operation{};
      operation.hEvent = done.Get();
      const int result = Finish(pipe, operation, ConnectNamedPipe(pipe, &operation), stopEvent);
      connected = result >= 0 && connected;
    }
    if (!connected) continue;
    ++connections;
    ServeConnection(request.Get(), reply.Get());
    DisconnectNamedPipe(request.Get());
    DisconnectNamedPipe(reply.Get());
  }
}

void TestServer::ServeConnection(void* requestPipe, void* replyPipe) {
  const Handle done(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  PipeReply reply;
  // Bytes that a reply does not define come from earlier replies; the first ones are arbitrary.
  std::memset(&reply, 0xEE, sizeof(reply));
  while (!stop) {
    PipeRequest request{};
    OVERLAPPED operation{};
    operation.hEvent = done.Get();
    int bytes = Finish(requestPipe, operation,
                       ReadFile(requestPipe, &request, sizeof(request), nullptr, &operation), stopEvent);
    if (bytes < 0) return;
    if (bytes != static_cast<int>(sizeof(request))) allWhole = false;
    {
      const std::lock_guard guard(lock);
      requests.push_back(request);
    }
    reply.code = static_cast<std::uint32_t>(ReplyCode::Done);
    const Answer answer = handler(request, reply);
    if (answer == Answer::HangUp) return;
    if (answer == Answer::Silence) continue;
    operation = {};
    operation.hEvent = done.Get();
    bytes = Finish(replyPipe, operation, WriteFile(replyPipe, &reply, sizeof(reply), nullptr, &operation),
                   stopEvent);
    if (bytes < 0) return;
  }
}

}  // namespace TamLogTest
