#include "check/options.h"

#include <gtest/gtest.h>

namespace TamLogCheck {

TEST(CheckOptions, TakeChecksByTheBeginningOfTheirNames) {
  Options options;
  EXPECT_TRUE(IsChosen(options, "log.sent-is-read"));
  EXPECT_EQ(ParseOptions({"log.", "pipe.claims"}, options), "");
  EXPECT_TRUE(IsChosen(options, "log.sent-is-read"));
  EXPECT_TRUE(IsChosen(options, "pipe.claims"));
  EXPECT_FALSE(IsChosen(options, "service.registered"));
}

TEST(CheckOptions, TakeValuesAndSwitches) {
  Options options;
  EXPECT_EQ(ParseOptions({"--interrupt", "--report", "a b.txt", "--stand-in-device", "--quick", "--folder",
                          "c", "--server", "d", "--restore", "e"},
                         options),
            "");
  EXPECT_TRUE(options.interrupt && options.standInDevice && options.quick);
  EXPECT_EQ(options.report, "a b.txt");
  EXPECT_EQ(options.folder, "c");
  EXPECT_EQ(options.server, "d");
  EXPECT_EQ(options.restore, "e");
}

TEST(CheckOptions, NameTheMistake) {
  Options options;
  EXPECT_EQ(ParseOptions({"--fast"}, options), "unexpected argument \"--fast\"");
  EXPECT_EQ(ParseOptions({""}, options), "unexpected argument \"\"");
  EXPECT_EQ(ParseOptions({"--report"}, options), "--report needs a value");
  EXPECT_EQ(ParseOptions({"--folder", ""}, options), "--folder needs a value");
}

}  // namespace TamLogCheck
