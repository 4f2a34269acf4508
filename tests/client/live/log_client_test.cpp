#include "client/live/log_client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "client/format/tsv_text.h"
#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/server/pipe_examiner.h"
#include "tests/client/live/test_server.h"
#include "tests/support/real_call.h"
#include "tests/support/ring_model.h"

namespace {

// How this program opened its pipes.
std::atomic<int> pipeOpens{0};
std::atomic<int> opensThatLendTheName{0};

HANDLE WINAPI WatchedCreateFile(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                DWORD how, DWORD flags, HANDLE pattern) {
  constexpr DWORD kNameOnly = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  constexpr DWORD kLevel = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION | SECURITY_IMPERSONATION;
  if (name != nullptr && std::strncmp(name, R"(\\.\pipe\)", 9) == 0) {
    ++pipeOpens;
    if ((flags & (kLevel | SECURITY_DELEGATION)) != kNameOnly) ++opensThatLendTheName;
  }
  return TestSupport::RealCall<decltype(&CreateFileA)>("kernel32", "CreateFileA")(
      name, access, share, security, how, flags, pattern);
}

using TamLogClient::FilterEntry;
using TamLogClient::Handle;
using TamLogClient::LogClient;
using TamLogClient::Status;
using TamLogTest::Answer;
using TamLogTest::TestServer;

void SetCode(PipeReply& reply, ReplyCode code) {
  reply.code = static_cast<std::uint32_t>(code);
}

void SetPath(PipeReply& reply, ReplyCode code, const std::string& path) {
  SetCode(reply, code);
  std::memcpy(reply.path, path.c_str(), path.size() + 1);
}

// Answers as a server with one include and one exclude filter would.
Answer Ordinary(const PipeRequest& request, PipeReply& reply) {
  switch (static_cast<RequestCode>(request.code)) {
    case RequestCode::Ping:
      SetCode(reply, ReplyCode::Alive);
      break;
    case RequestCode::GetFileMapName:
      SetPath(reply, ReplyCode::FileMapName, "Global\\Map");
      break;
    case RequestCode::GetLogFile:
      SetPath(reply, ReplyCode::Path, "C:\\Logs.dat");
      break;
    case RequestCode::GetDefaultLogFile:
      SetPath(reply, ReplyCode::Path, "C:\\Default.dat");
      break;
    case RequestCode::GetSettings:
      SetCode(reply, ReplyCode::Settings);
      reply.settings = {50000, 1000, 11, 300};
      break;
    case RequestCode::GetFilter:
      SetCode(reply, request.index < 2 ? ReplyCode::Filter : ReplyCode::NoSuchFilter);
      if (request.index < 2) std::strcpy(reply.filter.text, request.index == 0 ? "Camera" : "");
      if (request.index < 2) reply.filter.kind = request.index == 0 ? 1 : 0;
      break;
    default:
      break;
  }
  return Answer::Reply;
}

class LogClientTest : public testing::Test {
 protected:
  void Serve(TestServer::Handler handler = Ordinary) {
    server = std::make_unique<TestServer>(std::move(handler));
    client = std::make_unique<LogClient>(TamLogClient::LogClientOptions{server->PipeName(), 2000, 300});
  }
  static LogMessageBody Message() { return TamLogTest::MakeBody(5, "text", "source", 3); }

