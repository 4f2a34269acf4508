#include "tamlogctl/server/diagnostic_entries.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using TamLogCtl::FailedStart;
using TamLogCtl::ParseDiagnostics;
using TamLogCtl::ReasonIn;

const std::string kTime = "Mon Nov 16 01:45:13 2026";

std::string Entry(const std::string& text) {
  return kTime + "\n - " + text + "\n";
}

TEST(DiagnosticEntries, CausesOfOneEntryAreJoined) {
  const auto entries = ParseDiagnostics(
      Entry("Failed to start\nCreateFile() failed - Error code : 3 - No path.\r\n") + Entry("Aborting"));
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].time, kTime);
  EXPECT_EQ(entries[0].text, "Failed to start: CreateFile() failed - Error code : 3 - No path.");
  EXPECT_EQ(entries[1].text, "Aborting");
}

TEST(DiagnosticEntries, BeginningInTheMiddleOfAnEntryIsLeftOut) {
  const auto entries = ParseDiagnostics("of a cut entry\n - more\n" + Entry("whole"));
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].text, "whole");
  EXPECT_TRUE(ParseDiagnostics("").empty());
  EXPECT_TRUE(ParseDiagnostics(kTime).empty());
}

TEST(DiagnosticEntries, OnlyTheLastStartCountsAsFailed) {
  const std::string failure =
      Entry("An exception has occured in the service's main : No driver") + Entry("Aborting");
  auto entries = ParseDiagnostics(Entry("earlier") + failure);
  ASSERT_NE(FailedStart(entries), nullptr);
  EXPECT_EQ(ReasonIn(*FailedStart(entries)), "No driver");
  entries = ParseDiagnostics(failure + Entry("later"));
  EXPECT_EQ(FailedStart(entries), nullptr);
  entries = ParseDiagnostics(
      Entry("Thread terminated due to unhandled exception : Exception occured during thread Run()\nNo path"));
  ASSERT_NE(FailedStart(entries), nullptr);
  EXPECT_EQ(ReasonIn(*FailedStart(entries)), "No path");
  EXPECT_EQ(FailedStart(ParseDiagnostics(Entry("Aborting"))), nullptr);
  EXPECT_EQ(FailedStart({}), nullptr);
}

}  // namespace
