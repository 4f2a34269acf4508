#pragma once

// The fixture of the tests that run tamlogctl's administrative commands against the real service.

#include <cstdint>
#include <string>

#include "tests/system/system_test.h"

class Administration : public SystemTest {
 protected:
  // Runs tamlogctl and returns its output.
  std::string Expect(const std::string& arguments, std::uint32_t exitCode, const std::string& words,
                     const std::string& input = "") const {
    const CommandReport report = RunTool(arguments, input);
    EXPECT_EQ(report.exitCode, exitCode) << arguments << "\n" << report.output;
    EXPECT_NE(report.output.find(words), std::string::npos) << arguments << "\n" << report.output;
    return report.output;
  }
  void KillAReaderInside() {
    ReaderProcess reader("hold", ScratchFile("killed"));
    ASSERT_EQ(reader.NextLine(), "holding");
    reader.Kill();
  }
};