  std::unique_ptr<TestServer> server;
  std::unique_ptr<LogClient> client;
};

TEST_F(LogClientTest, EachQuestionGetsItsAnswer) {
  Serve();
  std::string text;
  SettingsBody settings{};
  std::vector<FilterEntry> filters;
  EXPECT_EQ(client->Ping(), Status::Ok);
  EXPECT_EQ(client->GetFileMapName(text), Status::Ok);
  EXPECT_EQ(text, "Global\\Map");
  EXPECT_EQ(client->GetLogFile(text), Status::Ok);
  EXPECT_EQ(text, "C:\\Logs.dat");
  EXPECT_EQ(client->GetDefaultLogFile(text), Status::Ok);
  EXPECT_EQ(text, "C:\\Default.dat");
  EXPECT_EQ(client->GetSettings(settings), Status::Ok);
  EXPECT_EQ(settings.maxMessage, 50000U);
  EXPECT_EQ(settings.saveRate, 300U);
  ASSERT_EQ(client->GetFilters(filters), Status::Ok);
  ASSERT_EQ(filters.size(), 2U);
  EXPECT_EQ(filters[0].text, "Camera");
  EXPECT_TRUE(filters[0].include);
  EXPECT_EQ(filters[1].text, "");
  EXPECT_FALSE(filters[1].include);
  EXPECT_EQ(server->Connections(), 1);
}

TEST_F(LogClientTest, RequestsAreWholeRecordsWithTheirFieldsInPlace) {
  Serve();
  EXPECT_EQ(client->Submit(Message()), Status::Ok);
  EXPECT_EQ(client->AddFilter({"Laser", true}), Status::Ok);
  EXPECT_EQ(client->SetLogFile("C:\\New.dat"), Status::Ok);
  EXPECT_EQ(client->SetSettings({10, 20, 3, 40}), Status::Ok);
  EXPECT_EQ(client->ClearFilters(), Status::Ok);
  EXPECT_EQ(client->ClearLog(), Status::Ok);
  const auto requests = server->Requests();
  ASSERT_EQ(requests.size(), 6U);
  EXPECT_TRUE(server->AllWhole());
  EXPECT_EQ(requests[0].code, 3U);
  const LogMessageBody message = Message();
  EXPECT_EQ(std::memcmp(&requests[0].message, &message, sizeof(message)), 0);
  for (std::size_t i = sizeof(message); i < kPipeBodySize; ++i) EXPECT_EQ(requests[0].bytes[i], 0);
  EXPECT_EQ(requests[1].code, 11U);
  EXPECT_STREQ(requests[1].filter.text, "Laser");
  EXPECT_NE(requests[1].filter.kind, 0U);
  EXPECT_EQ(requests[2].code, 8U);
  EXPECT_STREQ(requests[2].path, "C:\\New.dat");
  EXPECT_EQ(requests[3].code, 6U);
  EXPECT_EQ(requests[3].settings.devicePollRate, 20U);
  EXPECT_EQ(requests[4].code, 10U);
  EXPECT_EQ(requests[5].code, 13U);
}

// The other end may identify the caller, but not act in its name.
TEST_F(LogClientTest, NoPipeIsOpenedSoThatTheOtherEndCouldActInOurName) {
  Serve();
  pipeOpens = 0;
  opensThatLendTheName = 0;
  EXPECT_EQ(client->Ping(), Status::Ok);
  EXPECT_GE(pipeOpens, 2);
  const int before = pipeOpens;
  TamLogCtl::FreeListener(server->PipeName());
  EXPECT_GT(pipeOpens, before);
  EXPECT_EQ(opensThatLendTheName, 0);
}

TEST_F(LogClientTest, WhatWouldHarmTheServerIsNotSent) {
  Serve();
  EXPECT_EQ(client->AddFilter({std::string(128, 'f'), true}), Status::TooLong);
  EXPECT_EQ(client->AddFilter({std::string("a\0b", 3), true}), Status::BadValue);
  EXPECT_EQ(client->SetLogFile(std::string(256, 'p')), Status::TooLong);
  EXPECT_EQ(client->SetLogFile(""), Status::BadValue);
  EXPECT_EQ(client->SetSettings({10, 0, 15, 300}), Status::BadValue);
  EXPECT_EQ(client->SetSettings({10, 1000, 15, 0}), Status::BadValue);
  EXPECT_EQ(client->SetSettings({0, 1000, 15, 300}), Status::BadValue);
  LogMessageBody unterminated = Message();
  std::memset(unterminated.text, 'x', sizeof(unterminated.text));
  EXPECT_EQ(client->Submit(unterminated), Status::TooLong);
  unterminated = Message();
  std::memset(unterminated.source, 'x', sizeof(unterminated.source));
  EXPECT_EQ(client->Submit(unterminated), Status::TooLong);
  unterminated = Message();
  unterminated.type = 4;
  EXPECT_EQ(client->Submit(unterminated), Status::BadValue);
  EXPECT_TRUE(server->Requests().empty());
  EXPECT_EQ(client->AddFilter({std::string(127, 'f'), true}), Status::Ok);
  EXPECT_EQ(client->SetLogFile(std::string(255, 'p')), Status::Ok);
}

TEST_F(LogClientTest, NoPipeIsNotRunningSoonAfterTheAbsenceTime) {
  LogClient nobody({"\\\\.\\pipe\\TamLogTestNobody", 5000, 200});
  const auto start = GetTickCount64();
  EXPECT_EQ(nobody.Ping(), Status::NotRunning);
  const auto took = GetTickCount64() - start;
  EXPECT_GE(took, 150U);
  EXPECT_LT(took, 4500U);
}

TEST_F(LogClientTest, FailedAndUnknownAreRefused) {
  Serve([](const PipeRequest& request, PipeReply& reply) {
    SetCode(reply, request.code == 4 ? ReplyCode::Failed : ReplyCode::UnknownRequest);
    return Answer::Reply;
  });
  SettingsBody settings{};
  EXPECT_EQ(client->Ping(), Status::Refused);
  EXPECT_EQ(client->GetSettings(settings), Status::Refused);
  EXPECT_EQ(server->Connections(), 1);
}

TEST_F(LogClientTest, AnswerToAnotherQuestionEndsTheConnection) {
  Serve([](const PipeRequest&, PipeReply& reply) {
    SetCode(reply, ReplyCode::Path);
    return Answer::Reply;
  });
  EXPECT_EQ(client->Ping(), Status::Disconnected);
  EXPECT_EQ(client->Ping(), Status::Disconnected);
  EXPECT_EQ(server->Connections(), 2);
}

TEST_F(LogClientTest, SilenceTimesOutAndTheLateAnswerIsNotTakenForAnother) {
  std::atomic<int> calls{0};
  Serve([&calls](const PipeRequest& request, PipeReply& reply) {
    if (calls++ == 0) return Answer::Silence;
    return Ordinary(request, reply);
  });
  client = std::make_unique<LogClient>(TamLogClient::LogClientOptions{server->PipeName(), 2000, 2000});
  const auto start = GetTickCount64();
  EXPECT_EQ(client->Ping(), Status::TimedOut);
  EXPECT_LT(GetTickCount64() - start, 20000U);
  EXPECT_EQ(client->Ping(), Status::Ok);
  EXPECT_EQ(server->Connections(), 2);
}

TEST_F(LogClientTest, EndedConnectionIsReopenedForARequest) {
  std::atomic<int> calls{0};
  Serve([&calls](const PipeRequest& request, PipeReply& reply) {
    if (++calls == 2) return Answer::HangUp;
    return Ordinary(request, reply);
  });
  EXPECT_EQ(client->Ping(), Status::Ok);
  EXPECT_EQ(client->Ping(), Status::Ok);
  EXPECT_EQ(server->Connections(), 2);
}

TEST_F(LogClientTest, MessageIsNotSentAgainWhenItMayHaveBeenStored) {
  Serve([](const PipeRequest&, PipeReply&) { return Answer::HangUp; });
  bool left = false;
  EXPECT_EQ(client->Submit(Message(), left), Status::Disconnected);
  EXPECT_TRUE(left);
  EXPECT_EQ(server->Requests().size(), 1U);
  server.reset();
  EXPECT_EQ(client->Submit(Message(), left), Status::NotRunning);
  EXPECT_FALSE(left);
}

TEST_F(LogClientTest, BusyPipeIsTriedAgain) {
  Serve();
  // Another client takes the only request pipe and needs a while for the reply pipe.
  Handle other(CreateFileA(server->PipeName().c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  for (int i = 0; i < 200 && !other; ++i) {
    Sleep(10);
    other =
        Handle(CreateFileA(server->PipeName().c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  ASSERT_TRUE(other);
  std::jthread late([&] {
    Sleep(300);
    Handle reply(CreateFileA((server->PipeName() + kReplyPipeSuffix).c_str(), GENERIC_READ, 0, nullptr,
                             OPEN_EXISTING, 0, nullptr));
    reply.Close();
    other.Close();
  });
  EXPECT_EQ(client->Ping(), Status::Ok);
}

TEST_F(LogClientTest, PipeThatStaysBusyTimesOut) {
  const std::string name = "\\\\.\\pipe\\TamLogTestBusy" + std::to_string(GetCurrentProcessId());
  const Handle only(
      CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr));
  const Handle taken(CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(taken);
  EXPECT_EQ(LogClient({name, 300, 100}).Ping(), Status::TimedOut);
}

// A client that closed its request pipe meanwhile would keep every client out: the server waits for the reply
// pipe of that pair.
TEST_F(LogClientTest, ServerThatIsSlowBetweenItsTwoPipesIsReached) {
  server = std::make_unique<TestServer>(Ordinary, TestServer::OwnPipeName(), 2500);
  LogClient patient({server->PipeName(), 8000, 8000});
  EXPECT_EQ(patient.Ping(), Status::Ok);
  EXPECT_EQ(server->Connections(), 1);
  EXPECT_TRUE(server->AllWhole());
}

// The call is over when the pipe comes; the next one finds a server that serves.
TEST_F(LogClientTest, ServerThatIsSlowerThanACallIsReachedByTheNextOne) {
  server = std::make_unique<TestServer>(Ordinary, TestServer::OwnPipeName(), 2500);
  client = std::make_unique<LogClient>(TamLogClient::LogClientOptions{server->PipeName(), 500, 400});
  Status status = client->Ping();
  for (int i = 0; i < 10 && status != Status::Ok; ++i) status = client->Ping();
  EXPECT_EQ(status, Status::Ok);
}

TEST_F(LogClientTest, ThreadsTakeTurns) {
  Serve();
  std::atomic<int> failed{0};
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 100; ++i) {
          if (client->Submit(Message()) != Status::Ok) ++failed;
        }
      });
    }
  }
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(server->Requests().size(), 400U);
  EXPECT_EQ(server->Connections(), 1);
}

}  // namespace

extern "C" {
decltype(&CreateFileA) __imp_CreateFileA = WatchedCreateFile;
}
