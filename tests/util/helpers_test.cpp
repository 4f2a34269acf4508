#include "util/helpers.h"

#include <gtest/gtest.h>

#include <array>

#include "util/exceptions.h"

namespace TamLogUtil {
namespace {

TEST(ToString, GivesDecimalText) {
  EXPECT_EQ(ToString(std::int32_t{-1}), "-1");
  EXPECT_EQ(ToString(std::int32_t{0}), "0");
  EXPECT_EQ(ToString(INT32_MIN), "-2147483648");
  EXPECT_EQ(ToString(INT32_MAX), "2147483647");
  EXPECT_EQ(ToString(std::uint64_t{4294967295U}), "4294967295");
  EXPECT_EQ(ToString(UINT64_MAX), "18446744073709551615");
}

TEST(ToLower, ChangesOnlyLettersAToZ) {
  EXPECT_EQ(ToLower("\xC4"
                    "BC"),
            "\xC4"
            "bc");
  EXPECT_EQ(ToLower("AZaz09@[`{"), "azaz09@[`{");
  EXPECT_EQ(ToLower(""), "");
}

TEST(ToLower, KeepsEveryOtherByte) {
  for (int value = 0; value < 256; ++value) {
    if (value >= 'A' && value <= 'Z') continue;
    const std::string one(1, static_cast<char>(value));
    EXPECT_EQ(ToLower(one), one) << value;
  }
}

TEST(MatchesAnyPrefix, MatchesWhenEitherBeginsWithTheOther) {
  EXPECT_TRUE(MatchesAnyPrefix("abc", {"ab"}));
  EXPECT_TRUE(MatchesAnyPrefix("abc", {"abcdef"}));
  EXPECT_TRUE(MatchesAnyPrefix("abc", {"abc"}));
  EXPECT_FALSE(MatchesAnyPrefix("abc", {"abd"}));
  EXPECT_FALSE(MatchesAnyPrefix("abc", {"bc"}));
}

TEST(MatchesAnyPrefix, IgnoresLetterCaseOnBothSides) {
  EXPECT_TRUE(MatchesAnyPrefix("ABC", {"ab"}));
  EXPECT_TRUE(MatchesAnyPrefix("abc", {"AB"}));
  EXPECT_FALSE(MatchesAnyPrefix("\xC4", {"\xE4"}));
}

TEST(MatchesAnyPrefix, AnEmptyListMatchesNothing) {
  EXPECT_FALSE(MatchesAnyPrefix("abc", {}));
  EXPECT_FALSE(MatchesAnyPrefix("", {}));
}

TEST(MatchesAnyPrefix, AnEmptyElementOrTextMatchesEverything) {
  EXPECT_TRUE(MatchesAnyPrefix("abc", {""}));
  EXPECT_TRUE(MatchesAnyPrefix("", {"abc"}));
}

TEST(MatchesAnyPrefix, LooksAtEveryElement) {
  EXPECT_TRUE(MatchesAnyPrefix("abc", {"x", "y", "a"}));
  EXPECT_FALSE(MatchesAnyPrefix("abc", {"x", "y", "z"}));
}

TEST(PackFlags, PutsTheFirstFlagIntoTheLowestBit) {
  const std::array<bool, 3> flags{true, false, true};
  EXPECT_EQ(PackFlags(flags.data(), flags.size()), 5U);
}

TEST(PackFlags, NoFlagsGiveZero) {
  EXPECT_EQ(PackFlags(nullptr, 0), 0U);
}

TEST(PackFlags, TheThirtyThirdFlagFallsOntoTheLowestBit) {
  std::array<bool, 34> flags{};
  flags[31] = true;
  flags[32] = true;
  EXPECT_EQ(PackFlags(flags.data(), flags.size()), 0x80000001U);
  flags[33] = true;
  EXPECT_EQ(PackFlags(flags.data(), flags.size()), 0x80000003U);
}

TEST(UnpackFlags, GivesOneFlagPerBit) {
  std::array<bool, 4> flags{};
  UnpackFlags(5, flags.data(), flags.size());
  EXPECT_EQ(flags, (std::array<bool, 4>{true, false, true, false}));
}

TEST(UnpackFlags, ClearsFlagsWhoseBitIsNotSet) {
  std::array<bool, 2> flags{true, true};
  UnpackFlags(0, flags.data(), flags.size());
  EXPECT_EQ(flags, (std::array<bool, 2>{false, false}));
}

TEST(UnpackFlags, WrapsAroundAfterThirtyTwoFlags) {
  std::array<bool, 34> flags{};
  UnpackFlags(1, flags.data(), flags.size());
  EXPECT_TRUE(flags[0]);
  EXPECT_TRUE(flags[32]);
  EXPECT_FALSE(flags[33]);
}

TEST(PathBeside, ReplacesWhatFollowsTheLastBackslash) {
  EXPECT_EQ(PathBeside("C:\\Program Files\\Server\\Server.exe", "Logs.dat"),
            "C:\\Program Files\\Server\\Logs.dat");
  EXPECT_EQ(PathBeside("\\x.exe", "Logs.dat"), "\\Logs.dat");
}

TEST(PathBeside, WithoutABackslashThrows) {
  for (const char* path : {"", "Server.exe", "C:/Server/Server.exe"}) {
    try {
      PathBeside(path, "Logs.dat");
      ADD_FAILURE() << path;
    } catch (const Exceptions::ExceptionBase& failure) {
      EXPECT_EQ(failure.Compose("\n"), "Failed to obtain executable's location");
    }
  }
}

}  // namespace
}  // namespace TamLogUtil
