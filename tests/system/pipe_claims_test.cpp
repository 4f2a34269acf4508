// Runs the pipe claims of the conformance kit against the real server.

#include "tests/system/system_test.h"

class PipeClaims : public SystemTest {};

TEST_F(PipeClaims, AllHoldOfThisServer) {
  RunService({.maxMessage = 100});
  EXPECT_EQ(AskForCode(FilterRequest("pipe", true)), ReplyCode::Done);
  const CommandReport report = RunOwnProgram("pipe_claims.exe", "--change --restart --idle");
  EXPECT_EQ(report.exitCode, 0U) << report.output;
  EXPECT_NE(report.output.find("\n24 claims hold, 0 fail\n"), std::string::npos) << report.output;
  WaitForStarts(2);
  // The filters are as they were, and the message that they let pass is in the log.
  ExpectTexts({"a message of the conformance kit"});
  const PipeReply filter = Ask(IndexRequest(0));
  EXPECT_STREQ(filter.filter.text, "pipe");
  EXPECT_EQ(filter.filter.kind, 1U);
}

TEST_F(PipeClaims, SayThatThereIsNoServer) {
  const CommandReport report = RunOwnProgram("pipe_claims.exe", "");
  EXPECT_EQ(report.exitCode, 3U);
  EXPECT_EQ(report.output, "pipe_claims: no server has its pipes open\n");
  EXPECT_EQ(RunOwnProgram("pipe_claims.exe", "--fast").exitCode, 2U);
}
