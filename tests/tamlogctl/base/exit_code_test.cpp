// The exit codes that scripts rely on.

#include "tamlogctl/base/exit_code.h"

#include <gtest/gtest.h>

#include <string>

namespace TamLogCtl {

namespace {

using TamLogClient::Status;

TEST(ExitCode, OfTwoStepsTheWorseOneDecides) {
  EXPECT_EQ(WorseOf(kDone, kDone), kDone);
  EXPECT_EQ(WorseOf(kDone, kNegative), kNegative);
  EXPECT_EQ(WorseOf(kNegative, kDone), kNegative);
  EXPECT_EQ(WorseOf(kNegative, kDamaged), kDamaged);
  EXPECT_EQ(WorseOf(kDamaged, kNegative), kDamaged);
  EXPECT_EQ(WorseOf(kDamaged, kNotThere), kNotThere);
  EXPECT_EQ(WorseOf(kNotThere, kDamaged), kNotThere);
}

TEST(ExitCode, OfTwoFailuresTheFirstStays) {
  EXPECT_EQ(WorseOf(kNotThere, kAccessDenied), kNotThere);
  EXPECT_EQ(WorseOf(kOutputFailed, kNotThere), kOutputFailed);
  EXPECT_EQ(WorseOf(kInterrupted, kUsage), kInterrupted);
}

TEST(ExitCode, DamagedDataAreOutputAllTheSame) {
  EXPECT_TRUE(HasOutput(kDone));
  EXPECT_TRUE(HasOutput(kDamaged));
  EXPECT_FALSE(HasOutput(kNegative));
  EXPECT_FALSE(HasOutput(kNotThere));
  EXPECT_FALSE(HasOutput(kInterrupted));
}

TEST(ExitCode, RefusingWritesOneLineAndReturnsTheCode) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Refuse(kUsage, "-t 'x': expected a type"), kUsage);
  EXPECT_EQ(Refuse(Status::AccessDenied, "clear"), kAccessDenied);
  EXPECT_EQ(Refuse(Status::Refused), kRefused);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tamlogctl: -t 'x': expected a type\n"
            "tamlogctl: clear: access denied\n"
            "tamlogctl: the server refused the request\n");
}

}  // namespace

}  // namespace TamLogCtl
