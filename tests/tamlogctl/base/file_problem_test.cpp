#include "tamlogctl/base/file_problem.h"

#include <gtest/gtest.h>

namespace {

using TamLogClient::Status;
using TamLogCtl::FileProblem;
using TamLogCtl::NameProblem;

TEST(FileProblem, NamesThatWindowsDoesNotKnowAreExplainedThere) {
  EXPECT_NE(NameProblem("*.dat", true).find("no file matches"), std::string::npos);
  EXPECT_NE(NameProblem("logs/a?.dat", true).find("no file matches"), std::string::npos);
  EXPECT_NE(NameProblem("/dev/stdin", true).find("write -"), std::string::npos);
  EXPECT_EQ(NameProblem("/dev/fd/3", true), "Windows has no such file");
  EXPECT_EQ(NameProblem("Logs.dat", true), "");
  for (const char* const name : {"*.dat", "/dev/stdin", "Logs.dat"}) EXPECT_EQ(NameProblem(name, false), "");
}

TEST(FileProblem, EveryReasonComesAfterTheNameOfTheFile) {
  for (const Status status : {Status::NotFound, Status::AccessDenied, Status::NotAFile, Status::SystemError,
                              Status::Damaged, Status::Interrupted}) {
    const std::string problem = FileProblem("Logs.dat", status, "the file is too short");
    EXPECT_EQ(problem.rfind("Logs.dat: ", 0), 0U) << problem;
    EXPECT_GT(problem.size(), 14U) << problem;
    EXPECT_EQ(TamLogCtl::TargetProblem("New.dat", status).rfind("New.dat: ", 0), 0U);
  }
}

TEST(FileProblem, StandardInputIsNamedInWords) {
  EXPECT_EQ(FileProblem("-", Status::NotALog, "it is empty"), "standard input is not a log (it is empty)");
  EXPECT_EQ(FileProblem("-", Status::Damaged, "the file is too short"),
            "standard input: the file is too short; see: tamlogctl verify");
  EXPECT_EQ(FileProblem("./-", Status::NotALog, "it is empty"), "./- is not a log (it is empty)");
}

}  // namespace
