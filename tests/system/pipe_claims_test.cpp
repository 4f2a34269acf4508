// Runs the pipe claims of the conformance kit against the real server.

#include "tests/system/system_test.h"

class PipeClaims : public SystemTest {};

TEST_F(PipeClaims, AllHoldOfThisServer) {
  RunService({.maxMessage = 100});
  EXPECT_EQ(AskForCode(FilterRequest("pipe", true)), ReplyCode::Done);
  const CommandReport report = RunOwnProgram("pipe_claims.exe", "--change --restart --idle");
  EXPECT_EQ(report.exitCode, 0U) << report.output;
  EXPECT_NE(report.output.find("\n40 claims hold, 0 fail\n"), std::string::npos) << report.output;
  WaitForStarts(2);
  // The filters and the path are as they were, and messages that they let pass are in the log.
  const PipeReply filter = Ask(IndexRequest(0));
  EXPECT_STREQ(filter.filter.text, "pipe");
  EXPECT_EQ(filter.filter.kind, 1U);
  EXPECT_STREQ(Ask(RequestOf(RequestCode::GetLogFile)).path, LogFile().c_str());
  EXPECT_NE(Header().messageCount, 0);
}

TEST_F(PipeClaims, ThatEmptyTheLogHoldOfThisServer) {
  RunService({.maxMessage = 100});
  const CommandReport report = RunOwnProgram("pipe_claims.exe", "--empty");
  EXPECT_EQ(report.exitCode, 0U) << report.output;
  WaitForStarts(3);
  EXPECT_EQ(Header().maxMessages, 100);
  EXPECT_EQ(Header().messageCount, 0);
}

TEST_F(PipeClaims, ReportThatThereIsNoServer) {
  const CommandReport report = RunOwnProgram("pipe_claims.exe", "");
  EXPECT_EQ(report.exitCode, 3U);
  EXPECT_EQ(report.output, "pipe_claims: no server has its pipes open\n");
}

TEST_F(PipeClaims, RefuseWrongArguments) {
  for (const char* arguments :
       {"--fast", "--restart-seconds", "--restart-seconds 0", "--restart-seconds 3601",
        "--restart-seconds -1", "--restart-seconds 3s", "--change now", "\"\""}) {
    const CommandReport report = RunOwnProgram("pipe_claims.exe", arguments);
    EXPECT_EQ(report.exitCode, 2U) << arguments;
    EXPECT_EQ(report.output.rfind("usage: pipe_claims ", 0), 0U) << report.output;
  }
}
