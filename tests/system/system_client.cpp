// A client of the pipes in a process of its own, which the system tests kill at the moment that its mode
// names. It prints one line when it has reached that moment and then waits for a line (or the end) of its
// standard input.
//
//   half      opens the request pipe and not the reply pipe; prints "half"
//   part N    writes the first N bytes of a request that submits a message; prints "written"
//   unread N  submits N messages and reads no reply; prints "sent"
//   within N  submits a message and reads the first N bytes of the reply; prints "read"
//   asking    prints "asking" and submits messages without pause until it is killed
//
// The exit code is 0, 1 for a fault that it prints, 2 for a wrong command line.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/child_program.h"
#include "tests/support/messages.h"
#include "tests/support/pipe_client.h"
#include "tests/system/server_connection.h"
#include "util/win32.h"

namespace {

using TestSupport::PipeClient;
using TestSupport::Say;
using TestSupport::WaitForLine;

constexpr std::uint32_t kPatienceMs = 20000;

LogMessageBody MakeMessage(const std::string& text) {
  return TestSupport::From("Client", TestSupport::Message(text, TestSupport::At(12, 0)));
}

void Connect(PipeClient& client) {
  if (!client.Connect(kPatienceMs)) throw std::runtime_error("no connection");
}

void Half() {
  PipeClient client;
  if (!client.OpenRequestPipe(kPatienceMs)) throw std::runtime_error("no request pipe");
  Say("half");
  WaitForLine();
}

void Part(std::size_t bytes) {
  PipeClient client;
  Connect(client);
  const PipeRequest request = SubmitRequest(MakeMessage("in part"));
  if (!client.SendBytes(&request, std::min(bytes, sizeof(request)))) throw std::runtime_error("not written");
  Say("written");
  WaitForLine();
}

void Unread(int messages) {
  PipeClient client;
  Connect(client);
  for (int i = 0; i < messages; ++i) {
    if (!client.Send(SubmitRequest(MakeMessage("unread " + std::to_string(i))))) {
      throw std::runtime_error("not sent");
    }
  }
  Say("sent");
  WaitForLine();
}

void Within(std::size_t bytes) {
  PipeClient client;
  Connect(client);
  if (!client.Send(SubmitRequest(MakeMessage("within")))) throw std::runtime_error("not sent");
  std::vector<char> part(std::min(bytes, sizeof(PipeReply) - 1));
  OVERLAPPED operation{};
  operation.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  DWORD read = 0;
  ReadFile(client.ReplyPipe(), part.data(), static_cast<DWORD>(part.size()), nullptr, &operation);
  const BOOL whole = GetOverlappedResult(client.ReplyPipe(), &operation, &read, TRUE);
  if (whole != FALSE || GetLastError() != ERROR_MORE_DATA || read != part.size()) {
    throw std::runtime_error("no part of a reply: error " + std::to_string(GetLastError()));
  }
  Say("read");
  WaitForLine();
}

void Asking() {
  Say("asking");
  for (;;) {
    PipeClient client;
    Connect(client);
    for (int i = 0; i < 20 && client.Call(SubmitRequest(MakeMessage("asking"))); ++i) {
    }
  }
}

int Run(const std::vector<std::string>& words) {
  const std::string mode = words.empty() ? "" : words[0];
  if (mode == "half" && words.size() == 1) {
    Half();
  } else if (mode == "part" && words.size() == 2) {
    Part(std::stoul(words[1]));
  } else if (mode == "unread" && words.size() == 2) {
    Unread(std::stoi(words[1]));
  } else if (mode == "within" && words.size() == 2) {
    Within(std::stoul(words[1]));
  } else if (mode == "asking" && words.size() == 1) {
    Asking();
  } else {
    Say("usage: system_client half | part BYTES | unread MESSAGES | within BYTES | asking");
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return TestSupport::RunChildProgram(argc, argv, Run);
}
