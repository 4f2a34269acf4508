#include "check/report.h"

#include <gtest/gtest.h>

namespace TamLogCheck {

namespace {

Report ReportOf(std::initializer_list<Result> results) {
  Report report;
  report.Fact("computer",
              "M\xFC"
              "hle \"7\"");
  for (const Result& result : results) report.Add(result);
  return report;
}

std::string ProgramsPart(const Report& report) {
  const std::string text = report.Text();
  const std::string line = std::string(kProgramsLine) + "\n";
  const std::size_t at = text.find(line);
  return at == std::string::npos ? "" : text.substr(at + line.size());
}

const Result kHolds{"a.one", "It holds.", {Outcome::Holds, "", {{"ms", "7"}}}, 12};
const Result kDiffers{"a.two", "It does.", {Outcome::Differs, "it does not", {}}, 3};
const Result kNotTried{"b.three", "It may.", {Outcome::NotTried, "nobody here", {}}, 0};

}  // namespace

TEST(CheckReport, BeginsWithWhatDiffersAndCountsEachOutcome) {
  const Report report = ReportOf({kHolds, kDiffers, kNotTried});
  EXPECT_EQ(report.Summary(), "1 hold, 1 differs, 1 not tried");
  const std::string text = report.Text();
  EXPECT_LT(text.find("\ndiffers    a.two: it does not\n           It does.\n"),
            text.find("\nholds      a.one\n"));
  EXPECT_NE(text.find("\n           ms: 7\n"), std::string::npos);
  EXPECT_NE(text.find("\nnot tried  b.three: nobody here\n"), std::string::npos);
}

TEST(CheckReport, HasOneObjectALineForPrograms) {
  EXPECT_EQ(
      ProgramsPart(ReportOf({kHolds, kDiffers})),
      "{\"facts\": {\"computer\": \"M\\u00fchle \\\"7\\\"\"}}\n"
      "{\"check\": \"a.one\", \"promise\": \"It holds.\", \"result\": \"holds\", \"seen\": \"\", \"values\": "
      "{\"ms\": \"7\"}, \"ms\": 12}\n"
      "{\"check\": \"a.two\", \"promise\": \"It does.\", \"result\": \"differs\", \"seen\": \"it does not\", "
      "\"values\": {}, \"ms\": 3}\n");
}

TEST(CheckReport, TellsAnAdministratorWhatIsInIt) {
  EXPECT_NE(ReportOf({kHolds}).Text().find("no message of the log and no password"), std::string::npos);
}

TEST(CheckReport, NamesWhatCouldNotBeRestored) {
  Report report = ReportOf({kHolds});
  EXPECT_TRUE(report.AllRestored());
  report.NotRestored("the service");
  EXPECT_FALSE(report.AllRestored());
  EXPECT_NE(report.Text().find("\nNOT RESTORED: the service\n"), std::string::npos);
  EXPECT_NE(ProgramsPart(report).find("{\"not_restored\": \"the service\"}\n"), std::string::npos);
}

TEST(CheckReport, WritesControlCharactersAndOtherBytesAsEscapes) {
  EXPECT_EQ(JsonText("a\n\x1B[0m\x7F\\"), "\"a\\u000a\\u001b[0m\\u007f\\\\\"");
}

}  // namespace TamLogCheck
